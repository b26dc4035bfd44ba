// The creation, modification and deletion processes: each turns one kind of difference between the folder and
// the watched-files table into change records and keeps the table in step with the folder.

#include "sync/SyncFilesXpcService.h"

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
    modifyItem(index);
}

void SyncFilesXpcService::performFileDeletionProcess()
{
    std::lock_guard lock(m_fieldsMutex);
    const Value* computerId = settingsValue(settings::computerId);
    m_userDefaultsArray.removeMarkedEntries(
        [&](const EntryView& entry) { m_changedListArray.append(deletedRecord(entry, computerId)); });
}

ItemTexts SyncFilesXpcService::textsOf(std::size_t index)
{
    // The attributes are those the walk read a moment ago; reading them again would double the system calls of a
    // pass.
    const platform::FileAttributes& attributes = m_scan.attributesAt(index);
    return ItemTexts {
        Value(fileNumberText(attributes.fileNumber)),
        Value(m_scan.pathAt(index)),
        Value(isFileText(attributes.type == platform::FileType::Directory)),
        Value(fileSizeText(attributes.size)),
        Value(m_modifiedDates.text(attributes.modificationDate)),
    };
}

// A new item: the table and the change list get the same record.
void SyncFilesXpcService::createItem(std::size_t index)
{
    Value record = createdRecord(textsOf(index), settingsValue(settings::computerId));
    m_userDefaultsArray.append(record);
    m_changedListArray.append(std::move(record));
}

// A known path under a new file number, as after a save that writes a new file over the old one: the first table
// entry with the path is replaced, keeping its server identifier so that the server sees the same file.
void SyncFilesXpcService::modifyItem(std::size_t index)
{
    auto position = m_userDefaultsArray.firstPositionWithPath(m_scan.pathAt(index));
    if (!position)
        raiseIndexBeyondBounds(0, 0);
    modifyItemAt(*position, index);
}

void SyncFilesXpcService::modifyItemAt(std::size_t position, std::size_t index)
{
    ItemTexts texts = textsOf(index);
    Value fileID = cleanedFileID(m_userDefaultsArray.at(position).find(keys::fileID));
    Value record = modifiedRecord(texts, fileID, settingsValue(settings::computerId));
    m_userDefaultsArray.replace(position, record);
    m_changedListArray.append(std::move(record));
}

}
