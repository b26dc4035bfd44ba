// The safeguards of the default mode end to end: korbanhold-devserver, korbanhold-sync-service and korbanhold as
// real processes, the folder changed with ordinary tools. The same scenarios in strict mode pin the described
// outcomes. Each test costs 3 to 8 seconds, most of it the service's 2-second poll.

#include "SyncedFolder.h"
#include "SyncableItems.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <optional>
#include <vector>

using platform::Value;
using namespace e2etest;

namespace {

namespace fs = std::filesystem;

// A launcher that runs the service in a mount namespace of its own (inside a user namespace, as an unprivileged user
// may make one), where `empty` is bind-mounted over `folder`; absent where this system does not allow it.
std::optional<std::vector<std::string>> launcherWithFolderMountedOver(const fs::path& empty, const fs::path& folder)
{
    const std::vector<std::string> launcher = { "/usr/bin/unshare", "--user", "--map-root-user", "--mount", "/bin/sh",
        "-c", "mount --bind \"$1\" \"$2\" && shift 2 && exec \"$@\"", "sh", empty.string(), folder.string() };
    std::vector<std::string> probe(launcher.begin() + 1, launcher.end());
    probe.push_back("true");
    if (testsupport::runProcess(launcher.front(), probe).exitCode != 0)
        return std::nullopt;
    return launcher;
}

constexpr const char* noMountNamespace
    = "this system gives no user and mount namespace to bind-mount a folder in (unshare --user --mount)";

class SafeguardsEndToEnd : public SyncedFolder {
protected:
    SafeguardsEndToEnd()
    {
        m_folders.setStrictMode(false);
        // Retries after 200 ms, 400 ms, ... instead of 2 s, 4 s, ...: the doubling itself is tested in the unit
        // tests, and the short first delay keeps each fault's recovery within a second or two.
        m_folders.setEnvironment("KORBANHOLD_RETRY_BACKOFF_MS", "200");
    }

    std::size_t serverFileCount() const { return m_records->files(m_account.computerId).size(); }

    // Calls SyncFile as the host application does, and waits until the service has logged `line` once more.
    testing::AssertionResult syncUntilLogged(const std::string& line)
    {
        const auto before = m_folders.logCount(line);
        if (m_folders.sync().exitCode != 0)
            return testing::AssertionFailure() << "korbanhold sync failed";
        if (!eventuallyWithinServiceTime([&] { return m_folders.logCount(line) > before; }))
            return testing::AssertionFailure() << "no \"" << line << "\" in the log:\n" << logTail();
        return testing::AssertionSuccess();
    }

    // The server converges by itself (the service's retries), with nobody raising anything.
    testing::AssertionResult convergesWithoutARaise()
    {
        if (!eventuallyWithinServiceTime([&] { return bool(serverMatchesFolder()); }))
            return serverMatchesFolder() << "\n" << logTail();
        return testing::AssertionSuccess();
    }

    std::vector<std::string> lastReportedChangeTypes() const
    {
        const auto bodies = m_records->requestBodies(batchReportPath);
        std::vector<std::string> types;
        if (!bodies.empty() && bodies.back().isArray())
            for (const Value& change : bodies.back().elements())
                types.push_back(textOf(change.find("ChangeType")));
        return types;
    }

    fs::path away() const { return syncedFolder().parent_path() / "Away"; }

