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
#include "sync/StoredRecords.h"
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
// list share it instead of reading and normalising it again.
class StoredTable {
public:
    // The records as stored; the entries name them by row.
    StoredRecords records;
    // The "computerIDKey" of the normalised records.
    std::optional<platform::Value> computerId;
    std::vector<TableEntry> entries;
    // The version of the stored list these records are (platform::StoredList), or 0 when that is not known: the
    // next pass then reads the list again.
    std::uint64_t version = 0;

    // The records normalised as the pass does it, in order: a record that is not a dictionary, lacks a key
    // normalisation copies, or whose "FileIDKey" is not a string (the null object included) raises, as does an
    // absent `computerId` (at the first record). With `leaveOutFaulty` such records are logged and left out instead
    // (a guarded pass after repeated failures).
    static std::shared_ptr<const StoredTable> normalise(StoredRecords records, const platform::Value* computerId,
        std::uint64_t version, bool leaveOutFaulty = false);
    // A table of `records`, not normalised yet.
    static std::shared_ptr<StoredTable> of(StoredRecords records, const platform::Value* computerId, std::uint64_t version);
    // Fills `entries` from `records`, raising or leaving out as normalise() does.
    void normaliseEntries(bool leaveOutFaulty);
    // The entry of record `row`, normalised; raises as normalise() does.
    TableEntry normalisedEntry(std::size_t row) const;
    // True when the table is normalised for this computer identifier.
    bool hasComputerId(const platform::Value* otherComputerId) const;
    const platform::Value* computerIdValue() const { return computerId ? &*computerId : nullptr; }
    EntryView view(std::size_t position) const { return EntryView(entries[position], this, nullptr); }
};

class WatchedTable {
public:
    WatchedTable();
    explicit WatchedTable(std::shared_ptr<const StoredTable> stored);
    // Starts again from `stored`, keeping the storage of the entries (a million entries' worth is tens of MB that
    // would otherwise be allocated and touched afresh by every pass). `madeForThisTable`: `stored` itself when the
    // pass read and normalised it for this table, which may then update it where it lies when it is stored.
    void reload(std::shared_ptr<const StoredTable> stored, std::shared_ptr<StoredTable> madeForThisTable = nullptr);
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

    // The stored table the entries' rows refer to: the one the table was read from, or the one it was last stored
    // as (rowsStored); its version is the one a store by rows is told against.
    const std::shared_ptr<const StoredTable>& storedTable() const { return m_stored; }
    // The version of the stored list the entries' rows refer to, or 0 when they refer to no stored list.
    std::uint64_t storedVersion() const { return m_storedVersion; }
    // The table against storedTable(), entry by entry: an unchanged entry by its row alone, every other one marked
    // as replaced or new. Builds no record: the store asks for the records it writes (at(p).record()).
    std::vector<platform::ListRow> rows() const;
    // The table was stored as list `version`: from now on each entry stands, unchanged, for that list's element at
    // its position, and storedTable() is that list (which the next pass takes instead of reading it again).
    void rowsStored(std::uint64_t version);
    // Calls `visit` with the position and view of every entry, in table order.
    void forEachEntry(const std::function<void(std::size_t, const EntryView&)>& visit) const;

    // The position of the entry in slot `slot` (the table's position of the entry when the pass read it); raises
    // NSRangeException when a move has taken that entry out.
    std::size_t positionOfSlot(std::size_t slot) const;
    // The position of the first entry whose "BaseSystemFilePathKey" is the string `path` (and for which `matches`
    // holds, when given).
    std::optional<std::size_t> firstPositionWithPath(
        std::string_view path, const std::function<bool(const EntryView&)>& matches = {});
    // Indexes the entries of `paths` alone, when no path is indexed yet: the lookups of a few paths known beforehand
    // (the refused changes of a report) then cost one walk of the entries and no copy of every path. Entries that
    // get one of these paths later are indexed too; a lookup of any other path indexes every path.
    void indexOnlyPaths(const std::vector<std::string_view>& paths);

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
    // Slot `slot` stands for `record` from now on, in the place of the stored element it stood for.
    void setRecord(std::size_t slot, platform::Value record);
    void unindexPath(std::size_t slot);
    void indexPath(std::size_t slot);
    void buildPathIndex();

    // Stores the table where m_stored lies (rowsStored): true when it could, that is when this table made m_stored
    // and alone holds it, and every entry still stands at its row (none taken out, new ones only at the end).
    bool storeInPlace(std::uint64_t version);
    // Makes the stored table afresh from the entries (rowsStored).
    void storeAfresh(std::uint64_t version);

    std::shared_ptr<const StoredTable> m_stored;
    // m_stored when it was made for this table (rowsStored, or a pass's read), which it may then change while it
    // alone holds it; else null.
    std::shared_ptr<StoredTable> m_madeHere;
    std::uint64_t m_storedVersion = 0;
    // The records of Built entries; a deque, so that a view of one stays valid while others are added.
    std::deque<BuiltRecord> m_built;
    std::vector<TableEntry> m_entries;
    LivePositions m_positions;
    // Which paths m_slotsByPath holds: none yet, those indexOnlyPaths() chose (its keys), or every path.
    enum class PathIndex : std::uint8_t { None, Chosen, All };
    PathIndex m_pathIndex = PathIndex::None;
    boost::unordered_flat_map<std::string, Slots, PathHash, std::equal_to<>> m_slotsByPath;
};

}
