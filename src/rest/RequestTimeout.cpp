#include "rest/RequestTimeout.h"

#include <atomic>

namespace rest {

namespace {

constexpr double productTimeoutSeconds = 60;

std::atomic<double>& timeoutSeconds()
{
    static std::atomic<double> seconds { productTimeoutSeconds };
    return seconds;
}

}

platform::http::Seconds requestTimeout()
{
    return platform::http::Seconds { timeoutSeconds().load() };
}

namespace testhooks {

ShortenedRequestTimeout::ShortenedRequestTimeout(platform::http::Seconds timeout)
{
    timeoutSeconds() = timeout.count();
}

ShortenedRequestTimeout::~ShortenedRequestTimeout()
{
    timeoutSeconds() = productTimeoutSeconds;
}

}

}
