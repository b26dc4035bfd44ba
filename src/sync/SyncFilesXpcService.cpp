#include "sync/SyncFilesXpcService.h"

#include "platform/Log.h"
#include "sync/RecordKeys.h"
#include "sync/SettingsCheck.h"

namespace engine {

using platform::Value;

SyncFilesXpcService::SyncFilesXpcService(platform::UserDefaults& standardDefaults, SyncPolicy policy)
    : m_policy(policy)
    , m_reportRetry(policy.firstRetryDelay(), SyncPolicy::maximumRetryDelay)
    , m_standardDefaults(standardDefaults)
{
}

SyncFilesXpcService::~SyncFilesXpcService() = default;

void SyncFilesXpcService::SyncFile()
{
    {
        // Taken before the status is raised: a pass running now ends (and writes its "0") before this call writes
        // "1", so the pass below reads this call's "1" and the request is never swallowed.
        std::lock_guard pass(m_passMutex);
        {
            std::lock_guard lock(m_fieldsMutex);
            m_prefs = &m_standardDefaults;
            m_fileWatcherPrefs = m_prefs->persistentDomainForName(domains::fileWatcher);
            m_korbanholdPrefs = m_prefs->persistentDomainForName(domains::korbanhold);
        }
        // The whole domain is replaced: every other key of the file watcher's domain goes.
        writeStatus(*m_prefs, "1");
        platform::log("FileWatcher 1 in syncfile initially");
        guardedPass();
    }
    if (!m_policy.oneLoopPerEngine() || !m_loopStarted.exchange(true))
        scheduleNextPass();
}

void SyncFilesXpcService::writeStatus(platform::UserDefaults& prefs, std::string_view status)
{
    prefs.setPersistentDomain(Value::dictionary({ { std::string(settings::fileWatcherStatus), Value(status) } }),
        domains::fileWatcher);
    prefs.synchronize();
}

Value SyncFilesXpcService::userDefaultsArray() const
{
    std::lock_guard lock(m_fieldsMutex);
    return m_userDefaultsArray.records();
}

void SyncFilesXpcService::setUserDefaultsArray(const Value& records)
{
    std::lock_guard lock(m_fieldsMutex);
    m_userDefaultsArray = WatchedTable::ofRecords(records);
}

Value SyncFilesXpcService::sharedFilesArray() const { return readLocked(m_sharedFilesArray); }
void SyncFilesXpcService::setSharedFilesArray(Value records) { writeLocked(m_sharedFilesArray, std::move(records)); }
Value SyncFilesXpcService::fileStatusArray() const { return readLocked(m_fileStatusArray); }
void SyncFilesXpcService::setFileStatusArray(Value list) { writeLocked(m_fileStatusArray, std::move(list)); }
Value SyncFilesXpcService::jsonArray() const { return readLocked(m_jsonArray); }
void SyncFilesXpcService::setJsonArray(Value list) { writeLocked(m_jsonArray, std::move(list)); }
Value SyncFilesXpcService::changedListArray() const { return readLocked(m_changedListArray); }
void SyncFilesXpcService::setChangedListArray(Value records) { writeLocked(m_changedListArray, std::move(records)); }
std::optional<Value> SyncFilesXpcService::korbanholdPrefs() const { return readLocked(m_korbanholdPrefs); }
std::optional<Value> SyncFilesXpcService::fileWatcherPrefs() const { return readLocked(m_fileWatcherPrefs); }
std::optional<Value> SyncFilesXpcService::sharedFilePrefs() const { return readLocked(m_sharedFilePrefs); }

Value SyncFilesXpcService::korbanholdArray() const
{
    std::lock_guard lock(m_fieldsMutex);
    return m_scan.walkRecords();
}

const Value* SyncFilesXpcService::settingsValue(std::string_view key) const
{
    return m_korbanholdPrefs ? m_korbanholdPrefs->find(key) : nullptr;
}

bool SyncFilesXpcService::syncedFolderSettingFits() const
{
    std::lock_guard lock(m_fieldsMutex);
    const Value* setting = settingsValue(settings::korbanholdPath);
    return !setting || !setting->isString() || fitsFolderPath(setting->string());
}

std::string SyncFilesXpcService::syncedFolderPath() const
{
    std::lock_guard lock(m_fieldsMutex);
    return platform::format("%@/Korbanhold", settingsValue(settings::korbanholdPath));
}

}
