#include "support/Descriptors.h"

#include <algorithm>
#include <filesystem>

namespace testsupport {

std::size_t openDescriptorCount()
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

void raiseDescriptorLimit(rlim_t wanted)
{
    rlimit limit {};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < wanted) {
        limit.rlim_cur = std::min(wanted, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}
