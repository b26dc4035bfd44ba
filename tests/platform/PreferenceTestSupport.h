#pragma once

// Helpers shared by the preference tests.

#include "platform/PreferenceFiles.h"

#include <chrono>
#include <filesystem>
#include <thread>

namespace testsupport {

// Waits until the file-system clock has moved past the last change of the file at `path`. The cache of a
// preferences store trusts an unchanged identity only for a file changed before it started reading; right after a
// write it reads the file once more.
inline void waitUntilSettled(const std::filesystem::path& path)
{
    int error = 0;
    const auto identity = platform::identityOf(path, error);
    while (identity && !identity->settledBefore(platform::coarseRealTime()))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}
