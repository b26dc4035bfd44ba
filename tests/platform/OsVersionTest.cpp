#include "platform/OsVersion.h"

#include "support/LogCapture.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

using platform::appKitVersionNumber;
using platform::currentAppKitVersionNumber;
using testsupport::LogCapture;
using testsupport::ScopedEnvironment;

namespace {
constexpr const char* variable = "KORBANHOLD_APPKIT_VERSION";
}

TEST(OsVersion, WithoutTheVariableTheNumberIsThatOfACurrentRelease)
{
    ScopedEnvironment unset(variable, std::nullopt);
    EXPECT_EQ(appKitVersionNumber(), currentAppKitVersionNumber);
    EXPECT_GE(appKitVersionNumber(), 1343);
}

TEST(OsVersion, TheVariableGivesTheNumberWithItsFraction)
{
    ScopedEnvironment set(variable, std::string("1138.9"));
    EXPECT_DOUBLE_EQ(appKitVersionNumber(), 1138.9);
}

TEST(OsVersion, AChangedVariableCountsOnTheNextCall)
{
    ScopedEnvironment set(variable, std::string("1343"));
    EXPECT_EQ(appKitVersionNumber(), 1343);
    setenv(variable, "1265.2", 1);
    EXPECT_DOUBLE_EQ(appKitVersionNumber(), 1265.2);
}

TEST(OsVersion, AMalformedValueIsIgnoredAndLoggedOnce)
{
    LogCapture log;
    ScopedEnvironment set(variable, std::string("10.7.4"));
    EXPECT_EQ(appKitVersionNumber(), currentAppKitVersionNumber);
    EXPECT_EQ(appKitVersionNumber(), currentAppKitVersionNumber);
    EXPECT_EQ(log.lines(),
        std::vector<std::string> { "KORBANHOLD_APPKIT_VERSION \"10.7.4\" is not a decimal number; using 2487" });
}

TEST(OsVersion, AnotherMalformedValueIsLoggedAgain)
{
    LogCapture log;
    ScopedEnvironment set(variable, std::string("lion"));
    appKitVersionNumber();
    setenv(variable, "snow leopard", 1);
    appKitVersionNumber();
    appKitVersionNumber();
    EXPECT_EQ(log.countStartingWith("KORBANHOLD_APPKIT_VERSION "), 2u);
}

TEST(OsVersion, OnlyDigitsWithAnOptionalFractionAreADecimalNumber)
{
    LogCapture log;
    for (const char* malformed : { "", " 1138", "1138 ", "1e3", "-1138", "+1138", ".5", "inf", "nan", "0x46a", "1,5" }) {
        ScopedEnvironment set(variable, std::string(malformed));
        EXPECT_EQ(appKitVersionNumber(), currentAppKitVersionNumber) << '"' << malformed << '"';
    }
    for (const char* wellFormed : { "0", "1138", "1138.", "1138.90" }) {
        ScopedEnvironment set(variable, std::string(wellFormed));
        EXPECT_NE(appKitVersionNumber(), currentAppKitVersionNumber) << '"' << wellFormed << '"';
    }
}
