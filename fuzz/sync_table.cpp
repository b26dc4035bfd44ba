// The stored watched-files table is outside input: another process may have written anything under
// "FileWatchedDataKey". Whatever it holds, reading its records into their compact form, normalising them and running
// the table operations of a pass over them must end in records or in a platform::Exception (the pass's guard), and
// never leave a marked entry after the deletion. The compact form of a stored text must be exactly the value the
// JSON reader makes of it.

#include "platform/Json.h"
#include "platform/PreferenceJson.h"
#include "sync/ChangeRecords.h"
#include "sync/RecordKeys.h"
#include "sync/RefusedChanges.h"
#include "sync/StoredTableIndex.h"
#include "sync/WatchedTable.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using platform::Value;

namespace {

// The table as stored is its records, none of them marked: what the next pass starts from is what was stored.
void expectStoredAsTheRecords(const engine::WatchedTable& live)
{
    Value records = live.records();
    if (records.count() != live.count() || live.storedTable()->records.count() != live.count())
        std::abort();
    for (std::size_t position = 0; position < live.count(); ++position) {
        const Value* mark = records.at(position).find(engine::keys::remove);
        if (mark && *mark == Value("1"))
            std::abort();
        if (live.storedTable()->records.record(position).description() != records.at(position).description())
            std::abort();
    }
}

void runTableOperations(engine::StoredRecords stored)
{
    const Value computerId("C-1");
    auto table = engine::StoredTable::normalise(std::move(stored), &computerId, 1);
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
    // The first records as the refused changes of a report, each undone on the table as its change type says.
    Value refused = Value::array();
    for (std::size_t position = 0; position < std::min<std::size_t>(live.count(), 4); ++position)
        refused.append(live.at(position).record());
    engine::leaveRefusedChangesUndone(live, refused, {});
    live.removeMarkedEntries([&](const engine::EntryView& entry) { engine::deletedRecord(entry, &computerId); });
    live.rowsStored(2);
    expectStoredAsTheRecords(live);
    // The next pass over the table just stored, with an edit: stored again, it is updated where it lies.
    live.reload(live.storedTable());
    for (std::size_t position = 0; position < live.count(); ++position)
        live.markSeen(position, &computerId);
    if (live.count() > 0) {
        Value edited = live.at(live.count() / 2).record();
        edited.setObject(Value("8"), engine::keys::fileSize);
        live.replace(live.count() / 2, edited);
        live.append(engine::movedAwayRecord(live.at(0), "0", &computerId));
    }
    live.rowsStored(3);
    expectStoredAsTheRecords(live);
}

// Every line of `text` as a stored record's text: read into its compact form, it must be exactly what the JSON
// reader makes of it, key order included.
void readStoredTexts(std::string_view text)
{
    engine::StoredRecords records;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        std::optional<Value> parsed;
        try {
            parsed = platform::readPreferenceJson(line, { .allowFragments = true });
        } catch (const platform::JsonError&) {
        }
        try {
            records.appendText(line);
        } catch (const platform::JsonError&) {
            if (parsed)
                std::abort();
            continue;
        }
        if (!parsed)
            std::abort();
        const Value record = records.record(records.count() - 1);
        const bool sameKeys = !record.isDictionary() || record.keys() == parsed->keys();
        if (!sameKeys || record.description() != parsed->description() || !(record == *parsed))
            std::abort();
    }
    platform::guard([&] { runTableOperations(std::move(records)); }, [](const platform::Exception&) { });
}

}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    readStoredTexts(text);
    Value stored;
    try {
        stored = platform::readJson(text, { .allowFragments = true });
    } catch (const platform::Exception&) {
        return 0;
    }
    if (!stored.isArray())
        return 0;
    engine::StoredRecords records;
    for (const Value& element : stored.elements())
        records.append(element);
    platform::guard([&] { runTableOperations(std::move(records)); }, [](const platform::Exception&) { });
    return 0;
}
