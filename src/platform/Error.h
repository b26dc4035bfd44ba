#pragma once

// platform::Error: an error value with a domain, a numeric code and a description, standing for the framework's
// error objects that completions carry (transport errors, JSON errors).

#include <string>

namespace platform {

struct Error {
    std::string domain;
    long code = 0;
    std::string localizedDescription;

    // As "%@" prints an error: Error Domain=<domain> Code=<code> "<description>"
    std::string description() const;
};

// The domain of JSON reading and writing errors, with the code the framework uses for them.
inline constexpr const char* cocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr long jsonErrorCode = 3840;

}
