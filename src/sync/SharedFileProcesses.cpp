// Items in folders shared with other users: they are not reported in the batch. A new one is registered with the
// server on its own (InsertFile) and gets an entry in the shared-files list once the server has accepted it; a
// renamed one is renamed in the list, which is stored at once, and the server is told when this computer created
// it; entries that no item matched in a pass are dropped.

#include "sync/SyncFilesXpcService.h"

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "rest/RestInterface.h"
#include "sync/PathText.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"
#include "sync/SharedRecords.h"
#include "sync/WireText.h"

namespace engine {

using platform::Value;

namespace {

    namespace entryKeys {
        inline constexpr std::string_view isFile = "IsFile";
        inline constexpr std::string_view myFile = "MyFile";
        inline constexpr std::string_view savedFileID = "SavedFileID";
    }

    // Field `index` of a text of fields joined by "*"; raises when there are not that many.
    std::string_view starField(std::string_view text, std::size_t index)
    {
        std::size_t count = 0;
        for (std::size_t start = 0;; ++count) {
            std::size_t end = text.find('*', start);
            if (count == index)
                return text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
            if (end == std::string_view::npos)
                break;
            start = end + 1;
        }
        raiseIndexBeyondBounds(index, count + 1);
    }

    // The server's file number field of an item that the walk found: raises when its attributes cannot be read.
    std::uint64_t fileNumberOf(const std::optional<platform::FileAttributes>& attributes)
    {
        if (!attributes)
            raiseMissingValue(sharedKeys::fileID);
        return attributes->fileNumber;
    }

    // A path below the synced folder as the shared-transfer request names it: every occurrence of `root` removed,
    // then every "/" a backslash, so that it starts with one. Absent stays absent.
    std::optional<std::string> relativeServerPath(const std::optional<Value>& path, const std::string& root)
    {
        if (!path)
            return std::nullopt;
        if (!path->isString())
            raiseUnrecognizedSelector(*path, "stringByReplacingOccurrencesOfString:withString:");
        return replacingOccurrences(replacingOccurrences(path->string(), root, ""), "/", "\\");
    }

