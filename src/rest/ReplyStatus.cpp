#include "rest/ReplyStatus.h"

namespace rest {

namespace {
    thread_local std::optional<long> statusInCompletion;
}

std::optional<long> httpStatusOfReplyInCompletion() { return statusInCompletion; }

ReplyStatusScope::ReplyStatusScope(std::optional<long> statusCode)
    : m_outer(statusInCompletion)
{
    statusInCompletion = statusCode;
}

ReplyStatusScope::~ReplyStatusScope() { statusInCompletion = m_outer; }

}
