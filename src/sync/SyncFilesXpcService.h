#pragma once

// SyncFilesXpcService: the sync engine. `SyncFile` starts a polling loop on the object; every two seconds a pass
// (`syncFileInTablenCloud`) runs when the file watcher's status is "1": it walks the synced folder, compares it with
// the watched-files table, turns every difference into change records (creation, modification, deletion, rename
// and move processes, each in its own file), and hands the change list to the batch report.
//
// Threads: passes of one object never overlap (a pass holds the pass lock from its first step to its last); the
// batch report and the completions of server requests run on other threads while later passes run, so every field
// is written under the fields lock and read under it by every other thread (the pass reads what only it writes, the
// walk and the table index, without it). Each process takes that lock for its own duration, and the operations
// that talk to the server are called without it, so that they can use the accessors.
//
// Completions that change the object's lists or the stored domains (an accepted batch report, a created or renamed
// shared item) take the pass lock, so they run between passes: the table an accepted report stores is the one the
// object holds, complete, and a shared-file entry a completion appends is in the list when the next pass reloads
// it from the store. A completion first checks its status and takes the lock only on success, which never comes
// at once on the thread that made the request (the pass's own, which holds the lock).
//
// The object must be owned by a std::shared_ptr: each pass schedules the next one with a reference that keeps the
// object alive, as the loop has no end, and every request's completion holds one until it has run.

#include "messages/Responses.h"
#include "platform/UserDefaults.h"
#include "platform/Value.h"
#include "sync/ChangeRecords.h"
#include "sync/FailureStreak.h"
#include "sync/FolderScan.h"
#include "sync/RecordValues.h"
#include "sync/RefusedChanges.h"
#include "sync/ReportRetry.h"
#include "sync/ReportsInFlight.h"
#include "sync/RootGuard.h"
#include "sync/StoredTableIndex.h"
#include "sync/SyncPolicy.h"
#include "sync/WatchedTable.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace engine {

class SyncFilesXpcService : public std::enable_shared_from_this<SyncFilesXpcService> {
public:
    // `standardDefaults` stands for the standard user-defaults object: the pass reads the domains and the stored
    // table through it. `policy` says whether the safeguards are on (SyncPolicy.h).
    explicit SyncFilesXpcService(platform::UserDefaults& standardDefaults = platform::UserDefaults::standardUserDefaults(),
        SyncPolicy policy = SyncPolicy::forProcess());
    virtual ~SyncFilesXpcService();
    SyncFilesXpcService(const SyncFilesXpcService&) = delete;
    SyncFilesXpcService& operator=(const SyncFilesXpcService&) = delete;

    // The exported operation: marks the file watcher's domain busy ("FileWatcherStatusKey" = "1" as its only key)
    // and runs a pass on the caller's thread; the pass then keeps rescheduling itself. The pass lock is taken before
    // the status is raised, so the pass that runs is one that reads the "1" this call wrote. In strict mode every
    // call starts one more polling loop; otherwise the object's one loop starts with the first call.
    void SyncFile();
    // One pass, then the next one scheduled 2 seconds later on the global background queue, whatever happened.
    void syncFileInTablenCloud();

    // Properties. The table and the change list are handed out as lists of records.
    platform::Value userDefaultsArray() const;
    void setUserDefaultsArray(const platform::Value& records);
    platform::Value sharedFilesArray() const;
    void setSharedFilesArray(platform::Value records);
    platform::Value fileStatusArray() const;
    void setFileStatusArray(platform::Value list);
    platform::Value jsonArray() const;
    void setJsonArray(platform::Value list);
    platform::Value changedListArray() const;
    void setChangedListArray(platform::Value records);

    // The snapshots of the preference domains taken by the last pass (absent when a domain does not exist).
    std::optional<platform::Value> korbanholdPrefs() const;
    std::optional<platform::Value> fileWatcherPrefs() const;
    std::optional<platform::Value> sharedFilePrefs() const;
    // The folder walk of the last pass, one folder-walk record per item.
    platform::Value korbanholdArray() const;

