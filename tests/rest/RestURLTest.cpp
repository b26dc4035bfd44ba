#include "rest/RestURL.h"

#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

using namespace rest;

TEST(RestURL, TheBaseURLNamesTheServiceOnTheConfiguredHost)
{
    testsupport::ScopedEnvironment server("KORBANHOLD_SERVER", "10.0.0.5:81");
    EXPECT_EQ(baseURL(), "http://10.0.0.5:81/KorbanholdRestService/");
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
