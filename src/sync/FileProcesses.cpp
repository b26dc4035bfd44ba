// The creation, modification and deletion processes: each turns one kind of difference between the folder and
// the watched-files table into change records and keeps the table in step with the folder.

#include "sync/SyncFilesXpcService.h"

#include "platform/FileManager.h"
#include "sync/RecordKeys.h"
#include "sync/RecordValues.h"
#include "sync/Raises.h"

namespace engine {

using platform::Value;

void SyncFilesXpcService::performFileCreationProcess(std::size_t index)
{
    std::lock_guard lock(m_fieldsMutex);
    createItem(index);
}

void SyncFilesXpcService::performFileModificationProcess(std::size_t index)
{
    std::lock_guard lock(m_fieldsMutex);
    modifyItem(index, currentAttributesAt(index));
}

void SyncFilesXpcService::performFileDeletionProcess()
{
    std::lock_guard lock(m_fieldsMutex);
    const Value* computerId = settingsValue(settings::computerId);
    m_userDefaultsArray.removeMarkedEntries(
        [&](const EntryView& entry) { m_changedListArray.append(deletedRecord(entry, computerId)); });
}

std::optional<platform::FileAttributes> SyncFilesXpcService::currentAttributesAt(std::size_t index) const
{
    return platform::FileManager::attributesOfItemAtPath(m_scan.pathAt(index));
}

// An item whose attributes are gone counts as a folder of size 0 and has no date text.
ItemTexts SyncFilesXpcService::textsOf(std::size_t index, const std::optional<platform::FileAttributes>& attributes)
{
    ItemTexts texts {
        Value(fileNumberText(m_scan.attributesAt(index).fileNumber)),
        Value(m_scan.pathAt(index)),
        Value(isFileText(!attributes || attributes->type == platform::FileType::Directory)),
        Value(fileSizeText(attributes ? attributes->size : 0)),
        std::nullopt,
    };
    if (attributes)
        texts.modifiedDate = Value(m_modifiedDates.text(attributes->modificationDate));
    return texts;
}

// A new item: the table and the change list get the same record, made from the item as it is now.
void SyncFilesXpcService::createItem(std::size_t index)
{
    Value record = createdRecord(textsOf(index, currentAttributesAt(index)), settingsValue(settings::computerId));
    m_userDefaultsArray.append(record);
    m_changedListArray.append(std::move(record));
}

// A known path under a new file number, as after a save that writes a new file over the old one: the first table
// entry with the path is replaced, keeping its server identifier so that the server sees the same file.
void SyncFilesXpcService::modifyItem(std::size_t index, const std::optional<platform::FileAttributes>& attributes)
{
    auto position = m_userDefaultsArray.firstPositionWithPath(m_scan.pathAt(index));
    if (!position)
        raiseIndexBeyondBounds(0, 0);
    modifyItemAt(*position, index, attributes);
}

void SyncFilesXpcService::modifyItemAt(
    std::size_t position, std::size_t index, const std::optional<platform::FileAttributes>& attributes)
{
    ItemTexts texts = textsOf(index, attributes);
    Value fileID = cleanedFileID(m_userDefaultsArray.at(position).find(RecordKey::FileID));
    Value record = modifiedRecord(texts, fileID, settingsValue(settings::computerId));
    m_userDefaultsArray.replace(position, record);
    m_changedListArray.append(std::move(record));
}

}
