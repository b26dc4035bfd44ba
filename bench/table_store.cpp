// Measures what a one-file edit costs the watched-files table after its pass, step by step, on a table of N
// entries stored in the service's database: the edit itself (one entry replaced), the report's walk of the entries
// (copying the server's identifier), the rows handed to the store, the store by rows, the table made after the
// store, and the next pass's reload of that table. The table is held by a pass's index until the store, as in the
// service.
//
//   bench_table_store [ENTRIES...]        (default 100000 1000000; build with the release preset)
//
// Prints the median wall-clock time of each step over five edits.

#include "platform/UserDefaults.h"
#include "sync/RecordKeys.h"
#include "sync/StoredTableIndex.h"
#include "sync/WatchedTable.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

using platform::Value;

namespace {

std::string recordText(std::size_t i)
{
    const std::string number = std::to_string(1000000 + i);
    return "{\"BaseSystemFileIDKey\":\"" + number + "\",\"BaseSystemFilePathKey\":\"/home/someone/Korbanhold/folder-"
        + std::to_string(i % 1000) + "/file-" + number + ".txt\",\"changeTypeKey\":\"Created\",\"oldPathKey\":\"\","
        + "\"isFilekey\":\"1\",\"fileSizeKey\":\"4\",\"filemodifiedDateKey\":\"2026-11-24 10:00:00\",\"FileIDKey\":\"F-"
        + number + "\",\"computerIDKey\":\"1\",\"removeKey\":\"0\"}";
}

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void measure(std::size_t entries)
{
    const std::filesystem::path folder = std::filesystem::temp_directory_path()
        / ("bench-table-store-" + std::to_string(::getpid()) + "-" + std::to_string(entries));
    std::filesystem::create_directories(folder);
    {
        platform::UserDefaults defaults("Ulmaridon.SyncFilesXpcService", folder);
        const Value computerId("1");
        engine::StoredRecords records;
        records.reserve(entries);
        for (std::size_t i = 0; i < entries; ++i)
            records.appendText(recordText(i));
        engine::WatchedTable table(engine::StoredTable::normalise(std::move(records), &computerId, 0));
        for (std::size_t position = 0; position < table.count(); ++position)
            table.markSeen(position, &computerId);
        const auto store = [&] {
            return defaults.setListRows(engine::settings::fileWatchedData, table.storedVersion(), table.rows(),
                [&](std::size_t position) { return table.at(position).record(); });
        };
        table.rowsStored(*store().version);
        engine::StoredTableIndex index(table.storedTable());

        std::map<std::string, std::vector<double>> steps;
        const auto step = [&](const std::string& name, auto&& body) {
            const auto start = std::chrono::steady_clock::now();
            body();
            steps[name].push_back(millisecondsSince(start));
        };
        for (std::size_t edit = 0; edit < 5; ++edit) {
            const std::size_t position = (edit * 7919) % entries;
            index = engine::StoredTableIndex(table.storedTable());
            step("1 the next pass: table reloaded", [&] { table.reload(table.storedTable()); });
            for (std::size_t p = 0; p < table.count(); ++p)
                table.markSeen(p, &computerId);
            step("2 edit: one entry replaced", [&] {
                Value record = table.at(position).record();
                record.setObject(Value("8"), engine::keys::fileSize);
                table.replace(position, std::move(record));
            });
            // As the service does before storing: the pass's index lets go of the stored table.
            index = engine::StoredTableIndex();
            const std::string path(table.at(position).pathText());
            step("3 report: walk for the identifier", [&] {
                std::optional<std::size_t> found;
                table.forEachEntry([&](std::size_t p, const engine::EntryView& entry) {
                    if (!found && entry.pathText() == path)
                        found = p;
                });
                table.setFileID(*found, Value("F-new"));
            });
            std::vector<platform::ListRow> rows;
            step("4 store: rows()", [&] { rows = table.rows(); });
            std::optional<std::uint64_t> version;
            step("5 store: rows written", [&] {
                version = defaults
                              .setListRows(engine::settings::fileWatchedData, table.storedVersion(), rows,
                                  [&](std::size_t p) { return table.at(p).record(); })
                              .version;
            });
            step("6 store: rowsStored()", [&] { table.rowsStored(*version); });
        }
        std::printf("%zu entries\n", entries);
        for (auto& [name, times] : steps) {
            std::sort(times.begin(), times.end());
            std::printf("  %-36s %9.2f ms\n", name.c_str(), times[times.size() / 2]);
        }
    }
    std::filesystem::remove_all(folder);
}

}

int main(int argc, char** argv)
{
    std::vector<std::size_t> sizes;
    for (int i = 1; i < argc; ++i)
        sizes.push_back(std::strtoull(argv[i], nullptr, 10));
    if (sizes.empty())
        sizes = { 100000, 1000000 };
    for (std::size_t entries : sizes)
        measure(entries);
}
