#pragma once

// watch::Watcher: the file watcher's loop. It watches every folder of the synced folder "<korbanholdPathKey>/
// Korbanhold" (WatchTree), raises the status in the file watcher's domain when something changed (RaisePolicy,
// StatusFlag), calls SyncFile when no pass takes a raise up, follows the setting and the folder as they change, and
// keeps the state file for people.
//
// One thread: run() waits on the inotify descriptor and the stop descriptor, and wakes at least once a second to
// look at the settings and the status (five times a second while a raise waits for a pass). Both are one stat()
// each when nothing changed.

#include "watch/RaisePolicy.h"
#include "watch/StatusFlag.h"
#include "watch/WatchTree.h"
#include "watch/WatcherState.h"

#include "platform/UserDefaults.h"

#include <filesystem>
#include <optional>
#include <string>

namespace watch {

struct WatcherOptions {
    // The settings domain and its key that name the folder holding the synced folder.
    std::string settingsDomain;
    std::string pathKey;
    // The file watcher's domain and its status key.
    std::string statusDomain;
    std::string statusKey;
    // The IPC name of the sync service, whose SyncFile is called when no pass takes a raise up.
    std::string serviceName;
    RaiseTiming timing;
    // A test aid: see WatchTree.
    std::optional<std::size_t> queueLimit;
    // Where the state is kept; empty for nowhere.
    std::filesystem::path stateFile;
};

class Watcher {
public:
    Watcher(platform::UserDefaults& store, WatcherOptions options);

    // Runs until `stopDescriptor` becomes readable (a signalfd, a pipe ...). Removes the state file at the end.
    void run(int stopDescriptor);

private:
    using Time = RaisePolicy::Time;

    // The synced folder the settings name now, if they name one.
    std::optional<std::filesystem::path> syncedFolder();
    // Follows the setting and the folder: starts watching again when either changed, or the folder came back.
    void followSettings(Time now);
    // Sets up every watch anew; `changed`: count it as a change (what happened meanwhile was not seen).
    void startWatching(Time now, bool changed);
    void readEvents(Time now);
    void act(Time now);
    void noteChange(Time now);
    void updateState(bool atOnce);

    platform::UserDefaults& m_store;
    WatcherOptions m_options;
    StatusFlag m_status;
    WatchTree m_tree;
    RaisePolicy m_policy;
    std::optional<std::filesystem::path> m_folder;
    Shortage m_reportedShortage = Shortage::none;
    std::size_t m_changesSinceRaise = 0;
    Time m_nextRetry;
    WatcherState m_state;
    WatcherState m_written;
    Time m_stateWritten;
};

}
