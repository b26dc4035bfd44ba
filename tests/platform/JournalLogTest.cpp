// The journal sink's choices: when stderr counts as the journal, and the priority of each kind of line.

#include "platform/JournalLog.h"

#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

using platform::journalPriority;
using platform::stderrIsJournal;

TEST(JournalLog, StderrIsTheJournalOnlyWhenJournalStreamNamesItsFile)
{
    struct stat status {};
    ASSERT_EQ(::fstat(STDERR_FILENO, &status), 0);
    const std::string stream = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    {
        testsupport::ScopedEnvironment variable("JOURNAL_STREAM", stream);
        EXPECT_TRUE(stderrIsJournal());
    }
    {
        testsupport::ScopedEnvironment variable(
            "JOURNAL_STREAM", std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino + 1));
        EXPECT_FALSE(stderrIsJournal());
    }
    {
        testsupport::ScopedEnvironment variable("JOURNAL_STREAM", "not a stream");
        EXPECT_FALSE(stderrIsJournal());
    }
    testsupport::ScopedEnvironment unset("JOURNAL_STREAM", std::nullopt);
    EXPECT_FALSE(stderrIsJournal());
}

TEST(JournalLog, TheIdlePollIsDebugTroubleIsWarningOrErrorTheRestInformation)
{
    EXPECT_EQ(journalPriority("syncFileInTablenCloud: 0"), LOG_DEBUG);
    EXPECT_EQ(journalPriority("syncFileInTablenCloud: 1"), LOG_INFO);
    EXPECT_EQ(journalPriority("Error occured....boom"), LOG_ERR);
    EXPECT_EQ(journalPriority("The service cannot start: no socket"), LOG_ERR);
    EXPECT_EQ(journalPriority("error code ....Error Domain=NSURLErrorDomain Code=-1004"), LOG_WARNING);
    EXPECT_EQ(journalPriority("The request to http://h:1/KorbanholdRestService/x failed"), LOG_WARNING);
    EXPECT_EQ(journalPriority("network error"), LOG_WARNING);
    EXPECT_EQ(journalPriority("response {}"), LOG_INFO);
}
