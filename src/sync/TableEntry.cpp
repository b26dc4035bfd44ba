#include "sync/TableEntry.h"

#include "sync/ChangeRecords.h"
#include "sync/FolderScan.h"
#include "sync/RecordKeys.h"
#include "sync/RecordValues.h"

namespace engine {

using platform::Value;

namespace {

    const Value& fixedText(bool one)
    {
        static const Value zeroText("0"), oneText("1");
        return one ? oneText : zeroText;
    }

    const Value& emptyText()
    {
        static const Value empty("");
        return empty;
    }

}

RecordKey recordKeyOf(std::string_view key)
{
    auto is = [&](RecordKey candidate) { return key == nameOf(candidate) ? candidate : RecordKey::Other; };
    switch (key.size()) {
    case 9:
        return key[0] == 'F' ? is(RecordKey::FileID) : key[0] == 'i' ? is(RecordKey::IsFile) : is(RecordKey::Remove);
    case 10:
        return is(RecordKey::OldPath);
    case 11:
        return is(RecordKey::FileSize);
    case 13:
        return key[0] == 'c' && key[1] == 'h' ? is(RecordKey::ChangeType) : is(RecordKey::ComputerID);
    case 19:
        return key[0] == 'B' ? is(RecordKey::BaseSystemFileID) : is(RecordKey::ModifiedDate);
    case 21:
        return is(RecordKey::BaseSystemFilePath);
    default:
        return RecordKey::Other;
    }
}

std::string_view nameOf(RecordKey key)
{
    switch (key) {
    case RecordKey::BaseSystemFileID:
        return keys::baseSystemFileID;
    case RecordKey::BaseSystemFilePath:
        return keys::baseSystemFilePath;
    case RecordKey::ChangeType:
        return keys::changeType;
    case RecordKey::OldPath:
        return keys::oldPath;
    case RecordKey::IsFile:
        return keys::isFile;
    case RecordKey::FileSize:
        return keys::fileSize;
    case RecordKey::ModifiedDate:
        return keys::modifiedDate;
    case RecordKey::FileID:
        return keys::fileID;
    case RecordKey::Remove:
        return keys::remove;
    case RecordKey::ComputerID:
        return keys::computerID;
    case RecordKey::Other:
        break;
    }
    return {};
}

std::array<std::uint8_t, storedFieldCount> locateStoredFields(const Value& record)
{
    std::array<std::uint8_t, storedFieldCount> positions;
    positions.fill(TableEntry::noPosition);
    const auto& entries = record.entries();
    if (entries.size() >= TableEntry::noPosition)
        return positions;
    for (std::size_t position = 0; position < entries.size(); ++position) {
        auto key = static_cast<std::size_t>(recordKeyOf(entries[position].first));
        if (key < storedFieldCount)
            positions[key] = static_cast<std::uint8_t>(position);
    }
    return positions;
}

bool isSeenRecord(const Value& record, const Value* computerId)
{
    const auto& entries = record.entries();
    if (entries.size() != storedFieldCount + 2 || !computerId || !computerId->isString())
        return false;
    for (std::size_t field = 0; field < storedFieldCount; ++field)
        if (entries[field].first != nameOf(static_cast<RecordKey>(field)))
            return false;
    const auto& [computerKey, computerValue] = entries[storedFieldCount];
    const auto& [removeKey, removeValue] = entries[storedFieldCount + 1];
    const std::size_t fileID = static_cast<std::size_t>(RecordKey::FileID);
    return entries[fileID].second.isString() && computerKey == keys::computerID && computerValue.isString()
        && computerValue.string() == computerId->string() && removeKey == keys::remove && removeValue.isString()
        && removeValue.string() == "0";
}

const Value* EntryView::storedField(RecordKey field) const
{
    std::uint8_t position = m_entry->positions[static_cast<std::size_t>(field)];
    if (position != TableEntry::noPosition)
        return &m_entry->record->entries()[position].second;
    if (m_entry->record->count() >= TableEntry::noPosition)
        return m_entry->record->find(nameOf(field));
    return nullptr;
}

const Value* EntryView::find(RecordKey key, std::string_view name) const
{
    if (m_entry->form == EntryForm::Built || m_entry->form == EntryForm::Removed)
        return m_entry->record->find(key == RecordKey::Other ? name : nameOf(key));
    switch (key) {
    case RecordKey::Remove:
        return &fixedText(m_entry->form == EntryForm::Unseen);
    case RecordKey::ComputerID:
        return m_computerId;
    case RecordKey::FileID: {
        // Normalisation let only a missing "FileIDKey" through besides strings; it reads as the empty string.
        const Value* fileID = storedField(RecordKey::FileID);
        return fileID ? fileID : &emptyText();
    }
    case RecordKey::Other:
        return nullptr;
    default:
        return storedField(key);
    }
}

TableEntry TableEntry::of(const Value* record, EntryForm form)
{
    TableEntry entry;
    entry.record = record;
    entry.form = form;
    entry.positions.fill(noPosition);
    if (form == EntryForm::Unseen || form == EntryForm::Seen)
        entry.positions = locateStoredFields(*record);
    EntryView view(entry, nullptr);
    auto textOf = [&](RecordKey key) {
        const Value* value = view.find(key);
        return value ? value->stringIf() : nullptr;
    };
    if (const std::string* number = textOf(RecordKey::BaseSystemFileID)) {
        auto parsed = parseFileNumberText(*number);
        entry.hasFileNumber = parsed.has_value();
        entry.fileNumber = parsed.value_or(0);
    }
    if (const std::string* size = textOf(RecordKey::FileSize)) {
        auto parsed = parseFileSizeText(*size);
        entry.hasKilobytes = parsed.has_value();
        entry.kilobytes = parsed.value_or(0);
    }
    if (const std::string* path = textOf(RecordKey::BaseSystemFilePath))
        entry.path = *path;
    return entry;
}

std::optional<std::uint64_t> EntryView::fileNumber() const
{
    return m_entry->hasFileNumber ? std::optional(m_entry->fileNumber) : std::nullopt;
}

std::optional<std::int32_t> EntryView::kilobytes() const
{
    return m_entry->hasKilobytes ? std::optional(m_entry->kilobytes) : std::nullopt;
}

bool EntryView::isMarkedForRemoval() const
{
    const Value* mark = find(RecordKey::Remove);
    const std::string* text = mark ? mark->stringIf() : nullptr;
    return text && *text == "1";
}

Value EntryView::record() const
{
    switch (m_entry->form) {
    case EntryForm::Unseen:
        return normalisedRecord(*this);
    case EntryForm::Seen:
        return seenRecord(*this, m_computerId);
    case EntryForm::Built:
    case EntryForm::Removed:
        break;
    }
    return *m_entry->record;
}

}
