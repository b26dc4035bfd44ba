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

    // Raises as taking a mutable copy of `value` does for the kinds that have none (numbers, the null object,
    // dates); lists, dictionaries, strings and data can be copied, whatever fails with them later.
    void requireMutableCopy(const Value& value)
    {
        if (!value.isArray() && !value.isDictionary() && !value.isString() && !value.isData())
            raiseUnrecognizedSelector(value, "mutableCopyWithZone:");
    }
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
        // The pass has let go of the snapshots and the table it replaced.
        m_standardDefaults.releaseMemoryOfReplacedDomains();
    }
    auto self = shared_from_this();
    platform::Queue::globalBackground()->after(passInterval, [self] { self->syncFileInTablenCloud(); });
}

void SyncFilesXpcService::runPass()
{
    if (!readDomainsAndStatus())
        return;
    loadTables();
    // A folder whose path cannot exist holds nothing: that is what its walk would find.
    FolderScan scan = syncedFolderSettingFits() ? FolderScan::walk(syncedFolderPath()) : FolderScan();
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
    m_settingsCheck.check(domains::fileWatcher, fileWatcher);
    m_settingsCheck.check(domains::korbanhold, korbanhold);
    m_settingsCheck.check(domains::sharedFiles, sharedFiles);
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

    const Value* computerId = settingsValue(settings::computerId);
    try {
        // A domain without a shared-file list gives an empty one: no record matches anything in it either way.
        const Value* sharedRecords = m_sharedFilePrefs ? m_sharedFilePrefs->find(settings::sharedFileData) : nullptr;
        m_sharedFilesArray = sharedRecords ? *sharedRecords : Value::array();
        requireMutableCopy(m_sharedFilesArray);
        // The list the store hands out is the one the last pass normalised as long as its file did not change;
        // then its normalisation and index are still right.
        if (!m_tableIndex.table()->isNormalisationOf(storedTable, computerId))
            m_tableIndex = StoredTableIndex(StoredTable::normalise(storedTable, computerId));
    } catch (const std::exception&) {
        // Until it is normalised the table is the stored list as it is, and so it stays when that fails.
        m_userDefaultsArray = storedTable.isArray() ? WatchedTable::ofRecords(storedTable) : WatchedTable();
        throw;
    }
    m_userDefaultsArray.reload(m_tableIndex.table());

    // Marking each record through the first record equal to it gives every record its own marked copy: the search
    // always meets an unmarked record equal to it, or its own marked form. A shared-file list that is not a list
    // fails here, after the table is normalised; an empty dictionary has nothing to mark and fails at the first
    // search in it.
    for (std::size_t index = 0; index < m_sharedFilesArray.count(); ++index)
        m_sharedFilesArray.mutableAt(index).setObject(Value("1"), sharedKeys::deleteMark);

    m_tempSharedPrefArray = Value::array();
}

// Step 9: every walked item, in walk order, goes to the process its file number and path call for.
void SyncFilesXpcService::classifyItems()
{
    // The walk and the table index are only replaced by this thread, so reading them here needs no lock.
    std::size_t likelyTablePosition = 0;
    std::string path;
    for (std::size_t walked = 0; walked < m_scan.count(); ++walked) {
        std::uint64_t fileNumber = m_scan.attributesAt(walked).fileNumber;
        std::size_t index = m_scan.firstIndexAt(walked);
        m_scan.writePathAt(index, path);
        if (checkIfShared(path)) {
            classifySharedItem(path, fileNumberText(fileNumber));
        } else if (auto tablePosition = m_tableIndex.firstPositionOf(fileNumber, likelyTablePosition)) {
            likelyTablePosition = *tablePosition + 1;
            // performFileRenameProcess with the two positions it would look up already known.
            std::lock_guard lock(m_fieldsMutex);
            renameItem(*tablePosition, index, path);
        } else if (m_tableIndex.containsPath(path)) {
            performFileModificationProcess(index);
        } else {
            performFileCreationProcess(index);
        }
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
    if (platform::UserDefaults* prefs = readLocked(m_prefs))
        writeIdleStatus(*prefs);
    if (changes.count() != 0) {
        auto self = shared_from_this();
        platform::Queue::globalBackground()->async([self, changes] { self->SyncFilesWithTableAndCloudProcess(changes); });
    }
}

}
