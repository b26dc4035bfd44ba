#pragma once

// The errors that HTTP tasks report, in the URL system's error domain and with its codes, so that callers (and the
// log lines that print them) see the same numbers the service has always seen. Every libcurl result is mapped in one
// table in HttpErrors.cpp; docs/http-errors.md lists it for readers.

#include "platform/Error.h"

namespace platform::http {

inline constexpr const char* urlErrorDomain = "NSURLErrorDomain";

// The URL system's error codes that this layer produces.
enum URLErrorCode : long {
    URLErrorUnknown = -1,
    URLErrorCancelled = -999,
    URLErrorBadURL = -1000,
    URLErrorTimedOut = -1001,
    URLErrorUnsupportedURL = -1002,
    URLErrorCannotFindHost = -1003,
    URLErrorCannotConnectToHost = -1004,
    URLErrorNetworkConnectionLost = -1005,
    URLErrorHTTPTooManyRedirects = -1007,
    URLErrorBadServerResponse = -1011,
    URLErrorFileDoesNotExist = -1100,
    URLErrorDataLengthExceedsMaximum = -1103,
    URLErrorCannotCreateFile = -3000,
    URLErrorCannotOpenFile = -3001,
    URLErrorCannotWriteToFile = -3003,
};

// The error for one of the codes above, with the URL system's description text.
Error urlError(URLErrorCode code);

// The error for a libcurl result (a CURLcode other than CURLE_OK). Results without a closer match are
// URLErrorUnknown (-1).
Error errorForCurlResult(int curlCode);

}
