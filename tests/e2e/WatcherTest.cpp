// The product with its file watcher: devserver, service and korbanhold-watch as processes, the synced folder changed
// with ordinary tools, and nobody raising the status by hand. After each change the server converges to the folder.
// Cost: about 5 to 20 s per test on a busy machine, mostly the service's 2-second poll.

#include "SyncableItems.h"
#include "SyncedFolder.h"
#include "WatcherProcess.h"

#include "support/Eventually.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

namespace fs = std::filesystem;
using e2etest::WatcherProcess;
using namespace std::chrono_literals;

std::string quoted(const fs::path& path)
{
    return "'" + path.string() + "'";
}

class Watched : public e2etest::SyncedFolder {
protected:
    void TearDown() override
    {
        if (m_watcher) {
            const auto result = m_watcher->stop();
            EXPECT_EQ(result.exitCode, 0) << m_watcher->log();
            EXPECT_EQ(m_watcher->log().find("Sanitizer"), std::string::npos) << m_watcher->log();
        }
        SyncedFolder::TearDown();
    }

    void startWatcher(const std::vector<std::string>& arguments = {},
        const std::vector<std::pair<std::string, std::optional<std::string>>>& environment = {},
        const std::vector<std::string>& launcher = {})
    {
        m_watcher = std::make_unique<WatcherProcess>(m_folders, arguments, environment, launcher);
        ASSERT_TRUE(m_watcher->started()) << m_watcher->log();
    }

    // The server and the stored table come to equal the folder, with nobody raising the status.
    testing::AssertionResult converges() const
    {
        testing::AssertionResult last = testing::AssertionFailure();
        if (testsupport::eventually([&] { return static_cast<bool>(last = serverMatchesFolder()); }, 60s, 250ms))
            return testing::AssertionSuccess();
        return last << "\nthe watcher's log:\n" << m_watcher->log() << "\nthe service's log:\n" << logTail();
    }

    testing::AssertionResult changeAndConverge(const std::string& command) const
    {
        if (auto ran = run(command); !ran)
            return ran;
        return converges();
    }

    std::size_t raises() const
    {
        const std::string log = m_watcher->log();
        std::size_t count = 0;
        for (auto at = log.find("Raised "); at != std::string::npos; at = log.find("Raised ", at + 1))
            ++count;
        return count;
    }

    // Runs the watcher in a user namespace of its own whose inotify `limit` ("max_inotify_watches" ...) is `value`;
    // false when this system gives no such namespace.
    bool startWatcherWithLimit(const std::string& limit, int value)
    {
        if (testsupport::runProcess("/usr/bin/unshare", { "-U", "-r", "true" }).exitCode != 0)
            return false;
        startWatcher({ "--poll-interval", "1" }, {},
            { "unshare", "-U", "-r", "sh", "-c",
                "echo " + std::to_string(value) + " > /proc/sys/user/" + limit + " && exec \"$@\"", "sh" });
        return true;
    }

    std::unique_ptr<WatcherProcess> m_watcher;
};

// The service in its default mode, whatever the environment of the suite: the changes that ordinary tools make
// (a folder removed and another made in one pass may reuse its inode) converge in one go only with the safeguards;
// and while the synced folder is gone it holds back; once it is made again, what it holds is synced.
class GuardedWatched : public Watched {
protected:
    GuardedWatched() { m_folders.setStrictMode(false); }
};

TEST_F(GuardedWatched, ChangesMadeWithOrdinaryToolsReachTheServerByThemselves)
{
    startWatcher();
    const auto tree = scratch() / "tree";
    testsupport::writeFile(tree / "a.txt", "alpha\n");
    testsupport::writeFile(tree / "sub" / "b.txt", "beta\n");
    ASSERT_TRUE(changeAndConverge("cp -r " + quoted(tree) + " copied"));
    ASSERT_TRUE(changeAndConverge("sed -i 's/alpha/omega/' copied/a.txt"));
    ASSERT_TRUE(changeAndConverge("mv copied/a.txt copied/renamed.txt && mv copied/renamed.txt copied/sub/"));
    ASSERT_TRUE(changeAndConverge("mkdir -p made/at/once && echo 1 > made/at/once/deep.txt && echo 2 > made/top.txt"));
    ASSERT_TRUE(changeAndConverge("rm -r copied"));

    testsupport::writeFile(scratch() / "archive" / "x" / "y" / "one.txt", "1");
    testsupport::writeFile(scratch() / "archive" / "two.txt", "2");
    ASSERT_TRUE(changeAndConverge("tar -C " + quoted(scratch()) + " -cf " + quoted(scratch() / "a.tar")
        + " archive && tar -xf " + quoted(scratch() / "a.tar")));
    // A mirror made, then a file gone from its source. (The deletion is a step of its own: a folder removed and
    // another made in the same pass may reuse its inode, which the service takes for a rename of the first.)
    ASSERT_TRUE(changeAndConverge("rsync -a --delete " + quoted(scratch() / "archive") + "/ mirror/"));
    ASSERT_TRUE(changeAndConverge("rm " + quoted(scratch() / "archive" / "two.txt") + " && rsync -a --delete "
        + quoted(scratch() / "archive") + "/ mirror/"));

    const auto repository = scratch() / "repository";
    testsupport::writeFile(repository / "README", "a small repository\n");
    ASSERT_TRUE(run("cd " + quoted(repository) + " && git init -q && git add README && git -c user.name=Ann "
        + "-c user.email=ann@example.test commit -qm first"));
    ASSERT_TRUE(changeAndConverge("git clone -q " + quoted(repository) + " clone"));
    EXPECT_NE(m_watcher->log().find("Raised "), std::string::npos);
}

