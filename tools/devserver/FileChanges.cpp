#include "devserver/FileChanges.h"

#include "devserver/MethodSupport.h"

namespace devserver {

ChangeResult applyChange(FileTable& files, const messages::SyncFilesInTableAndCloudQuery& change)
{
    const ChangeResult refused { change.fileID.value_or(""), false };
    if (!change.changeType || !isGiven(change.computerId) || !isGiven(change.fullPath))
        return refused;
    const std::string& type = *change.changeType;
    const std::string& computer = *change.computerId;
    const std::string& path = *change.fullPath;
    const FileAttributes attributes { change.isFile, change.fileSize, change.fileModifiedDate, change.baseSystemFileID };

    if (type == "Created" || type == "Modified")
        return { std::to_string(files.put(computer, path, attributes)), true };
    if (type == "Deleted") {
        const auto removed = files.remove(computer, path);
        return { removed ? std::to_string(*removed) : refused.fileId, true };
    }
    if (type == "Renamed" && isGiven(change.oldFullPath)) {
        if (const auto moved = files.move(computer, *change.oldFullPath, path, attributes))
            return { std::to_string(*moved), true };
    }
    return refused;
}

}
