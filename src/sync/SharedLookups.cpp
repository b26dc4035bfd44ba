// Local lookups: whether a path lies in a shared folder, and what the shared-file records of the pass say about it.
// None of them asks the server.

#include "sync/SyncFilesXpcService.h"

#include "platform/Log.h"
#include "sync/PathText.h"
#include "platform/DateFormat.h"
#include "platform/FileManager.h"
#include "util/ServicesUtilities.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"
#include "sync/SharedRecords.h"

#include <algorithm>
#include <cctype>
#include <chrono>

namespace engine {

using platform::Value;

namespace {

    bool containsIgnoringCase(std::string_view text, std::string_view part)
    {
        auto found = std::search(text.begin(), text.end(), part.begin(), part.end(),
            [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b)); });
        return found != text.end();
    }

    // The first record whose "FileName" is the folder that holds `path`.
    const Value* recordOfParentFolder(const Value& records, std::string_view path)
    {
        Value folder(deletingLastPathComponent(path));
        return firstRecordWith(records, sharedKeys::fileName, &folder);
    }

    bool anyActiveRecord(const Value& records, const std::string& topLevelPath, bool ownerMustBeZero)
    {
        Value nameText(topLevelPath), zero("0");
        for (const Value& record : records.elements()) {
            const Value* fileName = record.find(sharedKeys::fileName);
            const Value* owner = record.find(sharedKeys::ownerFileID);
            const Value* blocked = record.find(sharedKeys::blocked);
            bool matches = fileName && *fileName == nameText && (!ownerMustBeZero || (owner && *owner == zero))
                && blocked && *blocked == zero;
            if (matches)
                return true;
        }
        return false;
    }

}

bool SyncFilesXpcService::checkIfShared(const std::string& path) const
{
    // The name of the top-level item: part 2 of the path from its first "/Korbanhold/" on.
    constexpr std::string_view marker = "/Korbanhold/";
    auto start = path.find(marker);
    if (start == std::string::npos)
        raiseIndexBeyondBounds(notFound, path.size());
    std::string_view rest = std::string_view(path).substr(start + marker.size());
    std::string_view name = rest.substr(0, rest.find('/'));
    if (!containsIgnoringCase(name, "(Shared)"))
        return false;
    // Before 10.10 the test ignores case; from 10.10 on it does not.
    return util::ServicesUtilities::isLessThan10_10() || name.find("(Shared)") != std::string_view::npos;
}

bool SyncFilesXpcService::checkIfOwnerActive(const std::string& path) const
{
    std::string topLevelPath = topLevelItemPath(syncedFolderPath(), path);
    return anyActiveRecord(sharedFilesArray(), topLevelPath, true);
}

bool SyncFilesXpcService::checkIfSharedFolderActive(const std::string& path) const
{
    std::string topLevelPath = topLevelItemPath(syncedFolderPath(), path);
    return anyActiveRecord(sharedFilesArray(), topLevelPath, false);
}

std::optional<Value> SyncFilesXpcService::getUserComputerMapID(const std::string& path) const
{
    // The top-level parts are listed but not used; listing them still needs a path below the synced folder.
    topLevelItemPath(syncedFolderPath(), path);
    Value records = sharedFilesArray();
    const Value* record = recordOfParentFolder(records, path);
    return record ? record->objectForKey(sharedKeys::userComputerMapID) : std::nullopt;
}

std::string SyncFilesXpcService::getFullPath(const std::string& path) const
{
    Value records = sharedFilesArray();
    const Value* record = recordOfParentFolder(records, path);
    const Value* owner = record ? record->find(sharedKeys::ownerFileID) : nullptr;
    std::string topLevelPath = topLevelItemPath(syncedFolderPath(), path);
    if (!owner)
        platform::Exception::raiseInvalidArgument("*** -[NSString stringByReplacingOccurrencesOfString:withString:]: nil argument");
    std::string serverPath = replacingOccurrences(replacingOccurrences(path, topLevelPath, owner->string()), "/", "\\");

    auto attributes = platform::FileManager::attributesOfItemAtPath(path);
    std::string_view isFile = attributes && attributes->type != platform::FileType::Directory ? "1" : "0";
    std::string size = fileSizeText(attributes ? attributes->size : 0);
    auto now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    return platform::format("%@*%@*%@*%@*%@", "1", serverPath, size, platform::formatDate(now, platform::errorReportDatePattern), isFile);
}

}
