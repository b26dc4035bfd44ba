// One pass of the polling loop (`syncFileInTablenCloud`): steps 1 to 12 inside one exception guard, then the next
// pass scheduled in every case.

#include "sync/SyncFilesXpcService.h"

#include "platform/Log.h"
#include "platform/Queue.h"
#include "sync/ItemMatching.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"
#include "sync/SettingsCheck.h"
#include "sync/ServiceStatus.h"

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
        guardedPass();
    }
    scheduleNextPass();
}

void SyncFilesXpcService::scheduleNextPass()
{
    auto self = shared_from_this();
    platform::Queue::globalBackground()->after(passInterval, [self] { self->syncFileInTablenCloud(); });
}

void SyncFilesXpcService::guardedPass()
{
    platform::guard(
        [this] {
            runPass();
            m_failures.completed();
        },
        [this](const platform::Exception& exception) {
            // Work done before the failure stays; the status is not reset, so the next pass tries again.
            platform::log("%@", exception);
            logErrorMethod();
            if (m_failures.failed(exception.name() + ": " + exception.reason()) && m_policy.worksAroundRepeatedFailures()
                && !m_workingAround) {
                m_workingAround = true;
                platform::log("The pass failed %@ times in a row for the same reason; later passes leave out the "
                              "stored records and the items that make them fail",
                    FailureStreak::limit);
            }
        });
    // The pass has let go of the snapshots and the table it replaced.
    m_standardDefaults.releaseMemoryOfReplacedDomains();
}

void SyncFilesXpcService::runPass()
{
    if (!readDomainsAndStatus())
        return;
    if (m_policy.waitsForReportsInFlight() && m_reportsInFlight.holdBackPass())
        return;
    loadTables();
    if (holdsBackForMissingRoot())
        return;
    // A folder whose path cannot exist holds nothing: that is what its walk would find.
    FolderScan scan = syncedFolderSettingFits() ? FolderScan::walk(syncedFolderPath()) : FolderScan();
    {
        std::lock_guard lock(m_fieldsMutex);
        m_scan = std::move(scan);
    }
    if (holdsBackForEmptyWalk())
        return;
    m_rootGuard.goOn();
    if (m_policy.matchesItemsExactly())
        classifyMatchedItems();
    else
        classifyItems();
    performFileDeletionProcess();
    performSharedFilesDeletetionProcess();
    finishPass();
}

// A synced folder that is missing, or whose setting is absent, walks as an empty folder: every item of the table
// would be reported deleted. While the table lists items, the pass stops here instead, with the status left busy so
// that the pass that finds the folder back runs at once.
bool SyncFilesXpcService::holdsBackForMissingRoot()
{
    if (!m_policy.guardsMissingRoot())
        return false;
    std::optional<std::string> base;
    {
        std::lock_guard lock(m_fieldsMutex);
        if (m_userDefaultsArray.count() == 0)
            return false;
        const Value* setting = settingsValue(settings::korbanholdPath);
        if (setting && !setting->isNull())
            base = platform::format("%@/Korbanhold", setting);
    }
    auto reason = missingRootReason(base);
    if (reason)
        m_rootGuard.holdBack(*reason);
    return reason.has_value();
}

// A walk that found nothing while the table lists items deletes everything on the server: an unmounted drive under
// the folder or an emptied folder look just like it. Only a person's confirmation (`korbanhold sync
// --confirm-delete-all`) lets such a pass go on; the confirmation is used up by the pass that walks next.
bool SyncFilesXpcService::holdsBackForEmptyWalk()
{
    if (!m_policy.guardsEmptiedRoot())
        return false;
    bool confirmed = consumeDeleteAllConfirmation(m_deleteAllConfirmation);
    std::size_t tableCount = 0;
    {
        std::lock_guard lock(m_fieldsMutex);
        if (m_scan.count() != 0)
            return false;
        tableCount = m_userDefaultsArray.count();
    }
    if (tableCount == 0)
        return false;
    if (confirmed) {
        platform::log("Deleting all %@ items of the table, as confirmed", tableCount);
        return false;
    }
    m_rootGuard.holdBack(platform::format("the synced folder %@ is empty but the table lists %@ items (confirm their "
                                          "deletion with: korbanhold sync --confirm-delete-all)",
        syncedFolderPath(), tableCount));
    return true;
}

