#pragma once

// The file watcher's state for people: a small JSON file in the runtime folder that the running watcher keeps up to
// date and removes when it stops, and that `korbanhold status` shows.
//
//   { "pid": 1234, "mode": "watching", "reason": "", "syncedFolder": "/home/ann/Korbanhold",
//     "foldersWatched": 12, "foldersUnwatched": 0, "started": "2026-11-24 15:20:04",
//     "lastEvent": "2026-11-24 15:31:10", "lastRaise": "2026-11-24 15:31:10" }
//
// mode: "watching" (every folder has a watch), "polling" (some or all folders cannot be watched, so the status is
// raised every few seconds; reason says which limit), "waiting" (there is no synced folder to watch yet; reason
// says why). Times are local, empty until the first one.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

namespace watch {

struct WatcherState {
    pid_t pid = 0;
    std::string mode;
    std::string reason;
    std::string syncedFolder;
    std::size_t foldersWatched = 0;
    std::size_t foldersUnwatched = 0;
    std::string started;
    std::string lastEvent;
    std::string lastRaise;

    bool operator==(const WatcherState&) const = default;
};

// <runtime folder>/korbanhold-watch.state. Raises platform::ipc::ListenError when there is no runtime folder.
std::filesystem::path watcherStateFile();

// Replaces the file atomically. Raises std::system_error.
void writeWatcherState(const std::filesystem::path& file, const WatcherState& state);
// The state in the file; absent when there is none or it is not a state.
std::optional<WatcherState> readWatcherState(const std::filesystem::path& file);

// The local time now, as the state file writes times.
std::string stateTimeNow();

// One paragraph for `korbanhold status`: what the watcher does, or that none runs.
std::string describeWatcher(const std::filesystem::path& file);

}
