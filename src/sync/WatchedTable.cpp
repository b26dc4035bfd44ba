#include "sync/WatchedTable.h"

#include "sync/ChangeRecords.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"

#include "platform/Log.h"

#include <algorithm>

namespace engine {

using platform::Value;

std::shared_ptr<const StoredTable> StoredTable::normalise(
    Value records, const Value* computerId, bool leaveOutFaulty, const StoredTable* previous)
{
    auto table = std::make_shared<StoredTable>();
    table->records = std::move(records);
    if (computerId)
        table->computerId = *computerId;
    const auto& elements = table->records.elements();
    table->entries.reserve(elements.size());
    // The entry `previous` made of a record that shares its storage with `record` (and so has its contents). The
    // store keeps the order of what it kept, so the entry is looked for after the last one found, a few places on
    // at most (records inserted or removed between); a record not found there is normalised afresh.
    constexpr std::size_t lookAhead = 16;
    std::size_t nextPrevious = 0;
    const auto normalisedBefore = [&](const Value& record) -> const TableEntry* {
        if (!previous || !record.isDictionary())
            return nullptr;
        const auto& entries = previous->entries;
        for (std::size_t at = nextPrevious; at < entries.size() && at < nextPrevious + lookAhead; ++at) {
            if (&entries[at].record->entries() == &record.entries()) {
                nextPrevious = at + 1;
                return &entries[at];
            }
        }
        return nullptr;
    };
    // Whether an entry is stored as seen depends on the computer identifier too.
    const bool sameComputerId = previous && previous->computerId.has_value() == (computerId != nullptr)
        && (!computerId || (computerId->isString() && previous->computerId->isString()
            && computerId->string() == previous->computerId->string()));
    for (std::size_t row = 0; row < elements.size(); ++row) {
        const Value& record = elements[row];
        if (const TableEntry* before = normalisedBefore(record)) {
            TableEntry entry = *before;
            entry.record = &record;
            entry.row = static_cast<std::uint32_t>(row);
            if (!sameComputerId)
                entry.storedAsSeen = isSeenRecord(record, computerId);
            table->entries.push_back(entry);
            continue;
        }
        auto normaliseOne = [&] {
            TableEntry entry = TableEntry::of(&record, EntryForm::Unseen);
            EntryView view(entry, computerId);
            // The file ID is compared with the empty string before it is tested for the null object, so anything
            // but a string (the null object too) raises here; a missing one becomes the empty string.
            if (const Value* fileID = view.storedField(RecordKey::FileID); fileID && !fileID->isString())
                raiseUnrecognizedSelector(*fileID, "isEqualToString:");
            requireNormalisedFields(view);
            entry.row = static_cast<std::uint32_t>(row);
            entry.storedAsSeen = isSeenRecord(record, computerId);
            table->entries.push_back(entry);
        };
        if (!leaveOutFaulty) {
            normaliseOne();
            continue;
        }
        platform::guard(normaliseOne, [&](const platform::Exception& exception) {
            platform::log("The stored record %@ is left out of the table: %@", record, exception);
        });
    }
    std::size_t length = 0;
    for (const auto& entry : table->entries)
        length += entry.path.size();
    table->paths.reserve(length);
    for (auto& entry : table->entries) {
        if (entry.path.data()) {
            std::size_t start = table->paths.size();
            table->paths += entry.path;
            entry.path = std::string_view(table->paths).substr(start, entry.path.size());
        }
    }
    return table;
}

bool StoredTable::isNormalisationOf(const Value& storedRecords, const Value* otherComputerId) const
{
    // The store hands out lists that share their storage with its cache; a list this table keeps cannot be
    // changed (changing a shared list copies it first), so the same storage means the same records.
    bool sameList = storedRecords.isArray() && &storedRecords.elements() == &records.elements();
    bool sameComputerId = (otherComputerId != nullptr) == computerId.has_value()
        && (!otherComputerId || *otherComputerId == *computerId);
    return sameList && sameComputerId;
}

WatchedTable::WatchedTable()
    : WatchedTable(ofRecords(Value::array()))
{
}

WatchedTable::WatchedTable(std::shared_ptr<const StoredTable> stored)
{
    reload(std::move(stored));
}

void WatchedTable::reload(std::shared_ptr<const StoredTable> stored)
{
    m_entries.assign(stored->entries.begin(), stored->entries.end());
    m_stored = std::move(stored);
    m_readList = m_stored->records;
    m_built.clear();
    m_positions.reset(m_entries.size());
    m_pathIndexBuilt = false;
    m_slotsByPath.clear();
}

WatchedTable WatchedTable::ofRecords(Value records)
{
    auto stored = std::make_shared<StoredTable>();
    stored->records = std::move(records);
    const auto& elements = stored->records.elements();
    stored->entries.reserve(elements.size());
    for (std::size_t row = 0; row < elements.size(); ++row) {
        TableEntry entry = TableEntry::of(&elements[row], EntryForm::Built);
        entry.row = static_cast<std::uint32_t>(row);
        entry.changed = false;
        stored->entries.push_back(entry);
    }
    return WatchedTable(std::move(stored));
}

const Value* WatchedTable::keep(Value record)
{
    return &m_built.emplace_back(std::move(record));
}

std::size_t WatchedTable::checkedSlot(std::size_t position) const
{
    if (position >= count())
        raiseIndexBeyondBounds(position, count());
    return m_positions.slotAt(position);
}

EntryView WatchedTable::viewOfSlot(std::size_t slot) const
{
    const auto& computerId = m_stored->computerId;
    return EntryView(m_entries[slot], computerId ? &*computerId : nullptr);
}

EntryView WatchedTable::at(std::size_t position) const
{
    return viewOfSlot(checkedSlot(position));
}

void WatchedTable::markSeen(std::size_t position, const Value* computerId)
{
    std::size_t slot = checkedSlot(position);
    TableEntry& entry = m_entries[slot];
    const auto& tableComputerId = m_stored->computerId;
    bool sameComputerId = (computerId != nullptr) == tableComputerId.has_value()
        && (!computerId || *computerId == *tableComputerId);
    if ((entry.form == EntryForm::Unseen || entry.form == EntryForm::Seen) && sameComputerId) {
        if (entry.form == EntryForm::Unseen)
            entry.changed = !entry.storedAsSeen;
        entry.form = EntryForm::Seen;
        return;
    }
    setRecord(slot, seenRecord(viewOfSlot(slot), computerId));
}

void WatchedTable::replace(std::size_t position, Value record)
{
    setRecord(checkedSlot(position), std::move(record));
}

void WatchedTable::setFileID(std::size_t position, const std::optional<Value>& fileID)
{
    std::size_t slot = checkedSlot(position);
    Value record = viewOfSlot(slot).record();
    record.setObject(fileID, keys::fileID);
    setRecord(slot, std::move(record));
}

void WatchedTable::setRecord(std::size_t slot, Value record)
{
    TableEntry& entry = m_entries[slot];
    std::uint32_t row = entry.row;
    unindexPath(slot);
    // A record the table made for this entry alone is replaced where it lies: a table whose every entry changes (the
    // server's identifiers after a first sync) does not keep every former record besides.
    const Value* kept = nullptr;
    if (entry.ownsRecord)
        kept = &(*const_cast<Value*>(entry.record) = std::move(record));
    else
        kept = keep(std::move(record));
    entry = TableEntry::of(kept, EntryForm::Built);
    entry.row = row;
    entry.ownsRecord = true;
    indexPath(slot);
}

void WatchedTable::append(Value record)
{
    m_entries.push_back(TableEntry::of(keep(std::move(record)), EntryForm::Built));
    m_entries.back().ownsRecord = true;
    m_positions.append();
    indexPath(m_entries.size() - 1);
}

void WatchedTable::remove(std::size_t position)
{
    std::size_t slot = checkedSlot(position);
    unindexPath(slot);
    m_positions.remove(slot);
    m_entries[slot] = TableEntry {};
    m_entries[slot].form = EntryForm::Removed;
}

std::string_view WatchedTable::pathOfSlot(std::size_t slot) const
{
    return m_entries[slot].path;
}

void WatchedTable::indexPath(std::size_t slot)
{
    if (!m_pathIndexBuilt)
        return;
    if (std::string_view path = pathOfSlot(slot); path.data()) {
        Slots& slots = m_slotsByPath[std::string(path)];
        slots.insert(std::upper_bound(slots.begin(), slots.end(), slot), static_cast<std::uint32_t>(slot));
    }
}

void WatchedTable::unindexPath(std::size_t slot)
{
    if (!m_pathIndexBuilt)
        return;
    if (std::string_view path = pathOfSlot(slot); path.data()) {
        auto found = m_slotsByPath.find(path);
        if (found == m_slotsByPath.end())
            return;
        Slots& slots = found->second;
        auto at = std::lower_bound(slots.begin(), slots.end(), slot);
        if (at != slots.end() && *at == slot)
            slots.erase(at);
    }
}

void WatchedTable::buildPathIndex()
{
    m_pathIndexBuilt = true;
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        if (m_entries[slot].form == EntryForm::Removed)
            continue;
        if (std::string_view path = pathOfSlot(slot); path.data())
            m_slotsByPath[std::string(path)].push_back(static_cast<std::uint32_t>(slot));
    }
}

