#include "sync/WatchedTable.h"

#include "sync/ChangeRecords.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"

#include "platform/Log.h"

#include <algorithm>

namespace engine {

using platform::Value;

namespace {

    bool sameComputerId(const Value* a, const std::optional<Value>& b)
    {
        return (a != nullptr) == b.has_value() && (!a || *a == *b);
    }

    // True when record `row` already holds, key for key, the record the rename process makes of it with
    // `computerId`. A regular record holds the ten keys as strings, so it does when its computer identifier is this
    // one and its "removeKey" is "0", whatever the order of its keys: a first sync's records, stored in the key order
    // of "Created" records, are then not all written again by the first report after it.
    bool isStoredAsSeen(const StoredRecords& records, std::size_t row, const Value* computerId)
    {
        if (!records.isRegular(row))
            return records.odd(row).isDictionary() && isSeenRecord(records.odd(row), computerId);
        const std::string* id = computerId ? computerId->stringIf() : nullptr;
        return id && records.text(row, RecordKey::ComputerID) == *id && records.text(row, RecordKey::Remove) == "0";
    }

}

std::shared_ptr<const StoredTable> StoredTable::normalise(
    StoredRecords records, const Value* computerId, std::uint64_t version, bool leaveOutFaulty)
{
    auto table = of(std::move(records), computerId, version);
    table->normaliseEntries(leaveOutFaulty);
    return table;
}

std::shared_ptr<StoredTable> StoredTable::of(StoredRecords records, const Value* computerId, std::uint64_t version)
{
    auto table = std::make_shared<StoredTable>();
    table->records = std::move(records);
    table->version = version;
    if (computerId)
        table->computerId = *computerId;
    return table;
}

void StoredTable::normaliseEntries(bool leaveOutFaulty)
{
    entries.clear();
    entries.reserve(records.count());
    for (std::size_t row = 0; row < records.count(); ++row) {
        if (!leaveOutFaulty) {
            entries.push_back(normalisedEntry(row));
            continue;
        }
        platform::guard([&] { entries.push_back(normalisedEntry(row)); },
            [&](const platform::Exception& exception) {
                platform::log("The stored record %@ is left out of the table: %@", records.record(row), exception);
            });
    }
}

TableEntry StoredTable::normalisedEntry(std::size_t row) const
{
    const Value* id = computerIdValue();
    TableEntry entry;
    entry.form = EntryForm::Unseen;
    entry.row = static_cast<std::uint32_t>(row);
    EntryView view(entry, this, nullptr);
    if (records.isRegular(row)) {
        // Every field is there and a string; only the computer identifier can be missing.
        if (!id)
            raiseMissingValue(keys::computerID);
    } else {
        // The file ID is compared with the empty string before it is tested for the null object, so anything but a
        // string (the null object too) raises here; a missing one becomes the empty string.
        if (auto fileID = view.storedField(RecordKey::FileID); fileID && !fileID->isString())
            raiseUnrecognizedSelector(*fileID, "isEqualToString:");
        requireNormalisedFields(view);
    }
    readEntryFacts(entry, view);
    entry.storedAsSeen = isStoredAsSeen(records, row, id);
    return entry;
}

bool StoredTable::hasComputerId(const Value* otherComputerId) const
{
    return sameComputerId(otherComputerId, computerId);
}

WatchedTable::WatchedTable()
    : WatchedTable(StoredTable::normalise(StoredRecords(), nullptr, 0))
{
}

WatchedTable::WatchedTable(std::shared_ptr<const StoredTable> stored)
{
    reload(std::move(stored));
}

void WatchedTable::reload(std::shared_ptr<const StoredTable> stored, std::shared_ptr<StoredTable> madeForThisTable)
{
    m_entries.assign(stored->entries.begin(), stored->entries.end());
    if (madeForThisTable && madeForThisTable == stored)
        m_madeHere = std::move(madeForThisTable);
    else if (stored != m_madeHere)
        m_madeHere.reset();
    m_stored = std::move(stored);
    m_storedVersion = m_stored->version;
    m_built.clear();
    m_positions.reset(m_entries.size());
    m_pathIndex = PathIndex::None;
    m_slotsByPath.clear();
}

WatchedTable WatchedTable::ofRecords(Value records)
{
    WatchedTable table;
    const auto& elements = records.elements();
    table.m_entries.reserve(elements.size());
    for (std::size_t row = 0; row < elements.size(); ++row) {
        TableEntry& entry = table.m_entries.emplace_back();
        entry.form = EntryForm::Built;
        entry.row = static_cast<std::uint32_t>(row);
        entry.built = static_cast<std::uint32_t>(table.m_built.size());
        entry.changed = false;
        table.m_built.push_back({ elements[row], std::nullopt });
        readEntryFacts(entry, EntryView(entry, table.m_stored.get(), &table.m_built.back()));
    }
    table.m_positions.reset(table.m_entries.size());
    return table;
}

std::size_t WatchedTable::checkedSlot(std::size_t position) const
{
    if (position >= count())
        raiseIndexBeyondBounds(position, count());
    return m_positions.slotAt(position);
}

EntryView WatchedTable::viewOfSlot(std::size_t slot) const
{
    const TableEntry& entry = m_entries[slot];
    return EntryView(entry, m_stored.get(), entry.form == EntryForm::Built ? &m_built[entry.built] : nullptr);
}

EntryView WatchedTable::at(std::size_t position) const
{
    return viewOfSlot(checkedSlot(position));
}

void WatchedTable::markSeen(std::size_t position, const Value* computerId)
{
    std::size_t slot = checkedSlot(position);
    TableEntry& entry = m_entries[slot];
    if ((entry.form == EntryForm::Unseen || entry.form == EntryForm::Seen) && m_stored->hasComputerId(computerId)) {
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
    TableEntry& entry = m_entries[slot];
    if (entry.form == EntryForm::Built && fileID && m_built[entry.built].record.isDictionary()) {
        m_built[entry.built].fileID = *fileID;
        entry.changed = true;
        return;
    }
    Value record = viewOfSlot(slot).record();
    record.setObject(fileID, keys::fileID);
    setRecord(slot, std::move(record));
}

void WatchedTable::setRecord(std::size_t slot, Value record)
{
    TableEntry& entry = m_entries[slot];
    unindexPath(slot);
    // A record the table made for this entry alone is replaced where it lies: a table whose every entry changes (the
    // server's identifiers after a first sync) does not keep every former record besides.
    if (entry.form == EntryForm::Built) {
        m_built[entry.built] = { std::move(record), std::nullopt };
    } else {
        entry.built = static_cast<std::uint32_t>(m_built.size());
        m_built.push_back({ std::move(record), std::nullopt });
    }
    entry.form = EntryForm::Built;
    entry.changed = true;
    entry.storedAsSeen = false;
    readEntryFacts(entry, viewOfSlot(slot));
    indexPath(slot);
}

void WatchedTable::append(Value record)
{
    TableEntry& entry = m_entries.emplace_back();
    entry.form = EntryForm::Built;
    entry.built = static_cast<std::uint32_t>(m_built.size());
    m_built.push_back({ std::move(record), std::nullopt });
    readEntryFacts(entry, viewOfSlot(m_entries.size() - 1));
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
    return viewOfSlot(slot).pathText();
}

void WatchedTable::indexPath(std::size_t slot)
{
    if (m_pathIndex == PathIndex::None)
        return;
    std::string_view path = pathOfSlot(slot);
    if (!path.data())
        return;
    auto found = m_slotsByPath.find(path);
    if (found == m_slotsByPath.end()) {
        if (m_pathIndex == PathIndex::Chosen)
            return;
        found = m_slotsByPath.try_emplace(std::string(path)).first;
    }
    Slots& slots = found->second;
    slots.insert(std::upper_bound(slots.begin(), slots.end(), slot), static_cast<std::uint32_t>(slot));
}

void WatchedTable::unindexPath(std::size_t slot)
{
    if (m_pathIndex == PathIndex::None)
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
    m_slotsByPath.clear();
    m_pathIndex = PathIndex::All;
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

void WatchedTable::indexOnlyPaths(const std::vector<std::string_view>& paths)
{
    if (m_pathIndex != PathIndex::None)
        return;
    m_pathIndex = PathIndex::Chosen;
    for (std::string_view path : paths)
        m_slotsByPath.try_emplace(std::string(path));
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        if (m_entries[slot].form == EntryForm::Removed)
            continue;
        if (std::string_view path = pathOfSlot(slot); path.data()) {
            if (auto found = m_slotsByPath.find(path); found != m_slotsByPath.end())
                found->second.push_back(static_cast<std::uint32_t>(slot));
        }
    }
}

std::optional<std::size_t> WatchedTable::firstPositionWithPath(
    std::string_view path, const std::function<bool(const EntryView&)>& matches)
{
    if (m_pathIndex == PathIndex::None || (m_pathIndex == PathIndex::Chosen && !m_slotsByPath.contains(path)))
        buildPathIndex();
    auto found = m_slotsByPath.find(path);
    if (found == m_slotsByPath.end())
        return std::nullopt;
    // Slots grow with the table's order (an entry is only ever added at the end), so the first match is the first
    // entry in the table.
    for (std::uint32_t slot : found->second) {
        if (!matches || matches(viewOfSlot(slot)))
            return m_positions.positionOf(slot);
    }
    return std::nullopt;
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
    m_pathIndex = PathIndex::None;
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
        row.replaced = entry.changed;
    }
    return rows;
}

void WatchedTable::rowsStored(std::uint64_t version)
{
    // The stored table the next pass starts from: the records just stored, in order. An unchanged entry's record is
    // the stored one it stands for, a seen entry's is made from its stored texts, any other is its record made
    // compact, keeping the texts it shares with the stored record it replaces. The texts stay in the arena they were
    // read into. A one-file edit changes a few entries of a table of a million: where it can, the table is updated
    // where it lies instead of copied.
    if (!storeInPlace(version))
        storeAfresh(version);
    m_storedVersion = version;
    const bool normalised = m_stored->entries.size() == m_stored->records.count();
    std::uint32_t row = 0;
    for (TableEntry& entry : m_entries) {
        if (entry.form == EntryForm::Removed)
            continue;
        entry.row = row;
        entry.changed = false;
        if (normalised && (entry.form == EntryForm::Unseen || entry.form == EntryForm::Seen))
            entry.storedAsSeen = m_stored->entries[row].storedAsSeen;
        ++row;
    }
}

namespace {

