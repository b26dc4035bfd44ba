// The service as a real process, reached the way the host application reaches it: `korbanhold sync` over the
// service's socket. With no synced folder configured a pass finds nothing, which is enough to see it run.

#include "ServiceProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

using e2etest::ServiceFolders;
using e2etest::ServiceProcess;
using testing::HasSubstr;
using testing::Not;

constexpr const char* syncFileStarted = "FileWatcher 1 in syncfile initially";
constexpr const char* passRanWithStatusOne = "syncFileInTablenCloud: 1";
constexpr const char* droppedByListener = "IPC: dropped a message that is not an invocation";
constexpr const char* olderPath = "1138";

class SyncService : public testing::Test {
protected:
    // Sends `arguments` with `korbanhold sync` and expects it to succeed.
    void send(const std::vector<std::string>& arguments = {})
    {
        const auto result = folders.sync(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.standardError;
    }

    // A full SyncFile: the file watcher's domain was set to exactly its status key (the pass ends by writing "0"
    // into it) and the pass read the status "1".
    void expectFullSyncFile()
    {
        EXPECT_TRUE(folders.logEventuallyHolds(passRanWithStatusOne)) << folders.log();
        EXPECT_EQ(folders.logCount(syncFileStarted), 1u) << folders.log();
        EXPECT_THAT(folders.fileWatcherDomain(), testing::MatchesRegex(R"(\{"FileWatcherStatusKey":"[01]"\})"));
    }

    void expectCleanStop(ServiceProcess& service)
    {
        const auto result = service.stop();
        EXPECT_EQ(result.exitCode, 0) << folders.log();
    }

    ServiceFolders folders;
};

TEST_F(SyncService, OnTheOlderPathAnEmptyDictionaryStartsAFullSyncFile)
{
    ServiceProcess service(folders, olderPath);
    ASSERT_TRUE(service.listening()) << folders.log();
    send({ "--message", "{}" });
    expectFullSyncFile();
    expectCleanStop(service);
}

TEST_F(SyncService, OnTheOlderPathAMessageWithAnUnknownKeyStartsAFullSyncFile)
{
    ServiceProcess service(folders, olderPath);
    ASSERT_TRUE(service.listening()) << folders.log();
    send({ "--message", R"({"NoSuchKey":42})" });
    expectFullSyncFile();
    expectCleanStop(service);
}

TEST_F(SyncService, OnTheOlderPathAStringMessageStartsAFullSyncFile)
{
    ServiceProcess service(folders, olderPath);
    ASSERT_TRUE(service.listening()) << folders.log();
    send({ "--message", R"("sync, please")" });
    expectFullSyncFile();
    expectCleanStop(service);
}

TEST_F(SyncService, OnTheOlderPathTheSyncFileInvocationStartsAFullSyncFile)
{
    ServiceProcess service(folders, olderPath);
    ASSERT_TRUE(service.listening()) << folders.log();
    send();
    expectFullSyncFile();
    expectCleanStop(service);
}

TEST_F(SyncService, OnTheOlderPathEveryMessageStartsOneMoreSyncFile)
{
    ServiceProcess service(folders, olderPath);
    ASSERT_TRUE(service.listening()) << folders.log();
    send({ "--message", "{}" });
    send({ "--message", "{}" });
    EXPECT_TRUE(folders.logEventuallyHolds(syncFileStarted, 2)) << folders.log();
    expectCleanStop(service);
}

TEST_F(SyncService, OnTheOlderPathAMessageHoldingXPCDebugLogIsOnlyLogged)
{
    ServiceProcess service(folders, olderPath);
    ASSERT_TRUE(service.listening()) << folders.log();
    send({ "--debug-log", "hello from the host" });
    ASSERT_TRUE(folders.logEventuallyHolds("LOG: hello from the host")) << folders.log();
    // The wrapper logs the text instead of calling the message handler, so nothing can still be on its way.
    EXPECT_THAT(folders.log(), Not(HasSubstr(syncFileStarted)));
    EXPECT_EQ(folders.fileWatcherDomain(), "");
    expectCleanStop(service);
}

TEST_F(SyncService, AtVersion1138TheListenerIsNeverCreated)
{
    ServiceProcess service(folders, "1138.9");
    ASSERT_TRUE(service.listening()) << folders.log();
    // The listener would drop a message that is not an invocation; the older path runs SyncFile for it.
    send({ "--message", "{}" });
    EXPECT_TRUE(folders.logEventuallyHolds(syncFileStarted)) << folders.log();
    EXPECT_THAT(folders.log(), Not(HasSubstr(droppedByListener)));
    expectCleanStop(service);
}

class SyncServiceListenerPath : public SyncService, public testing::WithParamInterface<std::optional<std::string>> { };

TEST_P(SyncServiceListenerPath, OnEveryOtherVersionTheOlderPathIsNeverTaken)
{
    ServiceProcess service(folders, GetParam());
    ASSERT_TRUE(service.listening()) << folders.log();
    send({ "--message", "{}" });
    ASSERT_TRUE(folders.logEventuallyHolds(droppedByListener)) << folders.log();
    EXPECT_THAT(folders.log(), Not(HasSubstr(syncFileStarted)));
    send();
    expectFullSyncFile();
    expectCleanStop(service);
}

INSTANTIATE_TEST_SUITE_P(EarlierLaterAndCurrent, SyncServiceListenerPath,
    testing::Values(std::optional<std::string>("1137"), std::optional<std::string>("1139"),
        std::optional<std::string>("1265"), std::optional<std::string>()),
    [](const auto& info) { return info.param ? "Version" + *info.param : std::string("CurrentVersion"); });

TEST_F(SyncService, AnInsecureRuntimeFolderStopsTheServiceFromStarting)
{
    ::chmod(folders.runtimeFolder().c_str(), 0750);
    const auto result = testsupport::runProcess(e2etest::serviceProgram(), {}, folders.options());
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.standardError, HasSubstr("The service cannot start: cannot listen at "
            + folders.runtimeFolder().string() + ": the runtime folder is open to other users"));
    EXPECT_EQ(std::count(result.standardError.begin(), result.standardError.end(), '\n'), 1) << result.standardError;
    EXPECT_FALSE(std::filesystem::exists(folders.socketPath()));
}