std::size_t WatchedTable::positionOfSlot(std::size_t slot) const
{
    if (slot >= m_entries.size() || m_entries[slot].form == EntryForm::Removed)
        raiseIndexBeyondBounds(slot, count());
    return m_positions.positionOf(slot);
}

std::optional<std::size_t> WatchedTable::firstPositionWithPath(std::string_view path)
{
    if (!m_pathIndexBuilt)
        buildPathIndex();
    auto found = m_slotsByPath.find(path);
    if (found == m_slotsByPath.end() || found->second.empty())
        return std::nullopt;
    return m_positions.positionOf(found->second.front());
}

void WatchedTable::removeMarkedEntries(const std::function<void(const EntryView&)>& report)
{
    std::vector<TableEntry> kept;
    bool anyMarked = false;
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        if (m_entries[slot].form == EntryForm::Removed)
            continue;
        EntryView view = viewOfSlot(slot);
        if (view.isMarkedForRemoval()) {
            report(view);
            anyMarked = true;
        }
    }
    if (!anyMarked)
        return;
    // Every entry still marked goes: removing each reported entry and every entry equal to it comes to the same,
    // since an entry equal to a marked one carries the mark too.
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        if (m_entries[slot].form != EntryForm::Removed && !viewOfSlot(slot).isMarkedForRemoval())
            kept.push_back(m_entries[slot]);
    }
    m_entries = std::move(kept);
    m_positions.reset(m_entries.size());
    m_slotsByPath.clear();
    m_pathIndexBuilt = false;
}

