// The report of an engine failure to the server's error log, against a real korbanhold-devserver.

#include "ServerFixture.h"

#include "support/Eventually.h"

#include <chrono>

using namespace synctest;
using platform::Value;

namespace {

constexpr const char* logErrorPath = "MAC/ErrorLog.svc/LogError";

class ErrorReport : public ServerFixture {
protected:
    // The settings snapshot the report reads is taken by SyncFile; with the status "0" no pass runs.
    void readSettings()
    {
        service->SyncFile();
        log.clear();
    }
};

TEST_F(ErrorReport, SendsTheFixedTextsWithTheComputerAndUserOfTheSettings)
{
    readSettings();
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(1));

    auto bodies = bodiesOf(logErrorPath);
    ASSERT_EQ(bodies.size(), 1u);
    EXPECT_EQ(bodies[0], Value::dictionary({ { "ErrorClass", Value("FileWatcherServiceXPC") },
                             { "ErrorMethod", Value("initFileWatcher") }, { "ErrorMessage", Value("Exception has occured") },
                             { "ComputerID", Value("C-7") }, { "UserID", Value("U-3") } }));
    Value errors = admin("errors");
    ASSERT_EQ(errors.count(), 1u);
    EXPECT_EQ(text(errors.at(0), "error_message"), "Exception has occured");
}

TEST_F(ErrorReport, TheCompletionLogsTheResponseRecord)
{
    readSettings();
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(log.countStartingWith("Error occured....<LogErrorResponseData: 0x"), 1u);
}

TEST_F(ErrorReport, TheCompletionLogsNullWhenTheRequestFails)
{
    readSettings();
    addFault("drop", logErrorPath);
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_TRUE(log.contains("Error occured....(null)"));
}

TEST_F(ErrorReport, SettingsWithoutComputerAndUserLeaveTheirFieldsOut)
{
    writeDomain("Ulmaridon.Korbanhold", Value::dictionary({ { "korbanholdPathKey", Value(home()) } }));
    readSettings();
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(1));

    auto bodies = bodiesOf(logErrorPath);
    ASSERT_EQ(bodies.size(), 1u);
    EXPECT_EQ(bodies[0].keys(), (std::vector<std::string> { "ErrorClass", "ErrorMethod", "ErrorMessage" }));
}

TEST_F(ErrorReport, SettingsThatAreNotTextTravelAsTheyStand)
{
    writeDomain("Ulmaridon.Korbanhold", Value::dictionary({ { "korbanholdPathKey", Value(home()) },
                                            { "computerIdKey", Value::integer(7) }, { "userIdKey", Value::null() } }));
    readSettings();
    service->logErrorMethod();
    ASSERT_TRUE(waitForReplies(1));

    auto bodies = bodiesOf(logErrorPath);
    ASSERT_EQ(bodies.size(), 1u);
    ASSERT_NE(bodies[0].find("ComputerID"), nullptr);
    EXPECT_EQ(*bodies[0].find("ComputerID"), Value::integer(7));
    ASSERT_NE(bodies[0].find("UserID"), nullptr);
    EXPECT_TRUE(bodies[0].find("UserID")->isNull());
}

TEST_F(ErrorReport, ReturnsWithoutWaitingForTheAnswer)
{
    readSettings();
    addFault("delay", logErrorPath, 1000);
    auto start = std::chrono::steady_clock::now();
    service->logErrorMethod();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    EXPECT_EQ(log.countStartingWith("Error occured...."), 0u);
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(log.countStartingWith("Error occured....<LogErrorResponseData: 0x"), 1u);
}

TEST_F(ErrorReport, APassThatFailsReachesTheServersErrorLogAndKeepsTheStatus)
{
    Value broken = tableRecord("1", path("a.txt"), "S1");
    broken.removeObjectForKey("oldPathKey");
    storeTable(Value::array({ broken }));
    firstPass();
    ASSERT_TRUE(waitForReplies(1));

    EXPECT_EQ(admin("errors").count(), 1u);
    EXPECT_EQ(bodiesOf("SyncFileChanges.svc/SyncFilesInTableAndCloud").size(), 0u);
    EXPECT_EQ(status(), Value("1"));
}

}