    // Record `slot` of `records` as the entry stands for it: the seen form made from its stored texts when the entry
    // is a seen one, else its record made compact keeping the texts it shares with stored record `row`.
    void appendRecordOf(StoredRecords& records, const StoredRecords& stored, const TableEntry& entry,
        const EntryView& view, const std::string* computerIdText)
    {
        if (!(entry.form == EntryForm::Seen && computerIdText
                && records.appendSeenForm(stored, entry.row, *computerIdText)))
            records.appendReplacing(view.record(), stored, entry.row);
    }

}

bool WatchedTable::storeInPlace(std::uint64_t version)
{
    // This table's two handles on the stored table are the only ones: no pass, index or reader holds it.
    if (!m_madeHere || m_madeHere != m_stored || m_stored.use_count() != 2)
        return false;
    StoredTable& table = *m_madeHere;
    const std::size_t storedCount = table.records.count();
    if (table.entries.size() != storedCount || m_entries.size() < storedCount)
        return false;
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        const TableEntry& entry = m_entries[slot];
        const std::uint32_t row = slot < storedCount ? static_cast<std::uint32_t>(slot) : TableEntry::noRow;
        if (entry.form == EntryForm::Removed || entry.row != row)
            return false;
    }
    const std::string* computerIdText = table.computerId ? table.computerId->stringIf() : nullptr;
    // A changed record is appended, then moved to its row: room for the new entries and one more, so that the rows
    // are not grown by doubling when every entry changed.
    table.records.reserve(m_entries.size() + 1);
    std::vector<std::size_t> written;
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        const TableEntry& entry = m_entries[slot];
        if ((entry.form == EntryForm::Unseen || entry.form == EntryForm::Seen) && !entry.changed)
            continue;
        appendRecordOf(table.records, table.records, entry, viewOfSlot(slot), computerIdText);
        if (slot < storedCount)
            table.records.moveLastTo(slot);
        written.push_back(slot);
    }
    // Normalised for the next pass as reading the list would normalise it; should a record not normalise, the
    // next pass reads the list and fails as it must.
    try {
        for (std::size_t row : written) {
            TableEntry entry = table.normalisedEntry(row);
            if (row < table.entries.size())
                table.entries[row] = entry;
            else
                table.entries.push_back(entry);
        }
        table.version = version;
    } catch (const platform::Exception&) {
        table.entries.clear();
        table.version = 0;
    }
    return true;
}

void WatchedTable::storeAfresh(std::uint64_t version)
{
    auto next = std::make_shared<StoredTable>();
    next->records = StoredRecords::sharing(m_stored->records);
    next->records.reserve(count());
    next->computerId = m_stored->computerId;
    const std::string* computerIdText = m_stored->computerId ? m_stored->computerId->stringIf() : nullptr;
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        const TableEntry& entry = m_entries[slot];
        if (entry.form == EntryForm::Removed)
            continue;
        const bool stored = entry.form == EntryForm::Unseen || entry.form == EntryForm::Seen;
        if (stored && !entry.changed)
            next->records.appendCopy(m_stored->records, entry.row);
        else
            appendRecordOf(next->records, m_stored->records, entry, viewOfSlot(slot), computerIdText);
    }
    // Normalised for the next pass as reading the list would normalise it. Should a record not normalise (only one
    // given through the table property can fail), the next pass reads the list and fails as it must.
    try {
        next->normaliseEntries(false);
        next->version = version;
    } catch (const platform::Exception&) {
        next->entries.clear();
    }
    m_stored = next;
    m_madeHere = std::move(next);
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