std::vector<platform::ListRow> WatchedTable::rows() const
{
    std::vector<platform::ListRow> rows;
    rows.reserve(count());
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        const TableEntry& entry = m_entries[slot];
        if (entry.form == EntryForm::Removed)
            continue;
        platform::ListRow& row = rows.emplace_back();
        if (entry.row != TableEntry::noRow)
            row.readIndex = entry.row;
        if (entry.changed || entry.row == TableEntry::noRow)
            row.record = viewOfSlot(slot).record();
    }
    return rows;
}

void WatchedTable::rowsStored(Value storedList)
{
    m_readList = std::move(storedList);
    std::uint32_t row = 0;
    for (TableEntry& entry : m_entries) {
        if (entry.form == EntryForm::Removed)
            continue;
        entry.row = row++;
        entry.changed = false;
    }
}

void WatchedTable::forEachEntry(const std::function<void(std::size_t, const EntryView&)>& visit) const
{
    std::size_t position = 0;
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        if (m_entries[slot].form != EntryForm::Removed)
            visit(position++, viewOfSlot(slot));
    }
}

Value WatchedTable::records() const
{
    platform::Array records;
    records.reserve(count());
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        if (m_entries[slot].form != EntryForm::Removed)
            records.push_back(viewOfSlot(slot).record());
    }
    return Value::arrayOf(std::move(records));
}

}