    // Starts the service again in a mount namespace where an empty folder is mounted over the synced folder; the
    // folder outside keeps its items. False where this system gives no such namespace.
    bool restartWithAnEmptyFolderMountedOverTheSyncedOne()
    {
        fs::create_directory(away());
        const auto launcher = launcherWithFolderMountedOver(away(), syncedFolder());
        if (launcher)
            restartServiceWithoutSyncFile(SIGTERM, *launcher);
        return launcher.has_value();
    }
};

TEST_F(SafeguardsEndToEnd, SyncedFolderRenamedAwayAndBackChangesNothingOnTheServer)
{
    ASSERT_TRUE(changeAndSync("mkdir d && printf 'a\\n' > d/a.txt && printf 'b\\n' > b.txt"));
    const auto files = serverFileCount();
    fs::rename(syncedFolder(), away());
    ASSERT_TRUE(syncUntilLogged("Nothing is synced while the synced folder " + syncedFolder().string() + " does not exist"));
    EXPECT_EQ(serverFileCount(), files);
    fs::rename(away(), syncedFolder());
    ASSERT_TRUE(syncUntilLogged("Syncing again"));
    ASSERT_TRUE(syncStep());
    EXPECT_TRUE(lastChangeListWasEmpty());
    EXPECT_TRUE(serverMatchesFolder());
}

// An empty folder where a filled one was, as an unmounted drive leaves its mount point: here its items are moved out
// (below, an empty folder is mounted over it).
TEST_F(SafeguardsEndToEnd, EmptyFolderWhereAFilledOneWasDeletesNothingUntilConfirmed)
{
    ASSERT_TRUE(changeAndSync("mkdir d && printf 'a\\n' > d/a.txt && printf 'b\\n' > b.txt"));
    fs::create_directory(away());
    ASSERT_TRUE(run("mv ./* " + away().string() + "/"));
    ASSERT_TRUE(syncUntilLogged("Nothing is synced while the synced folder " + syncedFolder().string() + " is empty"));
    EXPECT_EQ(serverFileCount(), 3u);

    const auto stores = m_folders.logCount(reportStored);
    ASSERT_EQ(m_folders.sync({ "--confirm-delete-all" }).exitCode, 0);
    ASSERT_TRUE(eventuallyWithinServiceTime([&] { return m_folders.logCount(reportStored) > stores; })) << logTail();
    EXPECT_TRUE(serverMatchesFolder());
    EXPECT_EQ(serverFileCount(), 0u);
}

// An empty folder mounted over the filled synced folder, as a drive's mount point is seen when the drive is not
// there. The service runs in a mount namespace of the test, where the mount is; the folder outside keeps its items.
TEST_F(SafeguardsEndToEnd, EmptyFolderMountedOverAFilledOneDeletesNothing)
{
    ASSERT_TRUE(changeAndSync("mkdir d && printf 'a\\n' > d/a.txt && printf 'b\\n' > b.txt"));
    if (!restartWithAnEmptyFolderMountedOverTheSyncedOne())
        GTEST_SKIP() << noMountNamespace;
    ASSERT_TRUE(syncUntilLogged("Nothing is synced while the synced folder " + syncedFolder().string() + " is empty"));
    EXPECT_EQ(serverFileCount(), 3u);
}

TEST_F(SafeguardsEndToEnd, HardLinksBesideAMove)
{
    ASSERT_TRUE(changeAndSync("mkdir a projects && printf 'x\\n' > projects/x.txt && printf 'y\\n' > projects/y.txt"));
    ASSERT_TRUE(changeAndSync("ln projects/x.txt a/link.txt && mv projects/y.txt a/ && ln a/y.txt projects/y-again.txt"));
}

TEST_F(SafeguardsEndToEnd, AnEditKeepingTheSizeReachesTheServer)
{
    ASSERT_TRUE(changeAndSync("printf 'helo world\\n' > notes.txt && touch -d '2020-01-01 10:00:00' notes.txt"));
    ASSERT_TRUE(changeAndSync("printf 'hello wrld\\n' > notes.txt"));
    EXPECT_EQ(lastReportedChangeTypes(), std::vector<std::string> { "Modified" });
}

TEST_F(SafeguardsEndToEnd, TwoMovesAndAFolderRenameConvergeInOnePass)
{
    ASSERT_TRUE(changeAndSync("mkdir -p docs/deep from to && printf '1\\n' > docs/one.txt && printf '2\\n' > "
                              "docs/deep/two.txt && printf 'a\\n' > from/a.txt && printf 'b\\n' > from/b.txt"));
    // changeAndSync checks the server and the stored table after this one pass.
    ASSERT_TRUE(changeAndSync("mv from/a.txt from/b.txt to/ && mv docs papers"));
}

TEST_F(SafeguardsEndToEnd, AnHttp500WithJsonStoresNothingAndConverges)
{
    ASSERT_TRUE(changeAndSync("printf 'one\\n' > one.txt"));
    m_records->addFault(Value::dictionary({ { "kind", "error-json" }, { "path", batchReportPath } }));
    ASSERT_TRUE(run("printf 'two\\n' > two.txt && mkdir three"));
    ASSERT_TRUE(passStep());
    EXPECT_TRUE(convergesWithoutARaise());
    EXPECT_TRUE(m_folders.logCount("the server answered with HTTP status 500") >= 1u) << logTail();
}

// The server is down for two failed retries, then back on its port: the service's retries bring the changes over
// with nobody raising anything. (Down for two retries rather than a minute: the backoff's doubling and its cap are
// tested in the unit tests, and a minute here would be a minute of every CI run.)
TEST_F(SafeguardsEndToEnd, ServerDownThenBackConvergesWithNobodyRaising)
{
    ASSERT_TRUE(changeAndSync("printf 'one\\n' > one.txt"));
    const int port = m_server->port();
    stopServer();
    ASSERT_TRUE(run("printf 'two\\n' > two.txt && mkdir three"));
    const auto failures = m_folders.logCount("The batch report stored nothing complete");
    ASSERT_TRUE(passStep());
    ASSERT_TRUE(eventuallyWithinServiceTime(
        [&] { return m_folders.logCount("The batch report stored nothing complete") >= failures + 2; }))
        << logTail();
    startServerOnPort(port);
    EXPECT_TRUE(convergesWithoutARaise());
}

// The server applied a rename, but the service was killed before it stored the table: started again, it finds the
// same rename and reports it once more, and the server refuses it (nothing is left at the old path). Refused twice
// in a row, the rename is reported as the old path deleted and the new one created, and the server converges with
// nobody raising anything, instead of the rename being retried for ever.
TEST_F(SafeguardsEndToEnd, ARenameTheServerAppliedButTheServiceNeverStoredConverges)
{
    ASSERT_TRUE(changeAndSync("printf 'a\\n' > a.txt"));
    const Value tableBeforeTheRename = m_defaults.storedTable();
    ASSERT_TRUE(changeAndSync("mv a.txt b.txt"));
    restartServiceWithoutSyncFile(SIGKILL);
    m_defaults.write(serviceDomain, "FileWatchedDataKey", tableBeforeTheRename);
    ASSERT_EQ(m_folders.sync().exitCode, 0);
    EXPECT_TRUE(convergesWithoutARaise());
    EXPECT_EQ(m_folders.logCount("The server refused the rename of"), 1u) << logTail();
    EXPECT_EQ(lastReportedChangeTypes(), (std::vector<std::string> { "Deleted", "Created" })) << lastReportDescription();
}

// Lines of the log that start with a time stamp and hold `text`, as seconds of the day.
std::vector<double> timesOfLines(const std::string& log, const std::string& text)
{
    std::vector<double> times;
    std::size_t start = 0;
    while (start < log.size()) {
        std::size_t end = log.find('\n', start);
        std::string line = log.substr(start, end == std::string::npos ? std::string::npos : end - start);
        start = end == std::string::npos ? log.size() : end + 1;
        int hours = 0, minutes = 0;
        double seconds = 0;
        if (line.find(text) != std::string::npos && std::sscanf(line.c_str(), "%*d-%*d-%*d %d:%d:%lf", &hours, &minutes, &seconds) == 3)
            times.push_back(hours * 3600.0 + minutes * 60.0 + seconds);
    }
    return times;
}

TEST_F(SafeguardsEndToEnd, TwentySyncCallsRunOneLoopAndSendNoBatchTwice)
{
    ASSERT_TRUE(changeAndSync("printf 'one\\n' > one.txt"));
    const auto batches = m_records->requestCount(batchReportPath);
    ASSERT_TRUE(run("printf 'two\\n' > two.txt"));
    for (int call = 0; call < 20; ++call)
        ASSERT_EQ(m_folders.sync().exitCode, 0);
    ASSERT_TRUE(convergesWithoutARaise());
    EXPECT_EQ(m_records->requestCount(batchReportPath), batches + 1);

    // The loop's idle passes: one loop polls every 2 seconds; twenty-one loops would poll about ten times a second.
    const std::string idle = "syncFileInTablenCloud: 0";
    const auto idleBefore = m_folders.logCount(idle);
    ASSERT_TRUE(eventuallyWithinServiceTime([&] { return m_folders.logCount(idle) >= idleBefore + 3; }));
    auto times = timesOfLines(m_folders.log(), idle);
    ASSERT_GE(times.size(), 3u);
    for (std::size_t index = times.size() - 2; index < times.size(); ++index)
        EXPECT_GE(times[index] - times[index - 1], 1.5) << logTail();
}

// The described outcomes of the same scenarios.
class StrictSafeguardsEndToEnd : public SafeguardsEndToEnd {
protected:
    StrictSafeguardsEndToEnd() { m_folders.setStrictMode(true); }
};

TEST_F(StrictSafeguardsEndToEnd, SyncedFolderRenamedAwayEmptiesTheServer)
{
    ASSERT_TRUE(changeAndSync("mkdir d && printf 'a\\n' > d/a.txt && printf 'b\\n' > b.txt"));
    fs::rename(syncedFolder(), away());
    ASSERT_TRUE(syncStep());
    EXPECT_EQ(serverFileCount(), 0u);
}

TEST_F(StrictSafeguardsEndToEnd, EmptyFolderMountedOverAFilledOneEmptiesTheServer)
{
    ASSERT_TRUE(changeAndSync("mkdir d && printf 'a\\n' > d/a.txt && printf 'b\\n' > b.txt"));
    if (!restartWithAnEmptyFolderMountedOverTheSyncedOne())
        GTEST_SKIP() << noMountNamespace;
    ASSERT_EQ(m_folders.sync().exitCode, 0);
    EXPECT_TRUE(eventuallyWithinServiceTime([&] { return serverFileCount() == 0; })) << logTail();
}

TEST_F(StrictSafeguardsEndToEnd, AnEditKeepingTheSizeIsNeverReported)
{
    ASSERT_TRUE(changeAndSync("printf 'helo world\\n' > notes.txt && touch -d '2020-01-01 10:00:00' notes.txt"));
    ASSERT_TRUE(run("printf 'hello wrld\\n' > notes.txt"));
    ASSERT_TRUE(syncStep());
    EXPECT_TRUE(lastChangeListWasEmpty());
}

}
