// Measures the preference store with the watched-files table the service keeps in its standard defaults:
// 100,000 change records of 10 string keys each, written once and read back.
//
//   bench_preferences [RECORDS]        (build with the release preset for figures worth quoting)
//
// Prints the time to encode, to write the domain (encode + atomic replace with fsync), the first read by another
// store (read + parse), a read of the unchanged domain, and the size of the file.

#include "platform/PreferenceFiles.h"
#include "platform/PreferenceJson.h"
#include "platform/UserDefaults.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <time.h>

using platform::UserDefaults;
using platform::Value;

namespace {

Value changeRecord(std::size_t i)
{
    const std::string number = std::to_string(1000000 + i);
    return Value::dictionary({
        { "FileIDKey", Value(std::to_string(50000 + i)) },
        { "BaseSystemFileIDKey", Value(number) },
        { "BaseSystemFilePathKey", Value("/home/someone/Documents/Korbanhold/projects/folder" + std::to_string(i % 100)
                                         + "/file" + number + ".txt") },
        { "removeKey", Value("1") },
        { "changeTypeKey", Value("Created") },
        { "oldPathKey", Value("") },
        { "isFilekey", Value("1") },
        { "fileSizeKey", Value(std::to_string(i % 4096)) },
        { "computerIDKey", Value("4711") },
        { "filemodifiedDateKey", Value("2024-03-05 01:02:03") },
    });
}

double cpuMilliseconds()
{
    timespec now {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Wall-clock and CPU time of one run of `body`. On a shared machine the CPU time is the steadier figure.
struct Timing {
    double wall = 0;
    double cpu = 0;
};

template<typename Body>
Timing timingOf(Body body)
{
    const auto start = std::chrono::steady_clock::now();
    const auto cpuStart = cpuMilliseconds();
    body();
    return { std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count(),
        cpuMilliseconds() - cpuStart };
}

void print(const char* what, const Timing& timing, int repetitions = 1)
{
    std::printf("%-30s %10.3f ms wall %10.3f ms CPU\n", what, timing.wall / repetitions, timing.cpu / repetitions);
}

}

int main(int argc, char** argv)
{
    const std::size_t records = argc > 1 ? std::stoul(argv[1]) : 100000;
    std::string pattern = (std::filesystem::temp_directory_path() / "korbanhold-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        return 1;
    const std::filesystem::path folder = pattern;
    const char* domain = "Ulmaridon.SyncFilesXpcService";

    Value table = Value::array();
    table.reserve(records);
    for (std::size_t i = 0; i < records; ++i)
        table.append(changeRecord(i));
    const Value wholeDomain = Value::dictionary({ { "FileWatchedDataKey", table } });

    std::string text;
    const auto encode = timingOf([&] { text = platform::writePreferenceJson(wholeDomain); });
    const auto decode = timingOf([&] { platform::readPreferenceJson(text); });

    UserDefaults writer(domain, folder);
    const auto write = timingOf([&] { writer.setObject(table, "FileWatchedDataKey"); });
    const auto file = folder / (std::string(domain) + ".json");
    // The cache trusts an unchanged file once the file-system clock has moved past its last change.
    int error = 0;
    while (!platform::identityOf(file, error)->settledBefore(platform::coarseRealTime()))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));

    UserDefaults reader(domain, folder);
    std::optional<Value> read;
    const auto firstRead = timingOf([&] { read = reader.objectForKey("FileWatchedDataKey"); });
    constexpr int unchangedReads = 10000;
    const auto cachedReads = timingOf([&] {
        for (int i = 0; i < unchangedReads; ++i)
            read = reader.objectForKey("FileWatchedDataKey");
    });

    std::printf("records %zu (10 string keys each), domain file %.1f MB\n", records,
        static_cast<double>(std::filesystem::file_size(file)) / 1e6);
    print("encode to JSON text", encode);
    print("decode JSON text", decode);
    print("write (encode, replace, fsync)", write);
    print("first read (read, parse)", firstRead);
    print("read of the unchanged domain", cachedReads, unchangedReads);
    std::printf("parses by the reader           %llu\n", static_cast<unsigned long long>(reader.parseCount()));
    std::printf("table read back intact          %s\n", read && read->count() == records ? "yes" : "NO");
    std::filesystem::remove_all(folder);
    return 0;
}
