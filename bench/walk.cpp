// Walks a tree of 100,000 items and reads every item's attributes with FileManager, and times
// `find DIR -printf '%i %s %T@ %y\n' > /dev/null` on the same tree in the same run, so the two can be compared.
//
// Usage: bench_walk [FOLDER] [RUNS]
//   Without FOLDER the tree is generated in a temporary folder that is removed at the end. An empty or missing
//   FOLDER gets the tree generated into it and kept; a FOLDER that has contents is walked as it is.
//   RUNS timed runs of each (7 by default), after one warm-up run each that brings the tree into the caches; the
//   medians are printed. Beside the elapsed times the processor time (user + system, all threads) is printed: on a
//   shared machine it shows the work done even while other processes hold the cores.

#include "platform/FileManager.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr int foldersPerFolder = 10;
constexpr int filesPerFolder = 90;
constexpr int levels = 3;
constexpr std::size_t targetItems = 100'000;

void createFile(const fs::path& path, off_t size)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || ::ftruncate(fd, size) != 0) {
        std::perror(path.c_str());
        std::exit(1);
    }
    ::close(fd);
}

// About 100 entries per folder: on each of `levels` levels every folder holds `foldersPerFolder` folders and
// `filesPerFolder` files; the deepest folders share the files that are left to reach `targetItems`.
std::size_t generate(const fs::path& base)
{
    std::vector<fs::path> current { base };
    std::size_t items = 0;
    std::size_t serial = 0;
    auto addFiles = [&](const fs::path& folder, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i, ++serial) {
            // Hidden files and names of mixed case and length, as in a real folder; sizes spread up to 200 kB.
            const std::string name = (i % 17 == 0 ? "." : "") + std::string(i % 3 ? "Document " : "photo_")
                + std::to_string(serial) + (i % 2 ? ".txt" : ".JPG");
            createFile(folder / name, off_t((serial * 7919) % 200'000));
        }
        items += count;
    };
    for (int level = 0; level < levels; ++level) {
        std::vector<fs::path> next;
        for (const fs::path& folder : current) {
            for (int i = 0; i < foldersPerFolder; ++i) {
                next.push_back(folder / ("Folder " + std::to_string(i)));
                fs::create_directory(next.back());
            }
            items += foldersPerFolder;
            addFiles(folder, filesPerFolder);
        }
        current = std::move(next);
    }
    const std::size_t left = targetItems > items ? targetItems - items : 0;
    for (std::size_t i = 0; i < current.size(); ++i)
        addFiles(current[i], left / current.size() + (i < left % current.size() ? 1 : 0));
    return items;
}

// User plus system time used so far by this process (RUSAGE_SELF) or by its waited-for children.
double processorSeconds(int who)
{
    struct rusage usage {};
    ::getrusage(who, &usage);
    auto toSeconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

struct Timing {
    double elapsed;
    double processor;
};

template<typename Body>
Timing measure(int who, Body body)
{
    const double processorBefore = processorSeconds(who);
    const auto start = Clock::now();
    body();
    return { std::chrono::duration<double>(Clock::now() - start).count(), processorSeconds(who) - processorBefore };
}

double median(const std::vector<Timing>& timings, double Timing::*field)
{
    std::vector<double> values;
    for (const Timing& timing : timings)
        values.push_back(timing.*field);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Our walk: every item with its attributes. Returns the item count; the checksum keeps the work from being skipped.
std::size_t walkOurs(const std::string& folder, std::uint64_t& checksum)
{
    const auto items = platform::FileManager::subpathsAtPath(folder);
    for (const auto& item : items) {
        if (item.attributes)
            checksum += item.attributes->fileNumber + item.attributes->size
                + std::uint64_t(item.attributes->modificationDate) + std::uint64_t(item.attributes->type);
    }
    return items.size();
}

void runFind(const std::string& folder)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::string format = "%i %s %T@ %y\\n";
    std::vector<char*> arguments { const_cast<char*>("find"), const_cast<char*>(folder.c_str()),
        const_cast<char*>("-printf"), format.data(), nullptr };
    pid_t child;
    if (posix_spawnp(&child, "find", &actions, nullptr, arguments.data(), environ) != 0) {
        std::perror("find");
        std::exit(1);
    }
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "find failed\n");
        std::exit(1);
    }
}

}

int main(int argc, char** argv)
{
    const bool temporary = argc < 2;
    fs::path folder;
    if (temporary) {
        std::string pattern = (fs::temp_directory_path() / "korbanhold-walk-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) {
            std::perror("mkdtemp");
            return 1;
        }
        folder = pattern;
    } else {
        folder = argv[1];
        fs::create_directories(folder);
    }
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 7;

    if (fs::is_empty(folder)) {
        const auto start = Clock::now();
        const std::size_t generated = generate(folder);
        std::printf("generated %zu items in %s (%.1f s)\n", generated, folder.c_str(),
            std::chrono::duration<double>(Clock::now() - start).count());
    }

    std::uint64_t checksum = 0;
    const std::size_t items = walkOurs(folder, checksum);
    runFind(folder);
    std::vector<Timing> ours;
    std::vector<Timing> find;
    for (int run = 0; run < runs; ++run) {
        ours.push_back(measure(RUSAGE_SELF, [&] { walkOurs(folder, checksum); }));
        find.push_back(measure(RUSAGE_CHILDREN, [&] { runFind(folder); }));
        std::printf("run %d: FileManager %.1f ms (processor %.1f ms), find %.1f ms (processor %.1f ms)\n", run + 1,
            ours.back().elapsed * 1e3, ours.back().processor * 1e3, find.back().elapsed * 1e3,
            find.back().processor * 1e3);
    }
    const double oursElapsed = median(ours, &Timing::elapsed);
    const double findElapsed = median(find, &Timing::elapsed);
    const double oursProcessor = median(ours, &Timing::processor);
    const double findProcessor = median(find, &Timing::processor);
    std::printf("items: %zu (checksum %llx)\n", items, static_cast<unsigned long long>(checksum));
    std::printf("median of %d runs, elapsed: FileManager::subpathsAtPath %.1f ms, "
                "find -printf '%%i %%s %%T@ %%y\\n' %.1f ms, ratio %.2f\n",
        runs, oursElapsed * 1e3, findElapsed * 1e3, oursElapsed / findElapsed);
    std::printf("median of %d runs, processor: FileManager::subpathsAtPath %.1f ms, find %.1f ms, ratio %.2f\n", runs,
        oursProcessor * 1e3, findProcessor * 1e3, oursProcessor / findProcessor);

    if (temporary)
        fs::remove_all(folder);
    return 0;
}