TEST_F(Watched, ChangesWrittenWhilePassesRunAreAllReported)
{
    startWatcher();
    // About six seconds of writes: several passes run while they go on.
    ASSERT_TRUE(changeAndConverge("for i in $(seq 1 60); do echo $i >> f$((i % 7)).txt; mkdir -p d$((i % 5)); "
                                  "echo $i > d$((i % 5))/n$((i % 3)).txt; sleep 0.1; done"));
}

TEST_F(Watched, ABurstOfThousandsOfFilesGivesAFewRaises)
{
    startWatcher();
    ASSERT_TRUE(converges());
    const auto before = raises();
    ASSERT_TRUE(changeAndConverge("mkdir burst && cd burst && for d in $(seq 1 20); do mkdir $d; "
                                  "for f in $(seq 1 100); do : > $d/$f; done; done"));
    EXPECT_LE(raises() - before, 12u) << m_watcher->log();
}

TEST_F(Watched, AtTheWatchLimitItSaysHowToRaiseItAndPolls)
{
    ASSERT_TRUE(run("mkdir -p one/a two/b three/c"));
    if (!startWatcherWithLimit("max_inotify_watches", 3))
        GTEST_SKIP() << "no user namespace to lower the watch limit in";
    ASSERT_TRUE(m_watcher->logEventuallyHolds("The inotify watch limit is reached"));
    const std::string log = m_watcher->log();
    EXPECT_NE(log.find("(/proc/sys/user/max_inotify_watches: 3): 4 of 7 folders"), std::string::npos) << log;
    EXPECT_NE(log.find("Raise the limit with: sudo sysctl -w user.max_inotify_watches=14"), std::string::npos) << log;
    EXPECT_NE(m_watcher->state().find("\"mode\":\"polling\""), std::string::npos) << m_watcher->state();
    ASSERT_TRUE(changeAndConverge("echo unwatched > three/c/file.txt"));
}

TEST_F(Watched, AtTheInstanceLimitItSaysSoAndPollsEverything)
{
    if (!startWatcherWithLimit("max_inotify_instances", 0))
        GTEST_SKIP() << "no user namespace to lower the instance limit in";
    ASSERT_TRUE(m_watcher->logEventuallyHolds("The inotify instance limit is reached"));
    EXPECT_NE(m_watcher->state().find("\"mode\":\"polling\""), std::string::npos) << m_watcher->state();
    ASSERT_TRUE(changeAndConverge("echo polled > polled.txt"));
}

TEST_F(Watched, AnOverflowedQueueRaisesAndWatchesEveryFolderAgain)
{
    startWatcher({}, { { "KORBANHOLD_WATCH_QUEUE_LIMIT", "5" } });
    ASSERT_TRUE(converges());
    // A watcher that does not read while many changes come: its queue overflows.
    ::kill(m_watcher->pid(), SIGSTOP);
    ASSERT_TRUE(run("for f in $(seq 1 30); do echo $f > $f.txt; done; mkdir -p lost/inner && echo 1 > lost/inner/1.txt"));
    ::kill(m_watcher->pid(), SIGCONT);
    ASSERT_TRUE(m_watcher->logEventuallyHolds("The inotify queue overflowed"));
    ASSERT_TRUE(converges());
    // The folders made while the queue overflowed are watched too.
    ASSERT_TRUE(changeAndConverge("echo later > lost/inner/later.txt"));
}

