// A randomised run of the default mode end to end: korbanhold-devserver, korbanhold-sync-service and korbanhold as
// real processes; the folder changed by random operations of ordinary tools, several per pass
// (RandomFolderOperations.h); server faults in between (HTTP 500 with JSON and with HTML, 503 with JSON, a body that
// is not JSON, a dropped connection, the server killed with SIGKILL and started again on its database); and the
// service itself killed with SIGKILL at random moments and started again. After each step, and the passes that the
// service's own retries make, the server's file table, the stored table and the server identifiers it holds equal
// the folder's syncable items, and the server holds each item's file number and each file's modification date.
//
// Each step makes one raise: a SyncFile call (`korbanhold sync`), as the host application makes it. A service
// started again after a SIGKILL listens but polls only from its first SyncFile, as the host application starts it;
// the harness makes that call right after the restart, as the host does when it launches the service. The harness
// does not run korbanhold-watch, which would make the same call: its own raises (one per change, and a confirming
// one after each pass) would hide whether the service's retries alone bring the server over after a fault. Any
// other pass is the service's own.
//
// KORBANHOLD_RANDOM_SEED fixes the seed (shard N takes seed + N); without it each shard draws one. The operations and
// faults of a seed are the same on every run; the moments of the kills are not (they race the service by design).
// KORBANHOLD_RANDOM_STEPS sets the steps per shard (default 100). The seed is printed at the start and with every
// failure, with the step, its operations and faults, and the differences. Two shards of 100 steps each cost 85 to 115
// seconds of wall time each on a busy 2-core machine, most of it the service's 2-second poll after the faults.

#include "RandomFolderOperations.h"
#include "SyncableItems.h"
#include "SyncedFolder.h"

#include "support/Eventually.h"

#include "platform/DateFormat.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

using platform::Value;
using namespace e2etest;

namespace {

constexpr const char* anchorFile = "keep.txt";
// The form of the modification dates that the service sends.
constexpr const char* dateFormat = "yyyy-MM-dd hh:mm:ss";
constexpr std::uint64_t defaultStepsPerShard = 100;
// Faults that stand in for the server's reply to a batch report.
constexpr const char* replyFaults[] = { "error-json", "error-html", "unavailable-json", "not-json", "drop" };
// How long a step may take to converge: the retries' backoff (200 ms, doubling) and the 2-second poll, on a busy
// machine, after up to two faults or a restart.
constexpr std::chrono::seconds convergenceLimit { 60 };

std::uint64_t numberFromEnvironment(const char* name, std::uint64_t fallback)
{
    const char* text = std::getenv(name);
    return text && *text ? std::strtoull(text, nullptr, 10) : fallback;
}

class RandomisedRun : public SyncedFolder, public testing::WithParamInterface<int> {
protected:
    RandomisedRun()
    {
        m_folders.setStrictMode(false);
        // Retries after 200 ms, 400 ms, ... instead of 2 s, 4 s, ...: many faults per run, each recovered quickly.
        m_folders.setEnvironment("KORBANHOLD_RETRY_BACKOFF_MS", "200");
    }

    void prepare() override { testsupport::writeFile(syncedFolder() / anchorFile, "kept\n"); }

