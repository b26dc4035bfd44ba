// Measures the import of the service's domain from the JSON file it was kept in before its database: a file holding
// a table of RECORDS change records (default 360,000, about 115 MB) and no database yet.
//
//   bench_legacy_import [RECORDS]        (build with the release preset for figures worth quoting)
//
// Prints the wall time and peak resident memory of each, in a child process of its own: the import as the service
// runs it (the file read a piece at a time, each record written as its row as it is read); the file parsed whole and
// the domain stored from its values, as the import did before; and `cp` of the file, for scale. On a shared machine
// the processor time is the steadier figure.

#include "BenchSupport.h"

#include "platform/PreferenceDatabase.h"
#include "platform/PreferenceFiles.h"
#include "platform/PreferenceJson.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

void writeFormerFile(const fs::path& path, std::size_t records)
{
    std::ofstream file(path, std::ios::binary);
    file << "{\"FileWatchedDataKey\":[";
    for (std::size_t i = 0; i < records; ++i) {
        file << (i ? "," : "") << "{\"BaseSystemFileIDKey\":\"" << 1'000'000 + i
             << "\",\"BaseSystemFilePathKey\":\"/home/someone/Korbanhold/folder" << i % 1000
             << "/a-file-with-a-longer-name-" << i
             << ".txt\",\"changeTypeKey\":\"Created\",\"oldPathKey\":\"\",\"isFilekey\":\"1\",\"fileSizeKey\":\"12\","
                "\"filemodifiedDateKey\":\"2026-11-24 10:00:00 +0000\",\"FileIDKey\":\""
             << 5'000'000 + i << "\",\"removeKey\":\"0\",\"computerIDKey\":\"1\"}";
    }
    file << "],\"FileWatcherStatusKey\":\"0\"}";
}

// Reads nothing: the import is what is measured.
class NoElements : public platform::ListElementReader {
public:
    void expect(std::size_t) override { }
    void storedText(std::string_view) override { }
    void value(const platform::Value&) override { }
};

void printChild(const char* what, const std::function<void()>& body)
{
    const auto start = bench::Clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        ::_exit(0);
    }
    int status = 0;
    rusage usage {};
    ::wait4(child, &status, 0, &usage);
    const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    std::printf("%-30s %8.2f s wall %8.2f s processor  peak resident %6ld MB%s\n", what,
        bench::secondsSince(start), cpu, usage.ru_maxrss / 1000,
        WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : "  (failed)");
}

}

int main(int argc, char** argv)
{
    const std::size_t records = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 360'000;
    char folderName[] = "/tmp/korbanhold-bench-XXXXXX";
    const fs::path folder = ::mkdtemp(folderName);
    const fs::path formerFile = folder / "former.json";
    writeFormerFile(formerFile, records);
    std::printf("%zu records, a file of %.1f MB\n", records, static_cast<double>(fs::file_size(formerFile)) / 1e6);

    fs::copy_file(formerFile, folder / "Ulmaridon.SyncFilesXpcService.json");
    printChild("import, a piece at a time", [&] {
        platform::PreferenceDatabase database(
            folder / "Ulmaridon.SyncFilesXpcService.sqlite", folder / "Ulmaridon.SyncFilesXpcService.json");
        NoElements reader;
        database.readList("NoSuchKey", 0, reader);
    });
    printChild("parse whole, then store", [&] {
        platform::PreferenceDatabase database(folder / "whole.sqlite", folder / "none.json");
        database.write(platform::readPreferenceJson(platform::readWholeFile(formerFile).bytes));
    });
    printChild("cp of the file", [&] { bench::shell("cp " + formerFile.string() + " " + (folder / "copy").string()); });
    fs::remove_all(folder);
}
