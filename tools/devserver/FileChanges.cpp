#include "devserver/FileChanges.h"

#include "devserver/MethodSupport.h"

namespace devserver {

ChangeResult applyChange(FileTable& files, const messages::SyncFilesInTableAndCloudQuery& change)
{
    const ChangeResult refused { textOf(change.fileID).value_or(""), false };
    const Text changeType = textOf(change.changeType), computerId = textOf(change.computerId);
    if (!changeType || !isGiven(computerId) || !isGiven(change.fullPath))
        return refused;
    const std::string& type = *changeType;
    const std::string& computer = *computerId;
    const std::string& path = *change.fullPath;
    const FileAttributes attributes { textOf(change.isFile), textOf(change.fileSize), textOf(change.fileModifiedDate),
        textOf(change.baseSystemFileID) };
    const Text oldFullPath = textOf(change.oldFullPath);

    if (type == "Created" || type == "Modified")
        return { std::to_string(files.put(computer, path, attributes)), true };
    if (type == "Deleted") {
        const auto removed = files.remove(computer, path);
        return { removed ? std::to_string(*removed) : refused.fileId, true };
    }
    if (type == "Renamed" && isGiven(oldFullPath)) {
        if (const auto moved = files.move(computer, *oldFullPath, path, attributes))
            return { std::to_string(*moved), true };
    }
    return refused;
}

}
