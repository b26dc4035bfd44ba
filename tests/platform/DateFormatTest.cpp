#include "platform/DateFormat.h"
#include "platform/Exception.h"

#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>

using platform::errorReportDatePattern;
using platform::formatDate;
using platform::recordDatePattern;
using testsupport::ScopedEnvironment;

namespace {

// Zones written as POSIX rules, so that the tests need no time-zone database on the machine.
constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* newYork = "EST5EDT,M3.2.0,M11.1.0";

// 2023-03-14 14:05:09 UTC.
constexpr double afternoonUtc = 1678802709;

class DateFormatInZone : public testing::TestWithParam<const char*> {
protected:
    // The time point of a wall-clock time on 14 March 2023 in the zone under test.
    double localTime(int hour, int minute, int second) const
    {
        std::tm parts {};
        parts.tm_year = 2023 - 1900;
        parts.tm_mon = 2;
        parts.tm_mday = 14;
        parts.tm_hour = hour;
        parts.tm_min = minute;
        parts.tm_sec = second;
        parts.tm_isdst = -1;
        tzset();
        return static_cast<double>(std::mktime(&parts));
    }

    ScopedEnvironment m_zone { "TZ", std::string(GetParam()) };
};

}

TEST_P(DateFormatInZone, AfternoonAndMorningOfOneDayGiveTheSameRecordText)
{
    const std::string afternoon = formatDate(localTime(14, 5, 9), recordDatePattern);
    EXPECT_EQ(afternoon, "2023-03-14 02:05:09");
    EXPECT_EQ(formatDate(localTime(2, 5, 9), recordDatePattern), afternoon);
}

TEST_P(DateFormatInZone, FiveMinutesPastMidnightShowsHourTwelve)
{
    EXPECT_EQ(formatDate(localTime(0, 5, 0), recordDatePattern), "2023-03-14 12:05:00");
}

TEST_P(DateFormatInZone, FiveMinutesPastNoonAlsoShowsHourTwelve)
{
    EXPECT_EQ(formatDate(localTime(12, 5, 0), recordDatePattern), "2023-03-14 12:05:00");
}

TEST_P(DateFormatInZone, ErrorReportPatternMarksMorningAndAfternoon)
{
    EXPECT_EQ(formatDate(localTime(14, 5, 9), errorReportDatePattern), "03-14-2023 02:05:09 PM");
    EXPECT_EQ(formatDate(localTime(2, 5, 9), errorReportDatePattern), "03-14-2023 02:05:09 AM");
    EXPECT_EQ(formatDate(localTime(0, 5, 9), errorReportDatePattern), "03-14-2023 12:05:09 AM");
    EXPECT_EQ(formatDate(localTime(12, 5, 9), errorReportDatePattern), "03-14-2023 12:05:09 PM");
}

TEST_P(DateFormatInZone, FractionsOfASecondAreCutOffNotRounded)
{
    EXPECT_EQ(formatDate(localTime(14, 5, 9) + 0.999, recordDatePattern), "2023-03-14 02:05:09");
    EXPECT_EQ(formatDate(localTime(14, 5, 9) + 0.25, "HH:mm:ss.SSS"), "14:05:09.250");
}

INSTANTIATE_TEST_SUITE_P(Zones, DateFormatInZone, testing::Values(berlin, newYork),
    [](const testing::TestParamInfo<const char*>& info) { return info.param == berlin ? "Berlin" : "NewYork"; });

TEST(DateFormat, OneInstantReadsAsTheWallClockTimeOfTheLocalZone)
{
    {
        ScopedEnvironment zone("TZ", std::string(berlin));
        EXPECT_EQ(formatDate(afternoonUtc, "yyyy-MM-dd HH:mm:ss"), "2023-03-14 15:05:09");
    }
    {
        ScopedEnvironment zone("TZ", std::string(newYork));
        EXPECT_EQ(formatDate(afternoonUtc, "yyyy-MM-dd HH:mm:ss"), "2023-03-14 10:05:09");
        EXPECT_EQ(formatDate(afternoonUtc, recordDatePattern), "2023-03-14 10:05:09");
    }
}

TEST(DateFormat, SingleLettersDoNotPadAndTwoLetterYearsKeepTheLastTwoDigits)
{
    ScopedEnvironment zone("TZ", std::string("UTC0"));
    // 2009-02-03 04:05:06 UTC.
    EXPECT_EQ(formatDate(1233633906, "y M d H h m s"), "2009 2 3 4 4 5 6");
    EXPECT_EQ(formatDate(1233633906, "yy/MM/dd"), "09/02/03");
}

TEST(DateFormat, DatesBeforeNineteenSeventyFormat)
{
    ScopedEnvironment zone("TZ", std::string("UTC0"));
    EXPECT_EQ(formatDate(-1.5, "yyyy-MM-dd HH:mm:ss.SSS"), "1969-12-31 23:59:58.500");
}

TEST(DateFormat, UnknownPatternLettersRaise)
{
    EXPECT_THROW(formatDate(0, "yyyy-MMM-dd"), platform::Exception);
    EXPECT_THROW(formatDate(0, "EEEE"), platform::Exception);
    EXPECT_THROW(formatDate(0, "aa"), platform::Exception);
}

TEST(DateFormat, TimesBeyondTheCalendarRaiseInsteadOfOverflowing)
{
    EXPECT_THROW(formatDate(std::nan(""), recordDatePattern), platform::Exception);
    EXPECT_THROW(formatDate(INFINITY, recordDatePattern), platform::Exception);
    EXPECT_THROW(formatDate(1e300, recordDatePattern), platform::Exception);
}
