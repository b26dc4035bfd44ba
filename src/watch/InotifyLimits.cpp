#include "watch/InotifyLimits.h"

#include <fstream>

namespace watch {

namespace {

long readNumber(const std::string& file)
{
    std::ifstream in(file);
    long value = -1;
    if (!(in >> value))
        return -1;
    return value;
}

InotifyLimit lowerOf(InotifyLimit system, InotifyLimit userNamespace)
{
    system.value = readNumber(system.file);
    userNamespace.value = readNumber(userNamespace.file);
    if (userNamespace.value >= 0 && (system.value < 0 || userNamespace.value < system.value))
        return userNamespace;
    return system;
}

}

InotifyLimit inotifyLimit(Shortage shortage)
{
    if (shortage == Shortage::instances)
        return lowerOf({ -1, "fs.inotify.max_user_instances", "/proc/sys/fs/inotify/max_user_instances" },
            { -1, "user.max_inotify_instances", "/proc/sys/user/max_inotify_instances" });
    return lowerOf({ -1, "fs.inotify.max_user_watches", "/proc/sys/fs/inotify/max_user_watches" },
        { -1, "user.max_inotify_watches", "/proc/sys/user/max_inotify_watches" });
}

std::string shortageMessage(Shortage shortage, const InotifyLimit& limit, const std::filesystem::path& root,
    std::size_t folders, std::size_t unwatched, std::chrono::milliseconds pollInterval)
{
    const bool instances = shortage == Shortage::instances;
    const std::string limitText = limit.value < 0 ? "unknown" : std::to_string(limit.value);
    // Enough for this tree twice over, above what is set now; instances are few, a handful more do.
    const long proposed = instances ? std::max(limit.value, 64L) * 2
                                    : (std::max(limit.value, 0L) + static_cast<long>(unwatched)) * 2;
    const std::string setting = limit.sysctlName + "=" + std::to_string(proposed);
    return std::string(instances ? "The inotify instance limit is reached" : "The inotify watch limit is reached")
        + " (" + limit.file + ": " + limitText + "): " + std::to_string(unwatched) + " of "
        + std::to_string(folders) + " folders of " + root.string() + " are not watched; their changes are found by "
        + "raising the status every " + std::to_string(pollInterval.count() / 1000) + " s instead. Raise the limit "
        + "with: sudo sysctl -w " + setting + " (to keep it: echo " + setting
        + " | sudo tee /etc/sysctl.d/90-korbanhold.conf)";
}

}
