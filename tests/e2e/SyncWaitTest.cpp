// `korbanhold sync --wait` and `korbanhold status` against the real service and server: the command waits for the
// pass it started and that pass's report, says what happened and exits 0 only when the table was stored or there
// was nothing to report; status shows the same from the service's status file. Each test starts a server and a
// service (about half a second).

#include "SyncedFolder.h"

#include "support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using e2etest::SyncedFolder;
using platform::Value;
using testing::HasSubstr;

class SyncWait : public SyncedFolder {
protected:
    testsupport::ProcessResult syncAndWait() const { return m_folders.sync({ "--wait", "--timeout", "60" }); }

    std::string status() const
    {
        const auto result
            = testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), { "status" }, m_folders.options());
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
        return result.standardOutput;
    }
};

}

TEST_F(SyncWait, SaysHowManyChangesWentToTheServerAndThatTheTableIsStored)
{
    ASSERT_TRUE(run("printf 'one\\n' > one.txt && mkdir two"));
    const auto result = syncAndWait();
    EXPECT_EQ(result.exitCode, 0) << result.standardError << logTail();
    EXPECT_EQ(result.standardOutput,
        "The pass found 2 changes; reporting them.\n"
        "The server accepted the report of 2 records; the table is stored.\n");
    EXPECT_TRUE(serverMatchesFolder());

    const auto shown = status();
    EXPECT_THAT(shown, HasSubstr(" (the service answers)\n"));
    EXPECT_THAT(shown, HasSubstr("Synced folder: " + syncedFolder().string() + " (there)\n"));
    EXPECT_THAT(shown, HasSubstr("\nLast stored report: pass "));
    EXPECT_THAT(shown, HasSubstr(", 2 records\nLast failed report: none\n"));
}

TEST_F(SyncWait, SaysWhenThereIsNothingToReportAndStatusNamesTheSkippedNames)
{
    ASSERT_TRUE(run("touch 'hash#tag.txt'"));
    const auto result = syncAndWait();
    EXPECT_EQ(result.exitCode, 0) << result.standardError << logTail();
    EXPECT_EQ(result.standardOutput, "The pass found no change: nothing to report.\n");
    EXPECT_THAT(status(),
        HasSubstr("Names skipped for illegal characters:\n  " + (syncedFolder() / "hash#tag.txt").string() + "\n"));
}

TEST_F(SyncWait, NamesTheErrorAndTheServerURLWhenTheReportFailsAndExitsWithOne)
{
    m_records->addFault(Value::dictionary({ { "kind", "drop" }, { "path", e2etest::batchReportPath } }));
    ASSERT_TRUE(run("touch three.txt"));
    const auto result = syncAndWait();
    EXPECT_EQ(result.exitCode, 1) << result.standardOutput << logTail();
    const std::string url = "http://127.0.0.1:" + std::to_string(m_server->port())
        + "/KorbanholdRestService/SyncFileChanges.svc/SyncFilesInTableAndCloud";
    EXPECT_THAT(result.standardError, HasSubstr("korbanhold: The report failed: "));
    EXPECT_THAT(result.standardError, HasSubstr("(server URL " + url + ")\n"));
    EXPECT_THAT(status(), HasSubstr(" (" + url + ")\n"));
}