    // Runs one step: the operations, then the faults and kills the seed draws, then waits until the server equals the
    // folder with nobody raising anything more.
    testing::AssertionResult step(RandomFolderOperations& operations, std::mt19937_64& random)
    {
        m_step.str("");
        const int count = std::uniform_int_distribution<int>(1, 4)(random);
        for (int index = 0; index < count; ++index) {
            const std::string command = operations.next();
            m_step << "\n  $ " << command;
            if (auto ran = run(command); !ran)
                return ran;
        }
        if (std::bernoulli_distribution(0.3)(random)) {
            const int faults = std::uniform_int_distribution<int>(1, 2)(random);
            std::uniform_int_distribution<std::size_t> anyFault(0, std::size(replyFaults) - 1);
            for (int index = 0; index < faults; ++index) {
                const char* kind = replyFaults[anyFault(random)];
                m_step << "\n  fault " << kind;
                m_records->addFault(Value::dictionary({ { "kind", kind }, { "path", batchReportPath } }));
            }
        }
        const bool killServer = std::bernoulli_distribution(0.06)(random);
        const bool killService = std::bernoulli_distribution(0.12)(random);
        // The moments of the kills, as milliseconds after the step's SyncFile: a kill can hit a pass, a report on its
        // way, the storing of the table, or an idle service.
        const auto serviceKillAfter = std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 1000)(random));
        const auto serverDownFor = std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 1500)(random));
        const int port = m_server->port();
        if (killServer) {
            m_step << "\n  server killed, back after " << serverDownFor.count() << " ms";
            stopServer(SIGKILL);
        }

        if (auto called = syncFile(); !called)
            return called;
        if (killService) {
            m_step << "\n  service killed " << serviceKillAfter.count() << " ms after SyncFile";
            std::this_thread::sleep_for(serviceKillAfter);
            restartServiceWithoutSyncFile(SIGKILL);
            if (auto called = syncFile(); !called)
                return called;
        }
        if (killServer) {
            std::this_thread::sleep_for(killService ? std::chrono::milliseconds(0) : serverDownFor);
            startServerOnPort(port);
        }

        auto converged = [&] {
            auto same = serverMatchesFolder();
            return same ? serverAttributesMatchFolder() : same;
        };
        if (testsupport::eventually([&] { return bool(converged()); }, convergenceLimit, std::chrono::milliseconds(50)))
            return testing::AssertionSuccess();
        return converged() << "\nafter the changes of the last report:" << lastReportDescription();
    }

    std::string stepDescription() const { return m_step.str(); }

private:
    // The file number of every item on the server, and the modification date of every file, equal the folder's, so
    // that edits that keep the path are checked too. (A folder's date is left out: it changes with every item added
    // or removed, and those items report themselves.)
    testing::AssertionResult serverAttributesMatchFolder() const
    {
        const auto files = m_records->files(m_account.computerId);
        std::ostringstream differences;
        for (const auto& [path, isFile] : syncableItems(syncedFolder())) {
            std::string localPath = "/" + path;
            std::replace(localPath.begin(), localPath.end(), '\\', '/');
            struct stat status {};
            const auto file = files.find(path);
            if (file == files.end() || ::lstat(localPath.c_str(), &status) != 0)
                continue;
            if (file->second.fileNumber != std::to_string(status.st_ino))
                differences << "\n  " << path << ": the server's file number is " << file->second.fileNumber
                            << ", the folder's " << status.st_ino;
            const std::string date = platform::formatDate(static_cast<double>(status.st_mtim.tv_sec), dateFormat);
            if (isFile == "1" && file->second.modifiedDate != date)
                differences << "\n  " << path << ": the server's date is " << file->second.modifiedDate
                            << ", the folder's " << date;
        }
        if (differences.str().empty())
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << differences.str();
    }

    testing::AssertionResult syncFile() const
    {
        const auto result = m_folders.sync();
        if (result.exitCode == 0)
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "korbanhold sync failed: " << result.standardError;
    }

    std::ostringstream m_step;
};

TEST_P(RandomisedRun, TheServerEqualsTheFolderAfterEveryStep)
{
    const auto base = numberFromEnvironment("KORBANHOLD_RANDOM_SEED", std::random_device()());
    const std::uint64_t seed = base + static_cast<std::uint64_t>(GetParam());
    const auto steps = numberFromEnvironment("KORBANHOLD_RANDOM_STEPS", defaultStepsPerShard);
    std::cout << "Randomised run: seed " << seed << ", " << steps << " steps (KORBANHOLD_RANDOM_SEED=" << base
              << " repeats the operations of this shard)" << std::endl;
    std::mt19937_64 random(seed);
    RandomFolderOperations operations(syncedFolder(), anchorFile, random);
    for (std::uint64_t index = 1; index <= steps; ++index) {
        const auto converged = step(operations, random);
        ASSERT_TRUE(converged) << "seed " << seed << " (KORBANHOLD_RANDOM_SEED=" << base << "), step " << index
                               << " of " << steps << ":" << stepDescription() << "\nthe service's log:\n" << logTail();
    }
    EXPECT_EQ(m_folders.logCount("Nothing is synced while"), 0u) << logTail();
}

INSTANTIATE_TEST_SUITE_P(Shards, RandomisedRun, testing::Values(0, 1));

}