// The described system: a deleted synced folder walks as an empty one, and the server is emptied.
class StrictWatched : public Watched {
protected:
    StrictWatched() { m_folders.setStrictMode(true); }
};

TEST_F(StrictWatched, TheSyncedFolderDeletedAndMadeAgainIsFollowed)
{
    startWatcher();
    ASSERT_TRUE(changeAndConverge("mkdir -p keep && echo 1 > keep/one.txt"));
    ASSERT_TRUE(run("rm -rf " + quoted(syncedFolder())));
    ASSERT_TRUE(m_watcher->logEventuallyHolds("the synced folder is not there"));
    EXPECT_TRUE(testsupport::eventually([&] { return m_records->files(m_account.computerId).empty(); }, 60s, 250ms))
        << m_watcher->log() << logTail();
    fs::create_directories(syncedFolder() / "again");
    testsupport::writeFile(syncedFolder() / "again" / "back.txt", "back");
    ASSERT_TRUE(converges());
    ASSERT_TRUE(changeAndConverge("echo more > again/more.txt"));
}

TEST_F(GuardedWatched, TheSyncedFolderDeletedIsNotReportedAndWhatIsMadeAgainIsFollowed)
{
    startWatcher();
    ASSERT_TRUE(changeAndConverge("mkdir -p keep && echo 1 > keep/one.txt"));
    const auto files = m_records->files(m_account.computerId).size();
    ASSERT_TRUE(run("rm -rf " + quoted(syncedFolder())));
    ASSERT_TRUE(m_folders.logEventuallyHolds("Nothing is synced while the synced folder")) << logTail();
    EXPECT_EQ(m_records->files(m_account.computerId).size(), files);
    fs::create_directories(syncedFolder() / "again");
    testsupport::writeFile(syncedFolder() / "again" / "back.txt", "back");
    ASSERT_TRUE(converges());
    ASSERT_TRUE(changeAndConverge("echo more > again/more.txt"));
}

TEST_F(Watched, ANewSyncedFolderInTheSettingsIsFollowed)
{
    startWatcher();
    ASSERT_TRUE(converges());
    const auto otherHome = scratch() / "other";
    testsupport::writeFile(otherHome / "Korbanhold" / "there.txt", "there");
    m_defaults.write(e2etest::settingsDomain, "korbanholdPathKey", otherHome.string());
    ASSERT_TRUE(m_watcher->logEventuallyHolds("Watching 1 folders of " + (otherHome / "Korbanhold").string()));
    // The new folder is watched: a change in it reaches the server by itself.
    testsupport::writeFile(otherHome / "Korbanhold" / "new.txt", "new");
    const auto matches = [&] {
        std::map<std::string, std::string> server;
        for (const auto& [path, file] : m_records->files(m_account.computerId))
            server[path] = file.isFile;
        return server == e2etest::syncableItems(otherHome / "Korbanhold");
    };
    EXPECT_TRUE(testsupport::eventually(matches, 60s, 250ms)) << m_watcher->log() << logTail();
}

TEST_F(Watched, AServiceThatWasRestartedIsStartedPollingWithSyncFile)
{
    startWatcher({ "--sync-call-after", "2" });
    ASSERT_TRUE(converges());
    restartServiceWithoutSyncFile();
    ASSERT_TRUE(changeAndConverge("echo after the restart > restarted.txt"));
    EXPECT_NE(m_watcher->log().find("called SyncFile"), std::string::npos) << m_watcher->log();
}

TEST_F(Watched, SigtermDuringABurstStopsTheWatcherCleanly)
{
    startWatcher();
    testsupport::ProcessOptions options;
    options.workingDirectory = syncedFolder();
    testsupport::Process burst("/bin/sh", { "-c", "for i in $(seq 1 3000); do echo $i > burst$((i % 200)); done" },
        options);
    ASSERT_TRUE(m_watcher->logEventuallyHolds("changes seen since the last raise"));
    const auto korbanhold = testsupport::builtProgram("tools/korbanhold");
    EXPECT_NE(testsupport::runProcess(korbanhold, { "status" }, m_folders.options()).standardOutput.find(
                  "Watcher: PID " + std::to_string(m_watcher->pid())),
        std::string::npos);
    const auto result = m_watcher->stop();
    m_watcher.reset();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_FALSE(fs::exists(m_folders.runtimeFolder() / "korbanhold-watch.state"));
    EXPECT_NE(testsupport::runProcess(korbanhold, { "status" }, m_folders.options()).standardOutput.find(
                  "Watcher: no watcher runs"),
        std::string::npos);
    burst.wait();
}

}
