// The batch report: every change record of a pass goes to the server in one request, and only when the server has
// accepted it is the watched-files table stored, with the server's file identifiers copied into it.

#include "sync/SyncFilesXpcService.h"

#include "platform/Exception.h"
#include "platform/Log.h"
#include "rest/RestInterface.h"
#include "sync/RecordKeys.h"
#include "sync/WireText.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <vector>

namespace engine {

using platform::Value;
using messages::SyncFilesInTableAndCloudQuery;
using messages::SyncFilesInTableAndCloudResponseData;

namespace {

    // One query per change record, in order. The paths go in the server's form; an "oldPathKey" that is the empty
    // string (a record that is not a rename has no old path) or the null object goes as it is. Every other value is
    // copied as it stands, whatever its kind.
    std::vector<SyncFilesInTableAndCloudQuery> batchQueries(const Value& changes, const Value* korbanholdPath)
    {
        // Every query carries the setting: one that cannot be a path fails the report before it is copied.
        if (korbanholdPath && korbanholdPath->isString() && !fitsFolderPath(korbanholdPath->string()))
            platform::Exception::raiseInvalidArgument("korbanholdPathKey is too long to name a folder");
        std::optional<std::string> serverKorbanholdPath = serverFormPath(korbanholdPath);
        std::vector<SyncFilesInTableAndCloudQuery> queries;
        queries.reserve(changes.count());
        for (const Value& change : changes.elements()) {
            SyncFilesInTableAndCloudQuery query;
            query.changeType = copiedValue(change.find(keys::changeType));
            const Value* oldPath = change.find(keys::oldPath);
            bool keptAsItIs = oldPath && (oldPath->isNull() || (oldPath->isString() && oldPath->string().empty()));
            if (keptAsItIs)
                query.oldFullPath = *oldPath;
            else if (auto converted = serverFormPath(oldPath))
                query.oldFullPath = Value(std::move(*converted));
            query.fullPath = serverFormPath(change.find(keys::baseSystemFilePath));
            query.fileSize = copiedValue(change.find(keys::fileSize));
            query.computerId = copiedValue(change.find(keys::computerID));
            query.korbanholdPath = serverKorbanholdPath;
            query.isFile = copiedValue(change.find(keys::isFile));
            query.fileID = copiedValue(change.find(keys::fileID));
            query.baseSystemFileID = copiedValue(change.find(keys::baseSystemFileID));
            query.fileModifiedDate = copiedValue(change.find(keys::modifiedDate));
            queries.push_back(std::move(query));
        }
        return queries;
    }

    // Gives the first table entry of each result's "BaseSystemFileIDKey" the server's identifier of that item.
    // Results without a matching entry are skipped; their status and error are not looked at. Raises when a
    // matching result has no identifier, which a record cannot hold.
    void copyServerFileIDs(Value& table, const std::vector<SyncFilesInTableAndCloudResponseData>& results)
    {
        // The first position of every file number that is a string; other kinds are rare and searched for.
        boost::unordered_flat_map<std::string, std::size_t> firstPositionOfText;
        for (std::size_t position = 0; position < table.count(); ++position) {
            const Value* fileNumber = table.at(position).find(keys::baseSystemFileID);
            if (const std::string* text = fileNumber ? fileNumber->stringIf() : nullptr)
                firstPositionOfText.try_emplace(*text, position);
        }
        // An absent file number matches the first entry that lacks the key.
        auto firstPositionOf = [&](const Value* fileNumber) -> std::optional<std::size_t> {
            if (const std::string* text = fileNumber ? fileNumber->stringIf() : nullptr) {
                auto found = firstPositionOfText.find(*text);
                return found == firstPositionOfText.end() ? std::nullopt : std::optional(found->second);
            }
            for (std::size_t position = 0; position < table.count(); ++position) {
                const Value* entryFileNumber = table.at(position).find(keys::baseSystemFileID);
                if (fileNumber ? entryFileNumber && *entryFileNumber == *fileNumber : !entryFileNumber)
                    return position;
            }
            return std::nullopt;
        };
        for (const SyncFilesInTableAndCloudResponseData& result : results) {
            const Value* fileNumber = result.baseSystemFileID ? &*result.baseSystemFileID : nullptr;
            if (auto position = firstPositionOf(fileNumber))
                table.mutableAt(*position).setObject(result.fileId, keys::fileID);
        }
    }

}

void SyncFilesXpcService::SyncFilesWithTableAndCloudProcess(Value changedListArray)
{
    if (changedListArray.count() == 0)
        return;
    platform::guard(
        [&] {
            std::optional<Value> korbanholdPath;
            {
                std::lock_guard lock(m_fieldsMutex);
                if (const Value* setting = settingsValue(settings::korbanholdPath))
                    korbanholdPath = *setting;
            }
            auto queries = batchQueries(changedListArray, korbanholdPath ? &*korbanholdPath : nullptr);
            auto self = shared_from_this();
            rest::RestInterface::asyncSyncFilesInTableAndCloud(queries,
                [self](const rest::Outcome<std::vector<SyncFilesInTableAndCloudResponseData>>& object,
                    rest::TransportStatus status) {
                    // Any other status stores nothing: the next pass finds the same differences again.
                    if (status == rest::TransportSucceeded)
                        self->storeAcceptedTable(std::get<std::vector<SyncFilesInTableAndCloudResponseData>>(object));
                });
        },
        [this](const platform::Exception&) { logErrorMethod(); });
}

void SyncFilesXpcService::storeAcceptedTable(const std::vector<SyncFilesInTableAndCloudResponseData>& results)
{
    // Between passes: the table stored is the one the object holds now, complete, and a pass that starts later
    // reads what this stores.
    std::lock_guard pass(m_passMutex);
    Value table = userDefaultsArray();
    m_standardDefaults.setObject(table, settings::fileWatchedData);
    m_standardDefaults.synchronize();
    writeIdleStatus(m_standardDefaults);

    copyServerFileIDs(table, results);
    setUserDefaultsArray(table);
    m_standardDefaults.setObject(table, settings::fileWatchedData);
    m_standardDefaults.synchronize();
    platform::log("filde ID updayted  %@", m_standardDefaults.objectForKey(settings::fileWatchedData));
}

}
