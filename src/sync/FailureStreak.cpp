#include "sync/FailureStreak.h"

namespace engine {

bool FailureStreak::failed(const std::string& reason)
{
    if (reason != m_reason) {
        m_reason = reason;
        m_count = 0;
    }
    return ++m_count == limit;
}

void FailureStreak::completed()
{
    m_reason.clear();
    m_count = 0;
}

}
