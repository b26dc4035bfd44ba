#include "sync/TableEntry.h"

#include "sync/ChangeRecords.h"
#include "sync/RecordKeys.h"

namespace engine {

using platform::Value;

namespace {

    constexpr std::array<std::string_view, storedFieldCount> storedKeys {
        keys::baseSystemFileID,
        keys::baseSystemFilePath,
        keys::changeType,
        keys::oldPath,
        keys::isFile,
        keys::fileSize,
        keys::modifiedDate,
        keys::fileID,
    };

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

std::array<std::uint8_t, storedFieldCount> locateStoredFields(const Value& record)
{
    std::array<std::uint8_t, storedFieldCount> positions;
    positions.fill(TableEntry::noPosition);
    const auto& entries = record.entries();
    if (entries.size() >= TableEntry::noPosition)
        return positions;
    for (std::size_t position = 0; position < entries.size(); ++position) {
        const std::string& key = entries[position].first;
        for (std::size_t field = 0; field < storedFieldCount; ++field) {
            if (key == storedKeys[field]) {
                positions[field] = static_cast<std::uint8_t>(position);
                break;
            }
        }
    }
    return positions;
}

const Value* EntryView::storedField(StoredField field) const
{
    auto index = static_cast<std::size_t>(field);
    std::uint8_t position = m_entry->positions[index];
    if (position != TableEntry::noPosition)
        return &m_entry->record.entries()[position].second;
    if (m_entry->record.count() >= TableEntry::noPosition)
        return m_entry->record.find(storedKeys[index]);
    return nullptr;
}

const Value* EntryView::find(std::string_view key) const
{
    if (m_entry->form == EntryForm::Built || m_entry->form == EntryForm::Removed)
        return m_entry->record.find(key);
    if (key == keys::remove)
        return &fixedText(m_entry->form == EntryForm::Unseen);
    if (key == keys::computerID)
        return m_computerId;
    if (key == keys::fileID) {
        // Normalisation let only a missing "FileIDKey" through besides strings; it reads as the empty string.
        const Value* fileID = storedField(StoredField::FileID);
        return fileID ? fileID : &emptyText();
    }
    for (std::size_t field = 0; field < storedFieldCount; ++field) {
        if (key == storedKeys[field])
            return storedField(static_cast<StoredField>(field));
    }
    return nullptr;
}

bool EntryView::isMarkedForRemoval() const
{
    const Value* mark = find(keys::remove);
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
    return m_entry->record;
}

}
