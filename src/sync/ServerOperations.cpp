// The operations of the engine that report to the server, and the local deletion of shared-file records.
//
// NOT DONE YET: the REST client these operations use is not part of the engine yet. Until it is, each body does
// only the part that needs no server:
// - performSharedFilesRenameProcess marks the records of the file number as seen ("DeleteKey" = "0"), so that the
//   shared-file deletion keeps them; the rename in the list and the transfer request are still to come;
// - performSharedFilesCreationProcess, SyncFilesWithTableAndCloudProcess and logErrorMethod do nothing.

#include "sync/SyncFilesXpcService.h"

#include "sync/RecordKeys.h"

namespace engine {

using platform::Value;

void SyncFilesXpcService::performSharedFilesRenameProcess(const std::string& /*path*/, const std::string& fileID)
{
    std::lock_guard lock(m_fieldsMutex);
    Value fileIDText(fileID);
    for (std::size_t index = 0; index < m_sharedFilesArray.count(); ++index) {
        const Value* recordFileID = m_sharedFilesArray.at(index).find(sharedKeys::fileID);
        if (recordFileID && *recordFileID == fileIDText)
            m_sharedFilesArray.mutableAt(index).setObject(Value("0"), sharedKeys::deleteMark);
    }
}

void SyncFilesXpcService::performSharedFilesCreationProcess(const std::string& /*path*/)
{
}

void SyncFilesXpcService::SyncFilesWithTableAndCloudProcess(Value /*changedListArray*/)
{
}

void SyncFilesXpcService::logErrorMethod()
{
}

void SyncFilesXpcService::performSharedFilesDeletetionProcess()
{
    std::lock_guard lock(m_fieldsMutex);
    // Removing the collected records by equality removes exactly the marked ones: a record equal to a marked one
    // carries the mark too.
    platform::Array kept;
    for (const Value& record : m_sharedFilesArray.elements()) {
        const Value* mark = record.find(sharedKeys::deleteMark);
        const std::string* text = mark ? mark->stringIf() : nullptr;
        if (!text || *text != "1")
            kept.push_back(record);
    }
    m_sharedFilesArray = Value::arrayOf(std::move(kept));
}

}