    std::optional<Value> fieldOf(const Value* record, std::string_view key)
    {
        return record ? record->objectForKey(key) : std::nullopt;
    }

}

void SyncFilesXpcService::performSharedFilesCreationProcess(const std::string& path)
{
    Value pathText(path);
    {
        std::lock_guard lock(m_fieldsMutex);
        if (firstRecordWith(m_sharedFilesArray, sharedKeys::fileName, &pathText))
            return;
    }
    if (!checkIfOwnerActive(path) || !checkIfSharedFolderActive(path))
        return;
    messages::InsertFileQuery query;
    query.computerID = getUserComputerMapID(path);
    query.fullPath = getFullPath(path);
    auto self = shared_from_this();
    rest::RestInterface::asyncInsertFile(query,
        [self, path, fullPath = *query.fullPath](
            const rest::Outcome<messages::InsertFileResponseData>& object, rest::TransportStatus status) {
            // Any other outcome drops the result: the item is still unknown to the list, so the next pass tries it
            // again.
            if (status != rest::TransportSucceeded)
                return;
            const auto& response = std::get<messages::InsertFileResponseData>(object);
            if (integerValue(response.returnStatus) == 0)
                self->appendCreatedSharedEntry(path, fullPath, response.fileID);
        });
}

void SyncFilesXpcService::appendCreatedSharedEntry(
    const std::string& path, const std::string& serverFullPath, const std::optional<Value>& ownerFileID)
{
    std::lock_guard pass(m_passMutex);
    auto attributes = platform::FileManager::attributesOfItemAtPath(path);
    // The last field of the server's composite path is the file flag.
    std::string_view fileFlag = starField(serverFullPath, 4);
    Value entry = Value::dictionary();
    entry.setObject(ownerFileID, sharedKeys::ownerFileID);
    entry.setObject(getUserComputerMapID(path), sharedKeys::userComputerMapID);
    entry.setObject(Value(path), sharedKeys::fileName);
    entry.setObject(Value(fileFlag == "0" ? "False" : "True"), entryKeys::isFile);
    entry.setObject(Value("1"), entryKeys::myFile);
    entry.setObject(Value("0"), sharedKeys::blocked);
    entry.setObject(Value(fileNumberText(fileNumberOf(attributes))), sharedKeys::fileID);
    entry.setObject(Value(""), entryKeys::savedFileID);
    entry.setObject(Value("0"), sharedKeys::deleteMark);
    Value list;
    {
        std::lock_guard lock(m_fieldsMutex);
        m_sharedFilesArray.append(std::move(entry));
        list = m_sharedFilesArray;
    }
    storeSharedFilesList(list);
}

void SyncFilesXpcService::performSharedFilesRenameProcess(const std::string& path, const std::string& fileID)
{
    const std::string root = syncedFolderPath();
    Value fileIDText(fileID), pathText(path);
    std::optional<Value> myFile, oldPath, previousFileID, userComputerMapID, ownerFileID, isFile, parentOwnerFileID;
    std::optional<platform::FileAttributes> attributes;
    Value list;
    {
        std::lock_guard lock(m_fieldsMutex);
        forEachRecordWith(m_sharedFilesArray, sharedKeys::fileID, &fileIDText,
            [](Value& record) { record.setObject(Value("0"), sharedKeys::deleteMark); });
        // An entry already at this path: the item has not moved.
        if (firstRecordWith(m_sharedFilesArray, sharedKeys::fileName, &pathText))
            return;

        const Value* entry = firstRecordWith(m_sharedFilesArray, sharedKeys::fileID, &fileIDText);
        myFile = fieldOf(entry, entryKeys::myFile);
        oldPath = fieldOf(entry, sharedKeys::fileName);
        previousFileID = fieldOf(entry, sharedKeys::fileID);
        userComputerMapID = fieldOf(entry, sharedKeys::userComputerMapID);
        ownerFileID = fieldOf(entry, sharedKeys::ownerFileID);
        isFile = fieldOf(entry, entryKeys::isFile);
        attributes = platform::FileManager::attributesOfItemAtPath(path);

        // The folder that held the item: without an old path, the filter asks for an entry without a name.
        std::optional<Value> oldFolder;
        if (oldPath) {
            if (!oldPath->isString())
                raiseUnrecognizedSelector(*oldPath, "stringByDeletingLastPathComponent");
            oldFolder = Value(deletingLastPathComponent(oldPath->string()));
        }
        parentOwnerFileID
            = fieldOf(firstRecordWith(m_sharedFilesArray, sharedKeys::fileName, oldFolder ? &*oldFolder : nullptr),
                sharedKeys::ownerFileID);

        Value newFileID(fileNumberText(fileNumberOf(attributes)));
        forEachRecordWith(m_sharedFilesArray, sharedKeys::fileID, &fileIDText, [&](Value& record) {
            record.setObject(pathText, sharedKeys::fileName);
            record.setObject(newFileID, sharedKeys::fileID);
        });
        list = m_sharedFilesArray;
    }
    // Stored before the server is asked: a failed request leaves the rename in the list, and it is not reported
    // again, since the next pass finds the entry at its new path.
    storeSharedFilesList(list);

    // Only items this computer created are reported, and only in active shared folders.
    const std::string* myFileText = myFile ? myFile->stringIf() : nullptr;
    if (!myFileText || *myFileText != "1" || !checkIfOwnerActive(path) || !checkIfSharedFolderActive(path))
        return;
    messages::InsertSharedFilesTransferQuery query;
    query.fileID = ownerFileID;
    {
        std::lock_guard lock(m_fieldsMutex);
        query.computerID = copiedValue(settingsValue(settings::computerId));
    }
    query.userComputerID = userComputerMapID;
    query.oldFullPath = relativeServerPath(oldPath, root);
    query.fullPath = relativeServerPath(pathText, root);
    query.isFile = isFile;
    // The file number as the attributes give it, a number, not its text as everywhere else.
    query.baseSystemFileID = Value::unsignedInteger(attributes->fileNumber);
    query.prevFolderFileID = parentOwnerFileID;
    query.changeType = "2";
    query.StrXMLFileID = previousFileID;
    auto self = shared_from_this();
    rest::RestInterface::asyncInsertSharedFilesTransfer(query,
        [self](const rest::Outcome<messages::InsertSharedFilesTransferResponseData>&, rest::TransportStatus status) {
            if (status == rest::TransportSucceeded)
                self->storeLiveSharedFilesList();
        });
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

void SyncFilesXpcService::storeLiveSharedFilesList()
{
    std::lock_guard pass(m_passMutex);
    storeSharedFilesList(sharedFilesArray());
}

void SyncFilesXpcService::storeSharedFilesList(const Value& list)
{
    m_standardDefaults.setPersistentDomain(
        Value::dictionary({ { std::string(settings::sharedFileData), list } }), domains::sharedFiles);
    m_standardDefaults.synchronize();
}

}
