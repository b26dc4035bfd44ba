// The batch report: every change record of a pass goes to the server in one request, and only when the server has
// accepted it is the watched-files table stored, with the server's file identifiers copied into it.

#include "sync/SyncFilesXpcService.h"

#include "platform/Exception.h"
#include "platform/Log.h"
#include "messages/Operations.h"
#include "rest/ReplyStatus.h"
#include "rest/RestInterface.h"
#include "rest/RestURL.h"
#include "sync/FolderScan.h"
#include "sync/RefusedChanges.h"
#include "sync/ServiceStatus.h"
#include "sync/RecordKeys.h"
#include "sync/SettingsCheck.h"
#include "sync/WireText.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <chrono>
#include <vector>

namespace engine {

using platform::Value;
using messages::SyncFilesInTableAndCloudQuery;
using messages::SyncFilesInTableAndCloudResponseData;

namespace {

    using BatchOutcome = rest::Outcome<std::vector<SyncFilesInTableAndCloudResponseData>>;

    // Why a report failed, for the status file.
    std::string failureText(const BatchOutcome& object, rest::TransportStatus status)
    {
        if (const auto* error = std::get_if<platform::Error>(&object))
            return error->description();
        if (status == rest::TransportNotReachable)
            return "the network is not reachable";
        return "transport status " + std::to_string(status);
    }

    // The setting every query carries, in the server's form: one that cannot be a path fails the report before
    // any record is copied.
    std::optional<std::string> serverKorbanholdPath(const Value* korbanholdPath)
    {
        if (korbanholdPath && korbanholdPath->isString() && !fitsFolderPath(korbanholdPath->string()))
            platform::Exception::raiseInvalidArgument("korbanholdPathKey is too long to name a folder");
        return serverFormPath(korbanholdPath);
    }

    // The query of one change record. The paths go in the server's form; an "oldPathKey" that is the empty string
    // (a record that is not a rename has no old path) or the null object goes as it is. Every other value is copied
    // as it stands, whatever its kind.
    SyncFilesInTableAndCloudQuery batchQuery(const Value& change, const std::optional<std::string>& korbanholdPath)
    {
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
        query.korbanholdPath = korbanholdPath;
        query.isFile = copiedValue(change.find(keys::isFile));
        query.fileID = copiedValue(change.find(keys::fileID));
        query.baseSystemFileID = copiedValue(change.find(keys::baseSystemFileID));
        query.fileModifiedDate = copiedValue(change.find(keys::modifiedDate));
        return query;
    }

    // The position of the first table entry whose "BaseSystemFileIDKey" equals each result's: one walk over the
    // table for the results whose file number is a string, a search by value for the rare others (an absent one
    // matches the first entry that lacks the key).
    std::vector<std::optional<std::size_t>> firstEntriesOfResults(
        const WatchedTable& table, const std::vector<SyncFilesInTableAndCloudResponseData>& results)
    {
        boost::unordered_flat_map<std::string_view, std::optional<std::size_t>> firstPositionOfText;
        for (const SyncFilesInTableAndCloudResponseData& result : results)
            if (const std::string* text = result.baseSystemFileID ? result.baseSystemFileID->stringIf() : nullptr)
                firstPositionOfText.try_emplace(*text);
        if (!firstPositionOfText.empty()) {
            table.forEachEntry([&](std::size_t position, const EntryView& entry) {
                const auto text = entry.text(RecordKey::BaseSystemFileID);
                auto found = text ? firstPositionOfText.find(*text) : firstPositionOfText.end();
                if (found != firstPositionOfText.end() && !found->second)
                    found->second = position;
            });
        }
        std::vector<std::optional<std::size_t>> positions;
        positions.reserve(results.size());
        for (const SyncFilesInTableAndCloudResponseData& result : results) {
            const Value* fileNumber = result.baseSystemFileID ? &*result.baseSystemFileID : nullptr;
            if (const std::string* text = fileNumber ? fileNumber->stringIf() : nullptr) {
                positions.push_back(firstPositionOfText.at(*text));
                continue;
            }
            std::optional<std::size_t> first;
            table.forEachEntry([&](std::size_t position, const EntryView& entry) {
                const auto entryFileNumber = entry.find(RecordKey::BaseSystemFileID);
                bool matches = fileNumber ? entryFileNumber && *entryFileNumber == *fileNumber : !entryFileNumber;
                if (matches && !first)
                    first = position;
            });
            positions.push_back(first);
        }
        return positions;
    }

    // Gives the first table entry of each result's "BaseSystemFileIDKey" the server's identifier of that item.
    // Results without a matching entry are skipped; their status and error are not looked at. Raises when a
    // matching result has no identifier, which a record cannot hold.
    void copyServerFileIDs(WatchedTable& table, const std::vector<SyncFilesInTableAndCloudResponseData>& results)
    {
        auto positions = firstEntriesOfResults(table, results);
        for (std::size_t index = 0; index < results.size(); ++index) {
            if (positions[index])
                table.setFileID(*positions[index], results[index].fileId);
        }
    }

