#pragma once

// The time limit of every REST request: 60 seconds without data before a request fails, and (where a session
// configuration sets one) 60 seconds for the whole transfer.

#include "platform/Http.h"

namespace rest {

platform::http::Seconds requestTimeout();

namespace testhooks {

// While an object lives, requests made from then on use `timeout` instead of 60 seconds, so that tests of
// time-outs need not wait a minute. Not nested.
class ShortenedRequestTimeout {
public:
    explicit ShortenedRequestTimeout(platform::http::Seconds timeout);
    ~ShortenedRequestTimeout();
    ShortenedRequestTimeout(const ShortenedRequestTimeout&) = delete;
    ShortenedRequestTimeout& operator=(const ShortenedRequestTimeout&) = delete;
};

}

}
