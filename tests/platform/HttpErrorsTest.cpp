#include "platform/HttpErrors.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

using namespace platform::http;

namespace {

void expectMapped(CURLcode result, long code, const std::string& description)
{
    const platform::Error error = errorForCurlResult(result);
    EXPECT_EQ(error.domain, "NSURLErrorDomain") << result;
    EXPECT_EQ(error.code, code) << curl_easy_strerror(result);
    EXPECT_EQ(error.localizedDescription, description) << curl_easy_strerror(result);
}

}

TEST(HttpErrors, TheLibcurlResultsMapToTheURLSystemsCodes)
{
    expectMapped(CURLE_OPERATION_TIMEDOUT, -1001, "The request timed out.");
    expectMapped(CURLE_COULDNT_RESOLVE_HOST, -1003, "A server with the specified hostname could not be found.");
    expectMapped(CURLE_COULDNT_RESOLVE_PROXY, -1003, "A server with the specified hostname could not be found.");
    expectMapped(CURLE_COULDNT_CONNECT, -1004, "Could not connect to the server.");
    expectMapped(CURLE_PARTIAL_FILE, -1005, "The network connection was lost.");
    expectMapped(CURLE_GOT_NOTHING, -1005, "The network connection was lost.");
    expectMapped(CURLE_SEND_ERROR, -1005, "The network connection was lost.");
    expectMapped(CURLE_RECV_ERROR, -1005, "The network connection was lost.");
    expectMapped(CURLE_WEIRD_SERVER_REPLY, -1011, "bad server response");
    expectMapped(CURLE_UNSUPPORTED_PROTOCOL, -1011, "bad server response");
    expectMapped(CURLE_URL_MALFORMAT, -1000, "bad URL");
    expectMapped(CURLE_TOO_MANY_REDIRECTS, -1007, "too many HTTP redirects");
    expectMapped(CURLE_WRITE_ERROR, -3003, "cannot write to file");
    expectMapped(CURLE_ABORTED_BY_CALLBACK, -3001, "cannot open file");
}

TEST(HttpErrors, EveryOtherLibcurlResultIsTheUnknownError)
{
    for (CURLcode result : { CURLE_OUT_OF_MEMORY, CURLE_FAILED_INIT, CURLE_SSL_CONNECT_ERROR, CURLE_RANGE_ERROR,
             CURLE_FUNCTION_NOT_FOUND, CURLE_SEND_FAIL_REWIND })
        expectMapped(result, -1, "unknown error");
}

TEST(HttpErrors, ErrorsPrintAsTheURLSystemPrintsThem)
{
    EXPECT_EQ(urlError(URLErrorCancelled).description(), "Error Domain=NSURLErrorDomain Code=-999 \"cancelled\"");
    EXPECT_EQ(urlError(URLErrorTimedOut).description(),
        "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\"");
}