    // Result k answers change k: its identifier goes to the first table entry of that change's path and file
    // number, so that two paths of one file number (hard links) each get their own. Deletions have no entry.
    void copyServerFileIDsOfChanges(
        WatchedTable& table, const std::vector<SyncFilesInTableAndCloudResponseData>& results, const Value& changes)
    {
        // The changes that name an entry, by their file number, or by their path for the rare number text that is
        // no file number; the table is walked once for all of them. An entry's number is read as a number once, so
        // that the walk reads no entry's texts but those of the changes' file numbers: number texts are equal when
        // they are the same file number (the text of a file number is its decimal form), or when they are the same
        // text that is none.
        boost::unordered_flat_map<std::uint64_t, std::vector<std::size_t>> changesByNumber;
        boost::unordered_flat_map<std::string_view, std::vector<std::size_t>> otherChangesByPath;
        for (std::size_t index = 0; index < results.size() && index < changes.count(); ++index) {
            const Value& change = changes.at(index);
            const Value* type = change.find(keys::changeType);
            const Value* path = change.find(keys::baseSystemFilePath);
            const Value* number = change.find(keys::baseSystemFileID);
            if (!results[index].fileId || !path || !number || !path->isString() || !number->isString()
                || (type && type->isString() && type->string() == changeTypes::deleted))
                continue;
            if (auto fileNumber = parseFileNumberText(number->string()))
                changesByNumber[*fileNumber].push_back(index);
            else
                otherChangesByPath[path->string()].push_back(index);
        }
        if (changesByNumber.empty() && otherChangesByPath.empty())
            return;
        std::vector<std::optional<std::size_t>> positionOfChange(changes.count());
        table.forEachEntry([&](std::size_t position, const EntryView& entry) {
            const std::vector<std::size_t>* candidates = nullptr;
            if (auto fileNumber = entry.fileNumber()) {
                auto found = changesByNumber.find(*fileNumber);
                candidates = found == changesByNumber.end() ? nullptr : &found->second;
            } else if (!otherChangesByPath.empty() && entry.pathText().data()) {
                auto found = otherChangesByPath.find(entry.pathText());
                candidates = found == otherChangesByPath.end() ? nullptr : &found->second;
            }
            if (!candidates)
                return;
            const std::string_view path = entry.pathText();
            const auto number = entry.text(RecordKey::BaseSystemFileID);
            if (!path.data() || !number)
                return;
            for (std::size_t index : *candidates) {
                const Value& change = changes.at(index);
                if (!positionOfChange[index] && change.find(keys::baseSystemFilePath)->string() == path
                    && change.find(keys::baseSystemFileID)->string() == *number)
                    positionOfChange[index] = position;
            }
        });
        for (std::size_t index = 0; index < positionOfChange.size(); ++index) {
            if (positionOfChange[index])
                table.setFileID(*positionOfChange[index], results[index].fileId);
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
            // One query per change record, in order, each written into the request's body as it is made and then
            // dropped: a first sync of a large folder never holds its records a second time as queries.
            const auto folderPath = serverKorbanholdPath(korbanholdPath ? &*korbanholdPath : nullptr);
            auto body = rest::RestInterface::syncFilesInTableAndCloudBody(changedListArray.count(),
                [&](std::size_t index) { return batchQuery(changedListArray.at(index), folderPath); });
            auto self = shared_from_this();
            m_reportsInFlight.started();
            rest::RestInterface::asyncSyncFilesInTableAndCloudWithBody(std::move(body),
                [self, changedListArray, records = changedListArray.count()](
                    const BatchOutcome& object, rest::TransportStatus status) {
                    // Whatever happens below, the report is over when this returns.
                    ReportsInFlight::Finishing finishing(self->m_reportsInFlight, [self] { self->raiseStatus(); });
                    auto url = rest::absoluteURL(messages::operations::asyncSyncFilesInTableAndCloud.path).value_or("");
                    // Any other status stores nothing: the next pass finds the same differences again.
                    if (status != rest::TransportSucceeded) {
                        status::reportFailed(failureText(object, status), url);
                        self->retryReport(platform::format("transport status %@", status));
                        return;
                    }
                    const auto& results = std::get<std::vector<SyncFilesInTableAndCloudResponseData>>(object);
                    if (!self->m_policy.checksReportReplies()) {
                        self->storeAcceptedTable(results);
                        status::reportStored(records);
                    } else if (self->handleReportReply(changedListArray, results)) {
                        status::reportStored(records);
                    } else {
                        status::reportFailed("the server did not accept the report", url);
                    }
                });
        },
        [this](const platform::Exception&) { logErrorMethod(); });
}

// Runs inside the report's completion, where the reply's HTTP status can be asked for. True when something was
// stored.
bool SyncFilesXpcService::handleReportReply(
    const Value& changes, const std::vector<SyncFilesInTableAndCloudResponseData>& results)
{
    std::optional<long> httpStatus = rest::httpStatusOfReplyInCompletion();
    if (httpStatus && *httpStatus >= 400) {
        retryReport(platform::format("the server answered with HTTP status %@", *httpStatus));
        return false;
    }
    // One result per change, in order: anything else (an object, an empty list) is no answer to the changes.
    if (results.size() != changes.count()) {
        retryReport(platform::format("the server's reply holds %@ results for %@ changes", results.size(),
            changes.count()));
        return false;
    }
    Value refused = Value::array();
    for (std::size_t index = 0; index < results.size(); ++index) {
        if (!isAcceptedReturnStatus(results[index].returnStatus))
            refused.append(changes.at(index));
    }
    const RenameSet splitRenames = m_refusedRenames.refusedAgain(refused);
    const bool allRefused = refused.count() == changes.count();
    // A report refused whole stores nothing, unless a rename in it is to be reported differently next time. A
    // report accepted whole (the usual case, a first sync's included) is stored from the results as they came.
    if (refused.count() == 0) {
        storeAcceptedTable(results, refused, &changes, splitRenames);
    } else if (!allRefused || !splitRenames.empty()) {
        Value acceptedChanges = Value::array();
        std::vector<SyncFilesInTableAndCloudResponseData> accepted;
        for (std::size_t index = 0; index < results.size(); ++index) {
            if (isAcceptedReturnStatus(results[index].returnStatus)) {
                accepted.push_back(results[index]);
                acceptedChanges.append(changes.at(index));
            }
        }
        storeAcceptedTable(accepted, refused, &acceptedChanges, splitRenames);
    }
    if (allRefused)
        retryReport(platform::format("the server refused all %@ changes", changes.count()));
    else if (refused.count() != 0)
        retryReport(platform::format("the server refused %@ of %@ changes; they are reported again",
            refused.count(), changes.count()));
    else
        m_reportRetry.succeeded();
    return !allRefused;
}

void SyncFilesXpcService::retryReport(const std::string& reason)
{
    if (!m_policy.retriesFailedReports())
        return;
    auto self = shared_from_this();
    auto delay = m_reportRetry.failed([self] {
        platform::log("Retrying the batch report: FileWatcher 1");
        status::retryCleared();
        self->raiseStatus();
    });
    if (delay) {
        platform::log("The batch report stored nothing complete (%@); it is retried in %@ ms", std::string_view(reason),
            static_cast<long long>(delay->count()));
        status::retryScheduled(std::chrono::duration<double>(*delay).count());
    }
}

void SyncFilesXpcService::raiseStatus()
{
    if (platform::UserDefaults* prefs = readLocked(m_prefs))
        writeStatus(*prefs, "1");
}

void SyncFilesXpcService::storeAcceptedTable(const std::vector<SyncFilesInTableAndCloudResponseData>& results,
    const Value& refused, const Value* acceptedChanges, const RenameSet& splitRenames)
{
    // Between passes: the table stored is the one the object holds now, complete, and a pass that starts later
    // reads what this stores.
    std::lock_guard pass(m_passMutex);
    {
        std::lock_guard lock(m_fieldsMutex);
        // The pass's index of the stored table is made again by the next pass; let go of it now, so that the table
        // stored below is updated where it lies instead of copied.
        m_tableIndex = StoredTableIndex();
        if (refused.count() != 0)
            leaveRefusedChangesUndone(m_userDefaultsArray, refused, splitRenames);
    }
    const bool storeOnce = m_policy.storesTableOnceWithIdentifiers();
    if (!storeOnce) {
        storeTable();
        writeStatus(m_standardDefaults, "0");
    }
    {
        std::lock_guard lock(m_fieldsMutex);
        if (acceptedChanges)
            copyServerFileIDsOfChanges(m_userDefaultsArray, results, *acceptedChanges);
        else
            copyServerFileIDs(m_userDefaultsArray, results);
    }
    const bool stored = storeTable();
    if (storeOnce)
        writeStatus(m_standardDefaults, "0");
    logStoredTable(stored);
}

bool SyncFilesXpcService::storeTable()
{
    std::lock_guard lock(m_fieldsMutex);
    const WatchedTable& table = m_userDefaultsArray;
    auto stored = m_standardDefaults.setListRows(settings::fileWatchedData, table.storedVersion(),
        table.rows(), [&](std::size_t position) { return table.at(position).record(); });
    if (!stored.handled)
        m_standardDefaults.setObject(m_userDefaultsArray.records(), settings::fileWatchedData);
    else if (stored.version)
        m_userDefaultsArray.rowsStored(*stored.version);
    m_standardDefaults.synchronize();
    return stored.handled && stored.version;
}

// "filde ID updayted  %@" with the table as now stored. After a store by rows that is the object's table, whose
// records are made only as far as the line's cap reaches; otherwise it is read back from the store.
void SyncFilesXpcService::logStoredTable(bool storedByRows)
{
    if (!storedByRows) {
        platform::log("filde ID updayted  %@", m_standardDefaults.objectForKey(settings::fileWatchedData));
        return;
    }
    std::lock_guard lock(m_fieldsMutex);
    const WatchedTable& table = m_userDefaultsArray;
    platform::log("filde ID updayted  %@",
        platform::ListOnDemand { table.count(), [&](std::size_t position) { return table.at(position).record(); } });
}

}
