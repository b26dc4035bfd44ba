// Measures one sync pass on generated trees, side by side with `find` and `git status` on the same tree.
//
//   bench_sync_pass [--sizes 10000,100000,1000000] [--runs 5] [--cache /tmp/korbanhold-bench] [--prepare-only 1]
//
// For every size: (a) the steady-state pass (status "1", the stored table equal to the folder, run again and again
// in one process, so the table comes from the preference store's cache), (b) the first pass of a new folder (every
// item "Created"), `find DIR -printf '%i %s %T@ %y\n'`, and `git status --porcelain` of a repository of the same
// tree (committed once). Each pass kind runs in a child process of its own, so that its peak memory is its own.
// Trees and repositories are generated once and kept in the cache folder (a million items take minutes to set up).
// Prints medians and ratios; asserts nothing.

#include "BenchSupport.h"

#include "platform/Log.h"
#include "platform/Queue.h"
#include "platform/UserDefaults.h"
#include "sync/RecordKeys.h"
#include "sync/SyncFilesXpcService.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace bench;


// ---------------------------------------------------------------- the passes, in child processes

void writeSettings(const fs::path& home)
{
    using platform::Value;
    platform::UserDefaults::standardUserDefaults().setPersistentDomain(
        Value::dictionary({ { "korbanholdPathKey", Value(home.string()) }, { "computerIdKey", Value("C-1") },
            { "userIdKey", Value("U-1") } }),
        engine::domains::korbanhold);
}

void raiseStatus()
{
    using platform::Value;
    platform::UserDefaults::standardUserDefaults().setPersistentDomain(
        Value::dictionary({ { "FileWatcherStatusKey", Value("1") } }), engine::domains::fileWatcher);
}

// (b): every run on a fresh preference folder; the table of the last run is stored for (a), as an accepted batch
// report stores it.
int runFirstPasses(const fs::path& home, const fs::path& preferences, int runs)
{
    platform::TestClock clock;
    for (int run = 0; run < runs; ++run) {
        fs::remove_all(preferences);
        fs::create_directories(preferences);
        writeSettings(home);
        auto service = std::make_shared<engine::SyncFilesXpcService>();
        auto start = Clock::now();
        service->SyncFile();
        std::cout << secondsSince(start) << "\n";
        if (run + 1 == runs)
            platform::UserDefaults::standardUserDefaults().setObject(service->userDefaultsArray(), engine::settings::fileWatchedData);
    }
    return 0;
}

// (a): one service, one warm-up pass, then timed passes with the status raised before each.
int runSteadyPasses(int runs)
{
    platform::TestClock clock;
    auto service = std::make_shared<engine::SyncFilesXpcService>();
    service->SyncFile();
    for (int run = 0; run < runs; ++run) {
        raiseStatus();
        auto start = Clock::now();
        service->syncFileInTablenCloud();
        std::cout << secondsSince(start) << "\n";
        if (service->changedListArray().count() != 0)
            throw std::runtime_error("the steady-state pass found changes");
    }
    return 0;
}

// The preference store's part of (a)'s memory: the stored table read once, nothing else.
int loadTableOnly()
{
    auto table = platform::UserDefaults::standardUserDefaults().objectForKey(engine::settings::fileWatchedData);
    std::cout << (table ? table->count() : 0) << "\n";
    return 0;
}

std::vector<double> timesOf(const std::string& output)
{
    std::vector<double> times;
    std::istringstream lines(output);
    for (double value; lines >> value;)
        times.push_back(value);
    return times;
}

// ---------------------------------------------------------------- the comparison

struct Figures {
    std::size_t items;
    double steady, first, find, gitStatus;
    long steadyPeak, firstPeak, gitPeak, tablePeak;
};