// Steps 1 and 2: fresh snapshots of the three domains; only the status "1" lets the pass go on.
bool SyncFilesXpcService::readDomainsAndStatus()
{
    auto fileWatcher = m_standardDefaults.persistentDomainForName(domains::fileWatcher);
    auto korbanhold = m_standardDefaults.persistentDomainForName(domains::korbanhold);
    auto sharedFiles = m_standardDefaults.persistentDomainForName(domains::sharedFiles);
    SettingsCheck& check = SettingsCheck::processWide();
    check.check(domains::fileWatcher, fileWatcher);
    check.check(domains::korbanhold, korbanhold);
    check.check(domains::sharedFiles, sharedFiles);
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

namespace {

    // Reads the stored table's records straight into their compact form.
    class StoredRecordsReader : public platform::ListElementReader {
    public:
        void expect(std::size_t count) override { records.reserve(count); }
        void storedText(std::string_view text) override { records.appendText(text); }
        void value(const Value& element) override { records.append(element); }
        StoredRecords records;
    };

}

// Steps 3 to 7: empty change list and walk, the table read and normalised, the shared-file records marked for
// deletion, and the table's file numbers and paths listed as they were read.
void SyncFilesXpcService::loadTables()
{
    // The table the object holds stands for the stored list it was read from or stored as; while that list is
    // still the one stored, it is neither read nor normalised again.
    std::shared_ptr<const StoredTable> current;
    std::uint64_t knownVersion = 0;
    {
        std::lock_guard lock(m_fieldsMutex);
        current = m_userDefaultsArray.storedTable();
        if (current->hasComputerId(settingsValue(settings::computerId)))
            knownVersion = current->version;
    }
    StoredRecordsReader reader;
    const platform::StoredList stored = m_standardDefaults.readList(settings::fileWatchedData, knownVersion, reader);
    std::lock_guard lock(m_fieldsMutex);
    m_changedListArray = Value::array();
    m_scan = FolderScan();

    const Value* computerId = settingsValue(settings::computerId);
    // The table of the stored records, and whether this pass normalises it (read afresh, or for another computer
    // identifier) or takes it as it is.
    std::shared_ptr<const StoredTable> storedTable;
    std::shared_ptr<StoredTable> toNormalise;
    switch (stored.kind) {
    case platform::StoredList::Kind::Unchanged:
        storedTable = current;
        if (!current->hasComputerId(computerId))
            storedTable = toNormalise = StoredTable::of(current->records, computerId, current->version);
        break;
    case platform::StoredList::Kind::Absent:
        storedTable = toNormalise = StoredTable::of(StoredRecords(), computerId, stored.version);
        break;
    case platform::StoredList::Kind::Elements:
        storedTable = toNormalise = StoredTable::of(std::move(reader.records), computerId, stored.version);
        break;
    case platform::StoredList::Kind::Other:
        break;
    }
    try {
        // A domain without a shared-file list gives an empty one: no record matches anything in it either way.
        const Value* sharedRecords = m_sharedFilePrefs ? m_sharedFilePrefs->find(settings::sharedFileData) : nullptr;
        m_sharedFilesArray = sharedRecords ? *sharedRecords : Value::array();
        requireMutableCopy(m_sharedFilesArray);
        if (stored.kind == platform::StoredList::Kind::Other)
            stored.other->elements(); // raises: a list operation on what is not a list
        if (toNormalise)
            toNormalise->normaliseEntries(m_workingAround);
        if (m_tableIndex.table() != storedTable)
            m_tableIndex = StoredTableIndex(storedTable);
    } catch (const std::exception&) {
        // Until it is normalised the table is the stored list as it is, and so it stays when that fails.
        m_userDefaultsArray = storedTable ? WatchedTable::ofRecords(storedTable->records.list()) : WatchedTable();
        throw;
    }
    m_userDefaultsArray.reload(m_tableIndex.table(), std::move(toNormalise));

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

void SyncFilesXpcService::classifyMatchedItems()
{
    // The walk and the table are only replaced by this thread, so reading them here needs no lock. Full paths are
    // made one at a time into `path`: a copy of every walked path would cost as much as the walk itself.
    std::string path;
    std::vector<bool> shared(m_scan.count());
    for (std::size_t index = 0; index < m_scan.count(); ++index) {
        m_scan.writePathAt(index, path);
        shared[index] = checkIfShared(path);
    }
    // Pairings name entries by their position in the table as read, which is their slot in the pass's table for
    // as long as the pass runs.
    std::vector<ItemMatch> matches = matchWalkedItems(m_scan, *m_tableIndex.table(), shared);
    for (std::size_t index = 0; index < m_scan.count(); ++index) {
        const ItemMatch& match = matches[index];
        m_scan.writePathAt(index, path);
        auto handle = [&] {
            if (match.pairing == ItemPairing::Skipped) {
                classifySharedItem(path, fileNumberText(m_scan.attributesAt(index).fileNumber));
                return;
            }
            std::lock_guard lock(m_fieldsMutex);
            auto position = [&] { return m_userDefaultsArray.positionOfSlot(match.entry); };
            switch (match.pairing) {
            case ItemPairing::InPlace:
                keepItem(position(), index);
                break;
            case ItemPairing::Replaced:
                modifyItemAt(position(), index, currentAttributesAt(index));
                break;
            case ItemPairing::Moved:
                renameItem(position(), index, path);
                break;
            case ItemPairing::New:
            case ItemPairing::Skipped:
                createItem(index);
                break;
            }
        };
        if (!m_workingAround) {
            handle();
            continue;
        }
        // After repeated failures an item that cannot be handled is left out of this pass, logged.
        platform::guard(handle, [&](const platform::Exception& exception) {
            platform::log("%@ is left out of this pass: %@", path, exception);
        });
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
    if (m_policy.reportsDeletionsFirst()) {
        std::lock_guard lock(m_fieldsMutex);
        platform::Array ordered;
        ordered.reserve(m_changedListArray.count());
        for (int deletions = 1; deletions >= 0; --deletions) {
            for (const Value& change : m_changedListArray.elements()) {
                const Value* type = change.find(keys::changeType);
                bool deleted = type && type->isString() && type->string() == changeTypes::deleted;
                if (deleted == (deletions == 1))
                    ordered.push_back(change);
            }
        }
        m_changedListArray = Value::arrayOf(std::move(ordered));
    }
    Value changes = changedListArray();
    platform::log("Final List changed list %@", changes);
    if (platform::UserDefaults* prefs = readLocked(m_prefs))
        writeStatus(*prefs, "0");
    status::passEnded(changes.count());
    if (changes.count() != 0) {
        auto self = shared_from_this();
        platform::Queue::globalBackground()->async([self, changes] { self->SyncFilesWithTableAndCloudProcess(changes); });
    }
}

}
