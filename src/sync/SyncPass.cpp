// One pass of the polling loop (`syncFileInTablenCloud`): steps 1 to 12 inside one exception guard, then the next
// pass scheduled in every case.

#include "sync/SyncFilesXpcService.h"

#include "platform/Log.h"
#include "platform/Queue.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"

#include <chrono>

namespace engine {

using platform::Value;

namespace {
    constexpr std::chrono::nanoseconds passInterval { 2'000'000'000 };
}

void SyncFilesXpcService::syncFileInTablenCloud()
{
    {
        std::lock_guard pass(m_passMutex);
        platform::guard([this] { runPass(); },
            [this](const platform::Exception& exception) {
                // Work done before the failure stays; the status is not reset, so the next pass tries again.
                platform::log("%@", exception);
                logErrorMethod();
            });
    }
    auto self = shared_from_this();
    platform::Queue::globalBackground()->after(passInterval, [self] { self->syncFileInTablenCloud(); });
}

void SyncFilesXpcService::runPass()
{
    if (!readDomainsAndStatus())
        return;
    loadTables();
    FolderScan scan = FolderScan::walk(syncedFolderPath());
    {
        std::lock_guard lock(m_fieldsMutex);
        m_scan = std::move(scan);
    }
    classifyItems();
    performFileDeletionProcess();
    performSharedFilesDeletetionProcess();
    finishPass();
}

// Steps 1 and 2: fresh snapshots of the three domains; only the status "1" lets the pass go on.
bool SyncFilesXpcService::readDomainsAndStatus()
{
    auto fileWatcher = m_standardDefaults.persistentDomainForName(domains::fileWatcher);
    auto korbanhold = m_standardDefaults.persistentDomainForName(domains::korbanhold);
    auto sharedFiles = m_standardDefaults.persistentDomainForName(domains::sharedFiles);
    const Value* status = fileWatcher ? fileWatcher->find(settings::fileWatcherStatus) : nullptr;
    bool busy = status && status->isString() && status->string() == "1";
    {
        std::lock_guard lock(m_fieldsMutex);
        m_fileWatcherPrefs = std::move(fileWatcher);
        m_korbanholdPrefs = std::move(korbanhold);
        m_sharedFilePrefs = std::move(sharedFiles);
        status = m_fileWatcherPrefs ? m_fileWatcherPrefs->find(settings::fileWatcherStatus) : nullptr;
    }
    platform::log("syncFileInTablenCloud: %@", status);
    return busy;
}

// Steps 3 to 7: empty change list and walk, the table read and normalised, the shared-file records marked for
// deletion, and the table's file numbers and paths listed as they were read.
void SyncFilesXpcService::loadTables()
{
    auto stored = m_standardDefaults.objectForKey(settings::fileWatchedData);
    Value storedTable = stored ? *stored : Value::array();
    std::lock_guard lock(m_fieldsMutex);
    m_changedListArray = Value::array();
    m_scan = FolderScan();

    m_userDefaultsArray = WatchedTable::ofRecords(storedTable);
    const Value* sharedRecords = m_sharedFilePrefs ? m_sharedFilePrefs->find(settings::sharedFileData) : nullptr;
    m_sharedFilesArray = sharedRecords ? *sharedRecords : Value::array();
    if (!m_sharedFilesArray.isArray())
        raiseUnrecognizedSelector(m_sharedFilesArray, "count");

    const Value* computerId = settingsComputerId();
    m_userDefaultsArray = WatchedTable::normalised(storedTable, computerId ? std::optional<Value>(*computerId) : std::nullopt);

    // Marking each record through the first record equal to it gives every record its own marked copy: the search
    // always meets an unmarked record equal to it, or its own marked form.
    for (std::size_t index = 0; index < m_sharedFilesArray.count(); ++index)
        m_sharedFilesArray.mutableAt(index).setObject(Value("1"), sharedKeys::deleteMark);

    m_tempSharedPrefArray = Value::array();
    m_tableIndex = StoredTableIndex(storedTable);
}

// Step 9: every walked item, in walk order, goes to the process its file number and path call for.
void SyncFilesXpcService::classifyItems()
{
    // The walk is only replaced by this thread, so reading it here needs no lock.
    for (std::size_t walked = 0; walked < m_scan.count(); ++walked) {
        std::uint64_t fileNumber = m_scan.at(walked).fileNumber;
        std::size_t index = *m_scan.firstIndexOf(fileNumber);
        const std::string& path = m_scan.at(index).path;
        std::string fileID = fileNumberText(fileNumber);
        if (checkIfShared(path))
            classifySharedItem(path, fileID);
        else if (m_tableIndex.firstPositionOf(fileNumber))
            performFileRenameProcess(fileID);
        else if (m_tableIndex.containsPath(path))
            performFileModificationProcess(index);
        else
            performFileCreationProcess(index);
    }
}

void SyncFilesXpcService::classifySharedItem(const std::string& path, const std::string& fileID)
{
    Value shared = sharedFilesArray();
    Value fileIDText(fileID);
    bool knownFileID = false;
    bool recordWithoutName = false;
    for (const Value& record : shared.elements()) {
        const Value* recordFileID = record.find(sharedKeys::fileID);
        knownFileID = knownFileID || (recordFileID && *recordFileID == fileIDText);
        recordWithoutName = recordWithoutName || !record.find(sharedKeys::fileName);
    }
    if (knownFileID) {
        performSharedFilesRenameProcess(path, fileID);
        return;
    }
    // The name filter is given the walk's current item, which is nil once the walk has ended: it matches only
    // records without a "FileName", so in practice every shared item with an unknown file number is a creation.
    if (!recordWithoutName)
        performSharedFilesCreationProcess(path);
}

// Steps 11 and 12.
void SyncFilesXpcService::finishPass()
{
    Value changes = changedListArray();
    platform::log("Final List changed list %@", changes);
    platform::UserDefaults* prefs;
    {
        std::lock_guard lock(m_fieldsMutex);
        prefs = m_prefs;
    }
    if (prefs) {
        prefs->setPersistentDomain(Value::dictionary({ { std::string(settings::fileWatcherStatus), Value("0") } }),
            domains::fileWatcher);
        prefs->synchronize();
    }
    if (changes.count() != 0) {
        auto self = shared_from_this();
        platform::Queue::globalBackground()->async([self, changes] { self->SyncFilesWithTableAndCloudProcess(changes); });
    }
}

}