    const SyncPolicy& policy() const { return m_policy; }

    // The processes a pass calls for each item (index: the item's position in the folder walk).
    void performFileCreationProcess(std::size_t index);
    void performFileModificationProcess(std::size_t index);
    void performFileRenameProcess(const std::string& fileID);
    void performFileDeletionProcess();
    // Drops every shared-file record still marked "DeleteKey" = "1" after the walk; nothing is stored here.
    void performSharedFilesDeletetionProcess();

    // Local lookups in the shared-file records of the current pass.
    bool checkIfShared(const std::string& path) const;
    bool checkIfOwnerActive(const std::string& path) const;
    bool checkIfSharedFolderActive(const std::string& path) const;
    std::optional<platform::Value> getUserComputerMapID(const std::string& path) const;
    std::string getFullPath(const std::string& path) const;

    // The operations that talk to the server. They return once the request is handed over; their completions run
    // later (see Threads above). They are virtual so that tests of the pass can see whether and when a pass calls
    // them without a server.
    virtual void performSharedFilesRenameProcess(const std::string& path, const std::string& fileID);
    virtual void performSharedFilesCreationProcess(const std::string& path);
    virtual void SyncFilesWithTableAndCloudProcess(platform::Value changedListArray);
    virtual void logErrorMethod();

private:
    // One pass inside its exception guard, with the pass lock held.
    void guardedPass();
    void scheduleNextPass();
    // Steps 1 to 12 of a pass; raises what ends the pass.
    void runPass();
    // Whether the guard of a missing or emptied synced folder holds this pass back (guarded mode only).
    bool holdsBackForMissingRoot();
    bool holdsBackForEmptyWalk();
    bool readDomainsAndStatus();
    void loadTables();
    void classifyItems();
    // Step 9 as a guarded pass does it: every walked path on its own, paired with table entries by ItemMatching.h.
    void classifyMatchedItems();
    void classifySharedItem(const std::string& path, const std::string& fileID);
    void finishPass();
    // "FileWatcherStatusKey" = `status` ("1" busy, "0" idle) as the only key of the file watcher's domain.
    static void writeStatus(platform::UserDefaults& prefs, std::string_view status);

    // The completions that change the object: each takes the pass lock. `refused` lists the change records whose
    // results the server refused; the table stored leaves them undone, so that a later pass finds them again.
    // `acceptedChanges` (guarded): the change of each result, whose entry gets the result's server identifier.
    // `splitRenames`: refused renames that the next pass reports as a deletion and a creation (RefusedChanges.h).
    void storeAcceptedTable(const std::vector<messages::SyncFilesInTableAndCloudResponseData>& results,
        const platform::Value& refused = platform::Value::array(), const platform::Value* acceptedChanges = nullptr,
        const RenameSet& splitRenames = {});
    // Stores the table the object holds under "FileWatchedDataKey" and synchronises: only the rows that changed since
    // the table was read or last stored, or the whole list when the store keeps no rows (a domain file). True when
    // the rows were stored.
    bool storeTable();
    // Logs "filde ID updayted  %@" with the table as stored; `storedByRows`: the last storeTable() stored the rows.
    void logStoredTable(bool storedByRows);
    // "FileWatcherStatusKey" = "1", as SyncFile writes it.
    void raiseStatus();
    // The guarded check of a batch report's reply: stores what the server accepted, and retries what it did not.
    bool handleReportReply(const platform::Value& changes,
        const std::vector<messages::SyncFilesInTableAndCloudResponseData>& results);
    // A report stored nothing (or not everything) for `reason`: the status is raised again after the backoff.
    void retryReport(const std::string& reason);
    void appendCreatedSharedEntry(const std::string& path, const std::string& serverFullPath,
        const std::optional<platform::Value>& ownerFileID);
    void storeLiveSharedFilesList();
    // Replaces the shared-files domain by one holding only "SharedFileDataKey" = `list`.
    void storeSharedFilesList(const platform::Value& list);

