#pragma once

// The watched-files table of one pass (`userDefaultsArray`), kept so that every operation of the pass costs
// O(log n) or less while the records, their order and the positions seen by the processes stay those of the plain
// list the processes are written against:
// - entries live in fixed slots; a move empties its slot and LivePositions maps list positions to slots, so
//   "entry at position j" still means the j-th live entry after earlier removals;
// - "first entry with path P" is answered by an index from path to the ordered live slots holding it, built the
//   first time it is asked (a pass in which no file was replaced never pays for it);
// - entries stay in their compact form (TableEntry.h) and become records only when the table is handed out;
// - each entry knows the element of the stored list it stands for and whether its record differs from it, so that
//   storing the table (rows()) builds and writes only the records that changed.

#include "platform/PreferenceDatabase.h"
#include "platform/Value.h"
#include "sync/LivePositions.h"
#include "sync/TableEntry.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace engine {

// The table as a pass read it from the store, normalised. It never changes, so passes that read the same stored
// list (the store hands out the same list while its file is unchanged) share it instead of normalising again.
struct StoredTable {
    // The records as stored; the entries point into it.
    platform::Value records;
    // The "computerIDKey" of the normalised records.
    std::optional<platform::Value> computerId;
    std::vector<TableEntry> entries;
    // A copy of the entries' paths, one after the other in table order, that the entries' path views point into.
    // A pass compares every item's path with its entry's, and the copy lets it read them in sequence instead of
    // from a hundred thousand places in the stored list.
    std::string paths;

    // Each record of `records` normalised as the pass does it, in order: a record that is not a dictionary, lacks a
    // key normalisation copies, or whose "FileIDKey" is not a string (the null object included) raises, as does an
    // absent `computerId` (at the first record). `records` must be an array. With `leaveOutFaulty` such records
    // are logged and left out instead (a guarded pass after repeated failures). A record that shares its storage
    // with one `previous` normalised (the store hands back the records it kept when it stores a table by rows) is
    // not normalised again: its entry is taken over.
    static std::shared_ptr<const StoredTable> normalise(platform::Value records, const platform::Value* computerId,
        bool leaveOutFaulty = false, const StoredTable* previous = nullptr);
    // True when this is the normalisation of this very list (not only an equal one) with this computer identifier.
    bool isNormalisationOf(const platform::Value& storedRecords, const platform::Value* computerId) const;
};

class WatchedTable {
public:
    WatchedTable();
    explicit WatchedTable(std::shared_ptr<const StoredTable> stored);
    // Starts again from `stored`, keeping the storage of the entries (a million entries' worth is tens of MB that
    // would otherwise be allocated and touched afresh by every pass).
    void reload(std::shared_ptr<const StoredTable> stored);
    // The records as they are (all Built): the table before normalisation, or a table given through the property.
    static WatchedTable ofRecords(platform::Value records);

    std::size_t count() const { return m_positions.count(); }
    // The entry at `position`; raises NSRangeException at or beyond count().
    EntryView at(std::size_t position) const;

    // Replaces the entry at `position` by the refreshed record the rename process makes of it.
    void markSeen(std::size_t position, const platform::Value* computerId);
    void replace(std::size_t position, platform::Value record);
    void append(platform::Value record);
    void remove(std::size_t position);
    // Sets "FileIDKey" of the entry at `position` to `fileID`; an absent one raises as inserting it would.
    void setFileID(std::size_t position, const std::optional<platform::Value>& fileID);

    // The list the entries' rows refer to: the stored list the table was read from, or the one it was last stored
    // as (rowsStored).
    const platform::Value& readList() const { return m_readList; }
    // The table against readList(), entry by entry: an unchanged entry by its row alone, every other one with its
    // record. Builds no record for an unchanged entry.
    std::vector<platform::ListRow> rows() const;
    // The table was stored as `storedList`: from now on each entry stands, unchanged, for that list's element at
    // its position.
    void rowsStored(platform::Value storedList);
    // Calls `visit` with the position and view of every entry, in table order.
    void forEachEntry(const std::function<void(std::size_t, const EntryView&)>& visit) const;

    // The position of the entry in slot `slot` (the table's position of the entry when the pass read it); raises
    // NSRangeException when a move has taken that entry out.
    std::size_t positionOfSlot(std::size_t slot) const;
    // The position of the first entry whose "BaseSystemFilePathKey" is the string `path`.
    std::optional<std::size_t> firstPositionWithPath(std::string_view path);

    // Hands every entry whose "removeKey" is "1" to `report`, in table order, then removes them all. If `report`
    // raises, the table is left as it was.
    void removeMarkedEntries(const std::function<void(const EntryView&)>& report);

    // The table as a list of records.
    platform::Value records() const;

private:
    using Slots = std::vector<std::uint32_t>;
    struct PathHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view path) const { return std::hash<std::string_view> {}(path); }
    };

    std::size_t checkedSlot(std::size_t position) const;
    EntryView viewOfSlot(std::size_t slot) const;
    std::string_view pathOfSlot(std::size_t slot) const;
    // A record of this pass, kept where the entries can point to it.
    const platform::Value* keep(platform::Value record);
    // Slot `slot` stands for `record` from now on, in the place of the stored element it stood for.
    void setRecord(std::size_t slot, platform::Value record);
    void unindexPath(std::size_t slot);
    void indexPath(std::size_t slot);
    void buildPathIndex();

    std::shared_ptr<const StoredTable> m_stored;
    platform::Value m_readList;
    std::deque<platform::Value> m_built;
    std::vector<TableEntry> m_entries;
    LivePositions m_positions;
    bool m_pathIndexBuilt = false;
    boost::unordered_flat_map<std::string, Slots, PathHash, std::equal_to<>> m_slotsByPath;
};

}
