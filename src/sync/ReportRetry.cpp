#include "sync/ReportRetry.h"

#include "platform/Queue.h"

#include <algorithm>

namespace engine {

ReportRetry::ReportRetry(std::chrono::milliseconds first, std::chrono::milliseconds maximum)
    : m_first(first)
    , m_maximum(std::max(first, maximum))
    , m_next(first)
{
}

std::optional<std::chrono::milliseconds> ReportRetry::failed(std::function<void()> raise)
{
    std::chrono::milliseconds delay;
    {
        std::lock_guard lock(m_mutex);
        if (m_waiting)
            return std::nullopt;
        m_waiting = true;
        delay = m_next;
        m_next = std::min(m_next * 2, m_maximum);
    }
    platform::Queue::globalBackground()->after(delay, [this, raise = std::move(raise)] {
        {
            std::lock_guard lock(m_mutex);
            m_waiting = false;
        }
        raise();
    });
    return delay;
}

void ReportRetry::succeeded()
{
    std::lock_guard lock(m_mutex);
    m_next = m_first;
}

}