TEST_F(SyncService, SigtermEndsTheServiceWithStatusZero)
{
    ServiceProcess service(folders, std::nullopt);
    ASSERT_TRUE(service.listening()) << folders.log();
    send();
    ASSERT_TRUE(folders.logEventuallyHolds(syncFileStarted)) << folders.log();
    expectCleanStop(service);
}

TEST_F(SyncService, StartedBySocketActivationTheServiceServesOnTheSocketItIsGiven)
{
    const std::filesystem::path activate = "/usr/bin/systemd-socket-activate";
    if (!std::filesystem::exists(activate))
        GTEST_SKIP() << "systemd-socket-activate is not installed (Debian package systemd)";
    // The launcher makes the socket where `korbanhold sync` looks; the service itself is told to use another folder,
    // where it must make nothing. The launcher passes on only the variables it is told to, so the test's folders are
    // named too: without them the service would use the real home folder's preferences and state.
    testsupport::TempDir elsewhere;
    ::chmod(elsewhere.path().c_str(), 0700);
    ServiceProcess service(folders, std::nullopt,
        { activate.string(), "--listen=" + folders.socketPath().string(),
            "--setenv=KORBANHOLD_RUNTIME_DIR=" + elsewhere.string(), "--setenv=KORBANHOLD_PREFERENCES_DIR",
            "--setenv=KORBANHOLD_STATE_DIR", "--setenv=KORBANHOLD_SERVER" });
    ASSERT_TRUE(service.listening()) << folders.log();
    send();
    EXPECT_TRUE(folders.logEventuallyHolds(syncFileStarted)) << folders.log();
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere.path()));
    expectCleanStop(service);
}

TEST(KorbanholdSync, ExitsWithOneWhenTheServiceCannotBeReached)
{
    ServiceFolders folders;
    const auto result = folders.sync();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.standardError, "korbanhold: The sync service cannot be reached at " + folders.socketPath().string()
            + ": No such file or directory\n");
}

TEST(KorbanholdSync, ExitsWithTwoOnAMessageThatIsNotJson)
{
    ServiceFolders folders;
    const auto result = folders.sync({ "--message", "{not json" });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.standardError, testing::StartsWith("korbanhold: Not valid JSON"));
}

TEST(KorbanholdSync, TakesEitherAMessageOrADebugLogNotBoth)
{
    ServiceFolders folders;
    const auto result = folders.sync({ "--message", "{}", "--debug-log", "text" });
    EXPECT_EQ(result.exitCode, 2);
}

}
