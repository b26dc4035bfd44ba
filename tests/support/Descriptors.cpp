#include "support/Descriptors.h"

#include <algorithm>
#include <chrono>
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

PeakDescriptorSampler::PeakDescriptorSampler()
    : m_peak(openDescriptorCount())
    , m_sampler([this] {
        while (m_sampling) {
            m_peak = std::max(m_peak.load(), openDescriptorCount());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    })
{
}

PeakDescriptorSampler::~PeakDescriptorSampler() { stop(); }

std::size_t PeakDescriptorSampler::stop()
{
    m_sampling = false;
    if (m_sampler.joinable())
        m_sampler.join();
    return m_peak;
}

}
