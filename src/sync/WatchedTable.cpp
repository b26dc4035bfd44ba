#include "sync/WatchedTable.h"

#include "sync/ChangeRecords.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"

#include <algorithm>

namespace engine {

using platform::Value;

WatchedTable WatchedTable::normalised(const Value& records, const std::optional<Value>& computerId)
{
    WatchedTable table;
    table.m_computerId = computerId;
    const auto& elements = records.elements();
    table.m_entries.reserve(elements.size());
    for (const Value& record : elements) {
        TableEntry entry { record, EntryForm::Unseen, locateStoredFields(record) };
        EntryView view(entry, computerId ? &*computerId : nullptr);
        // The file ID is compared with the empty string before it is tested for the null object, so anything but a
        // string (the null object too) raises here; a missing one becomes the empty string.
        if (const Value* fileID = record.find(keys::fileID); fileID && !fileID->isString()) {
            raiseUnrecognizedSelector(*fileID, "isEqualToString:");
        }
        requireNormalisedFields(view);
        table.m_entries.push_back(std::move(entry));
    }
    table.m_positions.reset(table.m_entries.size());
    return table;
}

WatchedTable WatchedTable::ofRecords(const Value& records)
{
    WatchedTable table;
    const auto& elements = records.elements();
    table.m_entries.reserve(elements.size());
    for (const Value& record : elements)
        table.m_entries.push_back(TableEntry { record, EntryForm::Built, {} });
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
    return EntryView(m_entries[slot], m_computerId ? &*m_computerId : nullptr);
}

EntryView WatchedTable::at(std::size_t position) const
{
    return viewOfSlot(checkedSlot(position));
}

void WatchedTable::markSeen(std::size_t position, const std::optional<Value>& computerId)
{
    std::size_t slot = checkedSlot(position);
    TableEntry& entry = m_entries[slot];
    bool sameComputerId = computerId.has_value() == m_computerId.has_value() && (!computerId || *computerId == *m_computerId);
    if ((entry.form == EntryForm::Unseen || entry.form == EntryForm::Seen) && sameComputerId) {
        entry.form = EntryForm::Seen;
        return;
    }
    // The path stays the same, so the path index needs no change.
    entry.record = seenRecord(viewOfSlot(slot), computerId ? &*computerId : nullptr);
    entry.form = EntryForm::Built;
}

void WatchedTable::replace(std::size_t position, Value record)
{
    std::size_t slot = checkedSlot(position);
    unindexPath(slot);
    m_entries[slot] = TableEntry { std::move(record), EntryForm::Built, {} };
    indexPath(slot);
}

void WatchedTable::append(Value record)
{
    m_entries.push_back(TableEntry { std::move(record), EntryForm::Built, {} });
    m_positions.append();
    indexPath(m_entries.size() - 1);
}

void WatchedTable::remove(std::size_t position)
{
    std::size_t slot = checkedSlot(position);
    unindexPath(slot);
    m_positions.remove(slot);
    m_entries[slot] = TableEntry { Value(), EntryForm::Removed, {} };
}

const std::string* WatchedTable::pathOfSlot(std::size_t slot) const
{
    const Value* path = viewOfSlot(slot).find(keys::baseSystemFilePath);
    return path ? path->stringIf() : nullptr;
}

void WatchedTable::indexPath(std::size_t slot)
{
    if (!m_pathIndexBuilt)
        return;
    if (const std::string* path = pathOfSlot(slot)) {
        Slots& slots = m_slotsByPath[*path];
        slots.insert(std::upper_bound(slots.begin(), slots.end(), slot), static_cast<std::uint32_t>(slot));
    }
}

void WatchedTable::unindexPath(std::size_t slot)
{
    if (!m_pathIndexBuilt)
        return;
    if (const std::string* path = pathOfSlot(slot)) {
        auto found = m_slotsByPath.find(*path);
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
        if (const std::string* path = pathOfSlot(slot))
            m_slotsByPath[*path].push_back(static_cast<std::uint32_t>(slot));
    }
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
            kept.push_back(std::move(m_entries[slot]));
    }
    m_entries = std::move(kept);
    m_positions.reset(m_entries.size());
    m_slotsByPath.clear();
    m_pathIndexBuilt = false;
}

Value WatchedTable::records() const
{
    platform::Array records;
    records.reserve(count());
    forEach([&](std::size_t, const EntryView& entry) { records.push_back(entry.record()); });
    return Value::arrayOf(std::move(records));
}

void WatchedTable::forEach(const std::function<void(std::size_t position, const EntryView&)>& visit) const
{
    std::size_t position = 0;
    for (std::size_t slot = 0; slot < m_entries.size(); ++slot) {
        if (m_entries[slot].form != EntryForm::Removed)
            visit(position++, viewOfSlot(slot));
    }
}

}
