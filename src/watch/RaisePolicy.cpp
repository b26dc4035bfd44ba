#include "watch/RaisePolicy.h"

#include <algorithm>

namespace watch {

RaisePolicy::RaisePolicy(RaiseTiming timing, Time now)
    : m_timing(timing)
    , m_lastRaise(now)
    , m_syncFileRetry(now)
{
}

void RaisePolicy::changed(Time now)
{
    auto& since = m_raisedAt ? m_changedSinceRaise : m_pendingSince;
    if (!since)
        since = now;
}

void RaisePolicy::writtenByOthers(Time now, bool statusRaised)
{
    m_othersWrote = now;
    // A pass has ended: the service polls.
    if (!statusRaised)
        m_syncFileCalled = false;
    if (!m_raisedAt)
        return;
    if (m_changedSinceRaise)
        m_pendingSince = std::min(m_pendingSince.value_or(*m_changedSinceRaise), *m_changedSinceRaise);
    else if (!m_raiseConfirms)
        m_confirmationDue = true;
    m_raisedAt.reset();
    m_changedSinceRaise.reset();
}

RaisePolicy::Action RaisePolicy::next(Time now, bool statusRaised) const
{
    if (!statusRaised) {
        const auto safetyInterval = m_polling ? m_timing.poll : m_timing.rescan;
        const bool changesDue = m_pendingSince && now >= *m_pendingSince + m_timing.coalesce;
        const bool wanted = changesDue || m_confirmationDue || now >= m_lastRaise + safetyInterval;
        return wanted ? Action::raise : Action::none;
    }
    // The status is "1": a pass is due. Has one been wanted for longer than a pass takes to come?
    std::optional<Time> wantedSince = m_raisedAt;
    if (m_pendingSince)
        wantedSince = std::min(wantedSince.value_or(*m_pendingSince), *m_pendingSince);
    if (!wantedSince || m_syncFileCalled || now < m_syncFileRetry)
        return Action::none;
    const Time quietSince = m_othersWrote ? std::max(*wantedSince, *m_othersWrote) : *wantedSince;
    return now >= quietSince + m_timing.takeUp ? Action::callSyncFile : Action::none;
}

void RaisePolicy::raised(Time now)
{
    m_raisedAt = now;
    m_raiseConfirms = !m_pendingSince;
    m_pendingSince.reset();
    m_changedSinceRaise.reset();
    m_confirmationDue = false;
    m_lastRaise = now;
}

void RaisePolicy::syncFileCalled(Time now, bool reached)
{
    if (reached)
        m_syncFileCalled = true;
    else
        m_syncFileRetry = now + m_timing.unreachableRetry;
}

}
