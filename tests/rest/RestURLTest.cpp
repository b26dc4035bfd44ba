#include "rest/RestURL.h"

#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

using namespace rest;

TEST(RestURL, TheBaseURLNamesTheServiceOnTheConfiguredHost)
{
    testsupport::ScopedEnvironment server("KORBANHOLD_SERVER", "10.0.0.5:81");
    EXPECT_EQ(baseURL(), "http://10.0.0.5:81/KorbanholdRestService/");
}

TEST(RestURL, TheServerIsAHostWithAnOptionalPortOrTheHttpURLOfOne)
{
    EXPECT_EQ(serverAddress("example.test"), "example.test");
    EXPECT_EQ(serverAddress("10.0.0.5:81"), "10.0.0.5:81");
    EXPECT_EQ(serverAddress("[::1]:8080"), "[::1]:8080");
    EXPECT_EQ(serverAddress("http://127.0.0.1:4321/"), "127.0.0.1:4321");
    EXPECT_EQ(serverAddress("http://example.test"), "example.test");
    for (const auto* wrong : { "https://example.test/", "http://h:1/KorbanholdRestService/", "h:0", "h:65536",
             "h:", "h:port", "a b", "ftp:21x", "http://", "-h", ":80", "h/path" })
        EXPECT_EQ(serverAddress(wrong), std::nullopt) << wrong;
}

TEST(RestURL, AServerGivenAsAURLMakesTheSameBaseURLAsItsHost)
{
    testsupport::ScopedEnvironment server("KORBANHOLD_SERVER", "http://10.0.0.5:81/");
    EXPECT_EQ(configuredServer(), "10.0.0.5:81");
    EXPECT_EQ(baseURL(), "http://10.0.0.5:81/KorbanholdRestService/");
}

TEST(RestURL, AWrongServerIsAnErrorNamingTheVariable)
{
    testsupport::ScopedEnvironment server("KORBANHOLD_SERVER", "https://example.test/");
    try {
        configuredServer();
        FAIL() << "no error";
    } catch (const ServerSettingError& error) {
        EXPECT_STREQ(error.what(),
            "KORBANHOLD_SERVER must be host[:port] or http://host[:port]/, not \"https://example.test/\"");
    }
}

TEST(RestURL, TextWrittenOnlyWithURLCharactersIsAURLAsItIs)
{
    EXPECT_EQ(urlWithString("http://h:1/a-b._~/c?d=e&f#g"), "http://h:1/a-b._~/c?d=e&f#g");
    EXPECT_EQ(urlWithString("/a%2Fb%20c"), "/a%2Fb%20c");
    EXPECT_EQ(urlWithString(""), "");
}

TEST(RestURL, SpacesControlCharactersNonAsciiAndLoneEscapesMakeNoURL)
{
    EXPECT_EQ(urlWithString("/a b"), std::nullopt);
    EXPECT_EQ(urlWithString("/a\tb"), std::nullopt);
    EXPECT_EQ(urlWithString("/caf\xC3\xA9"), std::nullopt);
    EXPECT_EQ(urlWithString("/x\uFFFC"), std::nullopt);
    EXPECT_EQ(urlWithString("/100%"), std::nullopt);
    EXPECT_EQ(urlWithString("/%zz"), std::nullopt);
    EXPECT_EQ(urlWithString("/a\"b"), std::nullopt);
}

TEST(RestURL, ThePathOfAURLIsDecodedAndStopsAtQueryOrFragment)
{
    EXPECT_EQ(pathOfURL("/Users/a/my%20file.txt"), "/Users/a/my file.txt");
    EXPECT_EQ(pathOfURL("http://host:80/a/b?x=1"), "/a/b");
    EXPECT_EQ(pathOfURL("/a/b#part"), "/a/b");
    EXPECT_EQ(pathOfURL("file:///tmp/x"), "/tmp/x");
    EXPECT_EQ(pathOfURL("http://host"), "");
    EXPECT_EQ(pathOfURL("/a b"), std::nullopt);
}
