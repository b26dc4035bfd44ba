#pragma once

// One entry of the watched-files table as the pass keeps it.
//
// A table of a hundred thousand entries is read from the store on every pass, and nearly every entry only gets
// "removeKey" = "0" when its item is found unchanged. Building a new dictionary for each entry (once to normalise it,
// once to mark it seen) would cost more than the folder walk, so an entry points to the stored record as it was read
// (the table keeps the stored list alive) and has a form that says which record it stands for:
// - Unseen: the normalised record of the stored one, "removeKey" = "1";
// - Seen: that record refreshed by the rename process, "removeKey" = "0";
// - Built: a record a process has built, or one given whole through the table property;
// - Removed: the slot of an entry that a move took out of the table.
// The records are built from the form only when the table is handed out (TableEntry.cpp), with the key order of
// the operation that makes them.

#include "platform/Value.h"

#include <array>
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

struct TableEntry {
    // The stored record (Unseen, Seen) or the record itself (Built); null for Removed.
    const platform::Value* record = nullptr;
    // Read once from the record for the comparisons the rename process makes for every item: the path when it is
    // a string (a view with a null data pointer when it is not), the file number when "BaseSystemFileIDKey" is the
    // walk's text of one, the kilobytes when "fileSizeKey" is a "%d" text.
    std::string_view path;
    std::uint64_t fileNumber = 0;
    std::int32_t kilobytes = 0;
    bool hasFileNumber = false;
    bool hasKilobytes = false;
    EntryForm form = EntryForm::Built;
    // Set by the normalisation of a stored record that is already, key for key and in order, the record the rename
    // process makes of it: once seen, such an entry stands for its stored record unchanged.
    bool storedAsSeen = false;
    // Whether the record this entry stands for differs from element `row` of the list the table was read from or
    // last stored as (WatchedTable::rows()); noRow for an entry that list does not have.
    bool changed = true;
    // Whether `record` is one the table made and keeps for this entry alone (WatchedTable::setRecord).
    bool ownsRecord = false;
    std::uint32_t row = noRow;
    static constexpr std::uint32_t noRow = 0xFFFFFFFF;
    // Unseen and Seen: where each stored field lies in the record's entries, so that reading one costs no key search.
    // noPosition for a "FileIDKey" the record lacks (the only field normalisation lets be missing), or for a record
    // too large to index, which then falls back to a search by key.
    std::array<std::uint8_t, storedFieldCount> positions {};
    static constexpr std::uint8_t noPosition = 0xFF;

    // An entry for `record` with its facts read; the positions are found for the Unseen and Seen forms.
    static TableEntry of(const platform::Value* record, EntryForm form);
};

// Reads the fields of one entry as the record it stands for: the cleaned "FileIDKey", the "removeKey" of its form and
// the table's "computerIDKey" for normalised entries, the stored values otherwise.
class EntryView {
public:
    EntryView(const TableEntry& entry, const platform::Value* computerId)
        : m_entry(&entry)
        , m_computerId(computerId)
    {
    }

    // The value of `key`, or null when the record has none.
    const platform::Value* find(std::string_view key) const { return find(recordKeyOf(key), key); }
    // The same for a key already known; `name` is needed only for RecordKey::Other.
    const platform::Value* find(RecordKey key, std::string_view name = {}) const;
    EntryForm form() const { return m_entry->form; }
    // The facts of TableEntry: equal to the walk's file number text, to a "%d" size text, the path text.
    std::optional<std::uint64_t> fileNumber() const;
    std::optional<std::int32_t> kilobytes() const;
    // The path text; a null data pointer when "BaseSystemFilePathKey" is missing or not a string.
    std::string_view pathText() const { return m_entry->path; }
    // True when the record's "removeKey" is the string "1": the entry was not found by this pass.
    bool isMarkedForRemoval() const;
    // The whole record, with the key order of the operation that made it.
    platform::Value record() const;

    // One of the first eight keys as the stored record holds it, before normalisation (Unseen and Seen entries).
    const platform::Value* storedField(RecordKey field) const;

private:

    const TableEntry* m_entry;
    const platform::Value* m_computerId;
};

// Finds where the stored fields of `record` lie; raises as normalisation must when the record is not a dictionary.
std::array<std::uint8_t, storedFieldCount> locateStoredFields(const platform::Value& record);

// True when `record` (a dictionary) is exactly the record the rename process makes of it with `computerId`: the
// stored fields in their order, then "computerIDKey" = the computer identifier text and "removeKey" = "0".
bool isSeenRecord(const platform::Value& record, const platform::Value* computerId);

}