Figures measure(const std::string& self, const fs::path& cache, std::size_t items, int runs)
{
    Tree tree = prepare(cache, items);
    fs::path synced = tree.home / "Korbanhold";
    Figures figures { items, 0, 0, 0, 0, 0, 0, 0, 0 };
    int firstRuns = items >= 1000000 ? 1 : 3;

    setenv("KORBANHOLD_PREFERENCES_DIR", tree.steadyPreferences.c_str(), 1);
    std::vector<std::string> firstPasses { self, "--first-passes", tree.home.string(), tree.steadyPreferences.string(),
        std::to_string(firstRuns) };
    // (a) needs the table a first pass stores; the first run of the benchmark on a tree makes it.
    if (!fs::exists(tree.steadyPreferences / "Ulmaridon.SyncFilesXpcService.sqlite"))
        spawn(firstPasses, true);

    // The walks run first, while the tree is in the kernel's caches; (b), which needs the most memory, runs last.
    std::vector<double> findTimes, gitTimes;
    std::vector<std::string> find { "find", synced.string(), "-printf", "%i %s %T@ %y\\n" };
    std::vector<std::string> git { "git", "--git-dir=" + tree.gitDir.string(), "--work-tree=" + synced.string(), "status", "--porcelain" };
    spawn(find, false);
    spawn(git, false);
    for (int run = 0; run < runs; ++run) {
        findTimes.push_back(spawn(find, false).seconds);
        ChildRun status = spawn(git, false);
        gitTimes.push_back(status.seconds);
        figures.gitPeak = std::max(figures.gitPeak, status.peakKilobytes);
    }
    ChildRun steady = spawn({ self, "--steady-passes", std::to_string(runs) }, true);
    figures.steady = median(timesOf(steady.output));
    figures.steadyPeak = steady.peakKilobytes;
    figures.tablePeak = spawn({ self, "--load-table" }, true).peakKilobytes;
    figures.find = median(findTimes);
    figures.gitStatus = median(gitTimes);

    ChildRun first = spawn(firstPasses, true);
    figures.first = median(timesOf(first.output));
    figures.firstPeak = first.peakKilobytes;
    return figures;
}

void print(const std::vector<Figures>& all)
{
    std::printf("%9s %12s %12s %10s %12s %9s %9s %12s %12s %12s %12s\n", "items", "steady (a)", "first (b)", "find",
        "git status", "(a)/git", "(a)/find", "(a) peak MB", "table-only", "(b) peak MB", "git peak MB");
    for (const auto& f : all) {
        std::printf("%9zu %11.4fs %11.4fs %9.4fs %11.4fs %9.2f %9.2f %12.1f %12.1f %12.1f %12.1f\n", f.items, f.steady,
            f.first, f.find, f.gitStatus, f.steady / f.gitStatus, f.steady / f.find, f.steadyPeak / 1024.0,
            f.tablePeak / 1024.0, f.firstPeak / 1024.0, f.gitPeak / 1024.0);
    }
    std::printf("table-only: the peak of a process that only reads the stored table from the preference store\n");
    for (std::size_t k = 1; k < all.size(); ++k) {
        std::printf("(a) at %zu / (a) at %zu: %.2f (items x%.0f)\n", all[k].items, all[k - 1].items,
            all[k].steady / all[k - 1].steady, static_cast<double>(all[k].items) / static_cast<double>(all[k - 1].items));
    }
}

}

int main(int argc, char** argv)
{
    try {
        std::vector<std::string> arguments(argv + 1, argv + argc);
        platform::setLogSink([](std::string_view) { });
        platform::UserDefaults::setApplicationDomain("Ulmaridon.SyncFilesXpcService");
        if (arguments.size() == 4 && arguments[0] == "--first-passes")
            return runFirstPasses(arguments[1], arguments[2], std::stoi(arguments[3]));
        if (arguments.size() == 1 && arguments[0] == "--load-table")
            return loadTableOnly();
        if (arguments.size() == 2 && arguments[0] == "--steady-passes")
            return runSteadyPasses(std::stoi(arguments[1]));

        std::vector<std::size_t> sizes { 10000, 100000, 1000000 };
        int runs = 5;
        bool prepareOnly = false;
        fs::path cache = "/tmp/korbanhold-bench";
        for (std::size_t k = 0; k + 1 < arguments.size(); k += 2) {
            if (arguments[k] == "--runs")
                runs = std::stoi(arguments[k + 1]);
            else if (arguments[k] == "--prepare-only")
                prepareOnly = arguments[k + 1] == "1";
            else if (arguments[k] == "--cache")
                cache = arguments[k + 1];
            else if (arguments[k] == "--sizes")
                sizes = sizesOf(arguments[k + 1]);
        }
        fs::create_directories(cache);
        std::string self = fs::read_symlink("/proc/self/exe").string();
        std::vector<Figures> all;
        for (std::size_t items : sizes) {
            if (prepareOnly) {
                prepare(cache, items);
                continue;
            }
            all.push_back(measure(self, cache, items, runs));
            std::cerr << "measured " << items << " items\n";
        }
        print(all);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "bench_sync_pass: " << failure.what() << "\n";
        return 1;
    }
}
