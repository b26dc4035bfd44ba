#include "sync/TableEntry.h"

#include "sync/ChangeRecords.h"
#include "sync/FolderScan.h"
#include "sync/RecordKeys.h"
#include "sync/RecordValues.h"
#include "sync/WatchedTable.h"

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

EntryView::Field EntryView::storedFieldOf(RecordKey key) const
{
    const StoredRecords& records = m_stored->records;
    if (records.isRegular(m_entry->row))
        return { nullptr, records.text(m_entry->row, key) };
    const Value& record = records.odd(m_entry->row);
    return { record.find(nameOf(key)), std::nullopt };
}

std::optional<Value> EntryView::storedField(RecordKey key) const
{
    const Field stored = storedFieldOf(key);
    if (stored.text)
        return Value(*stored.text);
    return stored.value ? std::optional(*stored.value) : std::nullopt;
}

EntryView::Field EntryView::field(RecordKey key, std::string_view name) const
{
    if (m_entry->form == EntryForm::Built || m_entry->form == EntryForm::Removed) {
        if (!m_built)
            return {};
        if (key == RecordKey::FileID && m_built->fileID)
            return { &*m_built->fileID, std::nullopt };
        return { m_built->record.find(key == RecordKey::Other ? name : nameOf(key)), std::nullopt };
    }
    switch (key) {
    case RecordKey::Remove:
        return { &fixedText(m_entry->form == EntryForm::Unseen), std::nullopt };
    case RecordKey::ComputerID:
        return { m_stored->computerIdValue(), std::nullopt };
    case RecordKey::FileID: {
        // Normalisation let only a missing "FileIDKey" through besides strings; it reads as the empty string.
        const Field fileID = storedFieldOf(RecordKey::FileID);
        return fileID.text || fileID.value ? fileID : Field { &emptyText(), std::nullopt };
    }
    case RecordKey::Other:
        return {};
    default:
        return storedFieldOf(key);
    }
}

std::optional<Value> EntryView::find(RecordKey key, std::string_view name) const
{
    const Field found = field(key, name);
    if (found.text)
        return Value(*found.text);
    return found.value ? std::optional(*found.value) : std::nullopt;
}

std::optional<std::string_view> EntryView::text(RecordKey key) const
{
    const Field found = field(key, {});
    if (found.text)
        return found.text;
    const std::string* text = found.value ? found.value->stringIf() : nullptr;
    return text ? std::optional<std::string_view>(*text) : std::nullopt;
}

std::string_view EntryView::pathText() const
{
    return text(RecordKey::BaseSystemFilePath).value_or(std::string_view());
}

void readEntryFacts(TableEntry& entry, const EntryView& view)
{
    entry.hasFileNumber = false;
    entry.hasKilobytes = false;
    if (const auto number = view.text(RecordKey::BaseSystemFileID)) {
        const auto parsed = parseFileNumberText(*number);
        entry.hasFileNumber = parsed.has_value();
        entry.fileNumber = parsed.value_or(0);
    }
    if (const auto size = view.text(RecordKey::FileSize)) {
        const auto parsed = parseFileSizeText(*size);
        entry.hasKilobytes = parsed.has_value();
        entry.kilobytes = parsed.value_or(0);
    }
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
    const auto mark = text(RecordKey::Remove);
    return mark && *mark == "1";
}

Value EntryView::record() const
{
    switch (m_entry->form) {
    case EntryForm::Unseen:
        return normalisedRecord(*this);
    case EntryForm::Seen:
        return seenRecord(*this, m_stored->computerIdValue());
    case EntryForm::Built:
    case EntryForm::Removed:
        break;
    }
    return m_built->whole();
}

Value BuiltRecord::whole() const
{
    if (!fileID)
        return record;
    Value withFileID = record;
    withFileID.setObject(*fileID, keys::fileID);
    return withFileID;
}

}