    // The processes, with m_fieldsMutex held.
    // Both read the item's attributes again right before they build its record (the walk's may be stale by then):
    // the record holds the item as it is when the record is made, and an item gone since the walk has no date, so
    // building its record raises and ends the pass.
    void createItem(std::size_t index);
    void modifyItem(std::size_t index, const std::optional<platform::FileAttributes>& attributes);
    // The same for the entry at `position`.
    void modifyItemAt(
        std::size_t position, std::size_t index, const std::optional<platform::FileAttributes>& attributes);
    // An item at its entry's path under its entry's file number: the entry is seen, and modified when its content
    // changed.
    void keepItem(std::size_t position, std::size_t index);
    // Reports item `index` modified when its size or date text differs from the entry at `position`, as the item is
    // now (one gone since the walk is left to the next pass, which finds it deleted).
    void modifyIfChanged(std::size_t position, std::size_t index);
    // Whether the item's size and date texts say its content changed since `entry` was made.
    bool contentChanged(const EntryView& entry, const std::optional<platform::FileAttributes>& item);
    // `tablePosition`: the first position of the item's file number in the table as the pass read it;
    // `index`: the first walk index of that file number, whose full path is `path`.
    void renameItem(std::size_t tablePosition, std::size_t index, const std::string& path);
    // The attributes of walk item `index` read now, absent when the item is gone.
    std::optional<platform::FileAttributes> currentAttributesAt(std::size_t index) const;
    // The texts of walk item `index` with `attributes`, as the processes put them into records.
    ItemTexts textsOf(std::size_t index, const std::optional<platform::FileAttributes>& attributes);
    template<typename Field>
    Field readLocked(const Field& field) const
    {
        std::lock_guard lock(m_fieldsMutex);
        return field;
    }
    template<typename Field>
    void writeLocked(Field& field, Field value)
    {
        std::lock_guard lock(m_fieldsMutex);
        field = std::move(value);
    }

    // The value of `key` in the settings snapshot ("computerIdKey", "userIdKey", "korbanholdPathKey"), or null when
    // the snapshot or the key is absent; with m_fieldsMutex held.
    const platform::Value* settingsValue(std::string_view key) const;
    // "%@/Korbanhold" of the settings' "korbanholdPathKey".
    std::string syncedFolderPath() const;
    // False when "korbanholdPathKey" is a string too long to name a folder (fitsFolderPath).
    bool syncedFolderSettingFits() const;

    const SyncPolicy m_policy;
    std::mutex m_passMutex;
    mutable std::mutex m_fieldsMutex;
    // Set once the object's polling loop runs (guarded mode: one loop per object).
    std::atomic<bool> m_loopStarted { false };
    // With the pass lock held.
    RootGuard m_rootGuard;
    // Where `korbanhold sync --confirm-delete-all` leaves its confirmation, resolved when the engine is made.
    const std::optional<std::string> m_deleteAllConfirmation = deleteAllConfirmationPath();
    FailureStreak m_failures;
    bool m_workingAround = false;
    ReportRetry m_reportRetry;
    RefusedRenames m_refusedRenames;
    ReportsInFlight m_reportsInFlight;

    platform::UserDefaults& m_standardDefaults;
    // `prefs`: set by SyncFile; the end of a pass writes the idle status through it.
    platform::UserDefaults* m_prefs = nullptr;
    std::optional<platform::Value> m_korbanholdPrefs;
    std::optional<platform::Value> m_fileWatcherPrefs;
    std::optional<platform::Value> m_sharedFilePrefs;
    // `korbanholdArray`, `tempFinderArray` and the folder path list.
    FolderScan m_scan;
    // `tempPrefArray` and the table path list.
    StoredTableIndex m_tableIndex;
    platform::Value m_tempSharedPrefArray = platform::Value::array();
    WatchedTable m_userDefaultsArray;
    platform::Value m_sharedFilesArray = platform::Value::array();
    platform::Value m_fileStatusArray = platform::Value::array();
    platform::Value m_jsonArray = platform::Value::array();
    platform::Value m_changedListArray = platform::Value::array();
    ModifiedDateTexts m_modifiedDates;
};

}
