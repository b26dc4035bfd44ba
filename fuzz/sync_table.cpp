// The stored watched-files table is outside input: another process may have written anything under
// "FileWatchedDataKey". Whatever it holds, normalising it and running the table operations of a pass over it must
// end in records or in a platform::Exception (the pass's guard), and never leave a marked entry after the deletion.

#include "platform/Json.h"
#include "sync/ChangeRecords.h"
#include "sync/RecordKeys.h"
#include "sync/StoredTableIndex.h"
#include "sync/WatchedTable.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using platform::Value;

namespace {

void runTableOperations(const Value& stored)
{
    const Value computerId("C-1");
    auto table = engine::StoredTable::normalise(stored, &computerId);
    engine::StoredTableIndex index(table);
    engine::WatchedTable live(table);
    for (std::size_t position = 0; position < live.count(); position += 2) {
        live.markSeen(position, &computerId);
        if (auto fileNumber = live.at(position).fileNumber())
            index.firstPositionOf(*fileNumber, position);
        if (std::string_view path = live.at(position).pathText(); path.data()) {
            index.containsPath(path);
            live.firstPositionWithPath(path);
        }
    }
    if (live.count() > 1) {
        live.append(engine::movedAwayRecord(live.at(1), "0", &computerId));
        live.remove(0);
    }
    live.removeMarkedEntries([&](const engine::EntryView& entry) { engine::deletedRecord(entry, &computerId); });
    Value records = live.records();
    if (records.count() != live.count())
        std::abort();
    for (const Value& record : records.elements()) {
        const Value* mark = record.find(engine::keys::remove);
        if (mark && *mark == Value("1"))
            std::abort();
    }
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    Value stored;
    try {
        stored = platform::readJson(text, { .allowFragments = true });
    } catch (const platform::Exception&) {
        return 0;
    }
    platform::guard([&] { runTableOperations(stored); }, [](const platform::Exception&) { });
    return 0;
}
