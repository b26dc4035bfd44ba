#include "devserver/FileChanges.h"

namespace devserver {

static bool isGiven(const std::optional<std::string>& text) { return text && !text->empty(); }

ChangeResult applyChange(FileTable& files, const FileChange& change)
{
    const ChangeResult refused { change.fileId.value_or(""), false };
    if (!change.changeType || !isGiven(change.computerId) || !isGiven(change.fullPath))
        return refused;
    const std::string& type = *change.changeType;
    const std::string& computer = *change.computerId;
    const std::string& path = *change.fullPath;

    if (type == "Created" || type == "Modified")
        return { std::to_string(files.put(computer, path, change.attributes)), true };
    if (type == "Deleted") {
        const auto removed = files.remove(computer, path);
        return { removed ? std::to_string(*removed) : refused.fileId, true };
    }
    if (type == "Renamed" && isGiven(change.oldFullPath)) {
        if (const auto moved = files.move(computer, *change.oldFullPath, path, change.attributes))
            return { std::to_string(*moved), true };
    }
    return refused;
}

}
