#pragma once

// This process's file descriptors, for tests that check that nothing is left open.

#include <sys/resource.h>

#include <atomic>
#include <cstddef>
#include <thread>

namespace testsupport {

// How many descriptors the process has open.
std::size_t openDescriptorCount();

// Samples the open-descriptor count every 2 ms on a thread of its own, from construction until stop(), and keeps
// the highest count seen, for load tests that report how many descriptors a burst of requests holds at once.
class PeakDescriptorSampler {
public:
    PeakDescriptorSampler();
    ~PeakDescriptorSampler();
    PeakDescriptorSampler(const PeakDescriptorSampler&) = delete;
    PeakDescriptorSampler& operator=(const PeakDescriptorSampler&) = delete;

    // Ends the sampling (once) and gives the peak.
    std::size_t stop();

private:
    std::atomic<bool> m_sampling { true };
    std::atomic<std::size_t> m_peak;
    std::thread m_sampler;
};

// Raises the soft limit of open descriptors to `wanted` (at most the hard limit), for tests that open many.
void raiseDescriptorLimit(rlim_t wanted);

}
