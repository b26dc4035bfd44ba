#pragma once

// What a request handler gives back, and the failures it reports by throwing.

#include "platform/Value.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace httplib {
struct Request;
}

namespace devserver {

struct Reply {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
};

// A request that cannot be understood (not JSON, the wrong shape, unknown keys): answered with HTTP 400.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Reply jsonReply(const platform::Value& value, int status = 200);
// The reply to a request that failed as a whole: a "ReturnStatus" of "1" and the reason under "error".
Reply errorReply(int status, std::string_view message);
// The "error" of a reply: {"Message": message}.
platform::Value errorValue(std::string_view message);

// The request's body read as JSON. Throws BadRequest when it is not JSON.
platform::Value jsonBody(const httplib::Request& request);

}
