#include "sync/ReportsInFlight.h"

#include "platform/Exception.h"
#include "platform/Log.h"

namespace engine {

namespace {
    std::int64_t now()
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
}

void ReportsInFlight::started()
{
    m_lastStart = now();
    ++m_underWay;
}

bool ReportsInFlight::holdBackPass()
{
    if (m_underWay.load() <= 0)
        return false;
    if (now() - m_lastStart.load() > std::chrono::milliseconds(limit).count())
        return false;
    if (!m_passHeldBack.exchange(true))
        platform::log("The pass waits for the batch report under way");
    return true;
}

ReportsInFlight::Finishing::Finishing(ReportsInFlight& reports, std::function<void()> raise)
    : m_reports(reports)
    , m_raise(std::move(raise))
{
}

ReportsInFlight::Finishing::~Finishing()
{
    --m_reports.m_underWay;
    if (m_reports.m_passHeldBack.exchange(false))
        platform::runLoggingUncaught("the end of a batch report", m_raise);
}

}
