#include "platform/HttpErrors.h"

#include <curl/curl.h>

#include <utility>

namespace platform::http {

namespace {

const char* descriptionOf(URLErrorCode code)
{
    switch (code) {
    case URLErrorUnknown: return "unknown error";
    case URLErrorCancelled: return "cancelled";
    case URLErrorBadURL: return "bad URL";
    case URLErrorTimedOut: return "The request timed out.";
    case URLErrorUnsupportedURL: return "unsupported URL";
    case URLErrorCannotFindHost: return "A server with the specified hostname could not be found.";
    case URLErrorCannotConnectToHost: return "Could not connect to the server.";
    case URLErrorNetworkConnectionLost: return "The network connection was lost.";
    case URLErrorHTTPTooManyRedirects: return "too many HTTP redirects";
    case URLErrorBadServerResponse: return "bad server response";
    case URLErrorFileDoesNotExist: return "The requested URL was not found on this server.";
    case URLErrorDataLengthExceedsMaximum: return "resource exceeds maximum size";
    case URLErrorCannotCreateFile: return "cannot create file";
    case URLErrorCannotOpenFile: return "cannot open file";
    case URLErrorCannotWriteToFile: return "cannot write to file";
    }
    return "unknown error";
}

// libcurl result -> URL system code. This is the only place where the two numberings meet.
constexpr std::pair<CURLcode, URLErrorCode> curlResultTable[] = {
    // Libcurl reads a reply that does not start with an HTTP status line as HTTP/0.9, which it refuses with this
    // code; schemes other than http never get this far (the task fails with URLErrorUnsupportedURL first).
    { CURLE_UNSUPPORTED_PROTOCOL, URLErrorBadServerResponse },
    { CURLE_URL_MALFORMAT, URLErrorBadURL },
    { CURLE_COULDNT_RESOLVE_PROXY, URLErrorCannotFindHost },
    { CURLE_COULDNT_RESOLVE_HOST, URLErrorCannotFindHost },
    { CURLE_COULDNT_CONNECT, URLErrorCannotConnectToHost },
    { CURLE_WEIRD_SERVER_REPLY, URLErrorBadServerResponse },
    { CURLE_PARTIAL_FILE, URLErrorNetworkConnectionLost },
    { CURLE_WRITE_ERROR, URLErrorCannotWriteToFile },
    // Only the reader of an upload file stops a transfer from a callback, when the file cannot be read.
    { CURLE_ABORTED_BY_CALLBACK, URLErrorCannotOpenFile },
    { CURLE_OPERATION_TIMEDOUT, URLErrorTimedOut },
    { CURLE_TOO_MANY_REDIRECTS, URLErrorHTTPTooManyRedirects },
    { CURLE_GOT_NOTHING, URLErrorNetworkConnectionLost },
    { CURLE_SEND_ERROR, URLErrorNetworkConnectionLost },
    { CURLE_RECV_ERROR, URLErrorNetworkConnectionLost },
};

}

Error urlError(URLErrorCode code)
{
    return Error { urlErrorDomain, code, descriptionOf(code) };
}

Error errorForCurlResult(int curlCode)
{
    for (const auto& [result, code] : curlResultTable) {
        if (result == curlCode)
            return urlError(code);
    }
    return urlError(URLErrorUnknown);
}

}
