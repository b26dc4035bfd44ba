#pragma once

// One entry of the watched-files table as the pass keeps it.
//
// A table of a hundred thousand entries is read from the store on every pass, and nearly every entry only gets
// "removeKey" = "0" when its item is found unchanged. Building a new dictionary for each entry (once to normalise it,
// once to mark it seen) would cost more than the folder walk, so an entry names the stored record it was read from
// (StoredRecords.h keeps them compactly) and has a form that says which record it stands for:
// - Unseen: the normalised record of the stored one, "removeKey" = "1";
// - Seen: that record refreshed by the rename process, "removeKey" = "0";
// - Built: a record a process has built, or one given whole through the table property (BuiltRecord);
// - Removed: the slot of an entry that a move took out of the table.
// The records are built from the form only when the table is handed out (TableEntry.cpp), with the key order of
// the operation that makes them.

#include "platform/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace engine {

enum class EntryForm : std::uint8_t { Unseen, Seen, Built, Removed };

// The keys of a record. The first eight are those normalisation reads from a stored record, in the order their
// positions are kept.
enum class RecordKey : std::uint8_t {
    BaseSystemFileID,
    BaseSystemFilePath,
    ChangeType,
    OldPath,
    IsFile,
    FileSize,
    ModifiedDate,
    FileID,
    Remove,
    ComputerID,
    Other,
};
inline constexpr std::size_t storedFieldCount = 8;

// Which record key `key` is, with one or two comparisons (the pass asks this for every field it reads).
RecordKey recordKeyOf(std::string_view key);
std::string_view nameOf(RecordKey key);

class StoredTable;

struct TableEntry {
    // Read once from the record for the comparisons the rename process makes for every item: the file number when
    // "BaseSystemFileIDKey" is the walk's text of one, the kilobytes when "fileSizeKey" is a "%d" text.
    std::uint64_t fileNumber = 0;
    // Unseen and Seen: the stored record the entry stands for. Every form: the element of the list the table was
    // read from or last stored as that the entry stands for (WatchedTable::rows()), or noRow.
    std::uint32_t row = noRow;
    // Built: the record's index among the records the table keeps.
    std::uint32_t built = noRow;
    std::int32_t kilobytes = 0;
    EntryForm form = EntryForm::Built;
    bool hasFileNumber = false;
    bool hasKilobytes = false;
    // Set by the normalisation of a stored record that already holds, key for key, the record the rename process
    // makes of it (in any key order): once seen, such an entry stands for its stored record unchanged.
    bool storedAsSeen = false;
    // Whether the record this entry stands for differs from element `row` of the list the table was read from or
    // last stored as.
    bool changed = true;
    static constexpr std::uint32_t noRow = 0xFFFFFFFF;
};

// The record of a Built entry, and the server's identifier given to it since, if any. The identifier is kept beside
// the record rather than in a copy of it: the records a pass builds are shared with the change list being
// reported, and after a first sync every one of them gets an identifier, so copies would double the table.
struct BuiltRecord {
    platform::Value record;
    std::optional<platform::Value> fileID;

    // The record with the identifier set as setting "FileIDKey" sets it.
    platform::Value whole() const;
};

// Reads the fields of one entry as the record it stands for: the cleaned "FileIDKey", the "removeKey" of its form and
// the table's "computerIDKey" for normalised entries, the stored values otherwise.
class EntryView {
public:
    // `stored` holds the records of Unseen and Seen entries, `built` is the record of a Built one.
    EntryView(const TableEntry& entry, const StoredTable* stored, const BuiltRecord* built)
        : m_entry(&entry)
        , m_stored(stored)
        , m_built(built)
    {
    }

    // The value of `key`, or absent when the record has none.
    std::optional<platform::Value> find(std::string_view key) const { return find(recordKeyOf(key), key); }
    // The same for a key already known; `name` is needed only for RecordKey::Other.
    std::optional<platform::Value> find(RecordKey key, std::string_view name = {}) const;
    // The text of `key` without making a value: absent when the record has no such key or it is not a string.
    std::optional<std::string_view> text(RecordKey key) const;
    EntryForm form() const { return m_entry->form; }
    // The facts of TableEntry: equal to the walk's file number text, to a "%d" size text.
    std::optional<std::uint64_t> fileNumber() const;
    std::optional<std::int32_t> kilobytes() const;
    // The path text; a null data pointer when "BaseSystemFilePathKey" is missing or not a string.
    std::string_view pathText() const;
    // True when the record's "removeKey" is the string "1": the entry was not found by this pass.
    bool isMarkedForRemoval() const;
    // The whole record, with the key order of the operation that made it.
    platform::Value record() const;

    // One of the first eight keys as the stored record holds it, before normalisation (Unseen and Seen entries).
    std::optional<platform::Value> storedField(RecordKey field) const;

private:
    // Where a field is: a text in the stored records, or a value (null: none).
    struct Field {
        const platform::Value* value = nullptr;
        std::optional<std::string_view> text;
    };
    Field field(RecordKey key, std::string_view name) const;
    Field storedFieldOf(RecordKey key) const;

    const TableEntry* m_entry;
    const StoredTable* m_stored;
    const BuiltRecord* m_built;
};

// Reads the facts of TableEntry from the entry's record.
void readEntryFacts(TableEntry& entry, const EntryView& view);

// True when `record` (a dictionary) is exactly the record the rename process makes of it with `computerId`: the
// stored fields in their order, then "computerIDKey" = the computer identifier text and "removeKey" = "0".
bool isSeenRecord(const platform::Value& record, const platform::Value* computerId);

}
