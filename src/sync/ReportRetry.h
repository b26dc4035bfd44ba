#pragma once

// The backoff of the retries after failed batch reports: the first retry 2 s after a report that stored nothing,
// each further one twice as late, at most 5 minutes; a stored report starts again from 2 s. At most one retry waits
// at a time, so failures that come while one waits do not pile up raises.

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>

namespace engine {

class ReportRetry {
public:
    ReportRetry(std::chrono::milliseconds first, std::chrono::milliseconds maximum);

    // A report stored nothing (or not everything): `raise` runs once the current delay has passed, unless a retry
    // is already waiting. Answers the delay, or nothing when one was already waiting.
    std::optional<std::chrono::milliseconds> failed(std::function<void()> raise);
    // A report was stored whole: the next failure waits the first delay again.
    void succeeded();

private:
    std::mutex m_mutex;
    std::chrono::milliseconds m_first;
    std::chrono::milliseconds m_maximum;
    std::chrono::milliseconds m_next;
    bool m_waiting = false;
};

}
