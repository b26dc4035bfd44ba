#pragma once

// The system's inotify limits, and the one line that tells a person which limit the file watcher reached and the
// exact command that raises it.
//
// Two limits apply per user: the number of watches (one per folder) and the number of instances. The system-wide
// setting is fs.inotify.max_user_watches (or max_user_instances); inside a user namespace the namespace's own
// user.max_inotify_watches (or user.max_inotify_instances) may be lower, and then that is the limit reached.

#include "watch/WatchTree.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace watch {

struct InotifyLimit {
    long value = -1; // -1 when it cannot be read
    std::string sysctlName; // "fs.inotify.max_user_watches" ...
    std::string file; // "/proc/sys/fs/inotify/max_user_watches" ...
};

// The limit in force for `shortage` (watches or instances): the lower of the system-wide one and the user
// namespace's.
InotifyLimit inotifyLimit(Shortage shortage);

// The log line for a shortage met while watching `root`: how many folders it has, how many are not watched, the
// limit, and the command that raises it.
std::string shortageMessage(Shortage shortage, const InotifyLimit& limit, const std::filesystem::path& root,
    std::size_t folders, std::size_t unwatched, std::chrono::milliseconds pollInterval);

}
