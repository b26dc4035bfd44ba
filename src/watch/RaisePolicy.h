#pragma once

// watch::RaisePolicy: when the file watcher raises the status, and when it calls SyncFile. It knows nothing of
// files or domains; the watcher tells it what it saw and asks it what to do, with the time, so that it can be
// tested without waiting.
//
// The status is "1" when a pass is wanted; the pass that takes it up writes "0" at its end, and so does the
// completion of that pass's report. The rules:
// - A change while the status is not "1" raises it at once, or nearly: the raise waits `coalesce` after the first
//   change, so that the events of one operation (a file made, written and closed; sed -i's new file renamed over the
//   old one) are all read before it and do not count as changes after it. A change while it is "1" writes nothing: the domain is
//   never rewritten while it holds "1". So a burst of changes gives one raise per pass, however long it lasts.
// - Our "1" overwritten by another writer (a pass's "0", a report's "0", someone's own "1"): if changes came after
//   our raise, raise again, because the pass may have walked past them. If none came, raise once more anyway (a
//   confirming raise): the "0" may come from a pass that started before our raise, or from a report that finished
//   after it, and then no pass has yet seen the changes our raise stood for. A confirming raise overwritten with no
//   change after it ends the chain.
// - A "1" that no pass takes up within `takeUp` means that no polling loop runs (the service was restarted, or is
//   not running): then SyncFile is called, once, until a pass is seen to end. SyncFile starts a loop, and in strict
//   mode every call starts one more, so it is never called while the service is seen to work.
// - Safety raises: every `rescan` since the last raise, or every `poll` while part of the tree cannot be watched.

#include <chrono>
#include <optional>

namespace watch {

struct RaiseTiming {
    std::chrono::milliseconds takeUp { 5000 };
    // How long to wait before calling SyncFile again after the service could not be reached.
    std::chrono::milliseconds unreachableRetry { 30000 };
    std::chrono::milliseconds rescan { std::chrono::minutes(10) };
    std::chrono::milliseconds poll { 5000 };
    std::chrono::milliseconds coalesce { 20 };
};

class RaisePolicy {
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    enum class Action { none, raise, callSyncFile };

    RaisePolicy(RaiseTiming timing, Time now);

    // Something changed in the synced folder.
    void changed(Time now);
    // Another process wrote the status domain since the last look; `statusRaised`: it holds "1" now.
    void writtenByOthers(Time now, bool statusRaised);
    // Part of the tree cannot be watched: poll it by raising every `poll`.
    void setPolling(bool polling) { m_polling = polling; }

    // What to do now, with the status as it is: raised ("1") or not.
    Action next(Time now, bool statusRaised) const;
    // The watcher raised the status.
    void raised(Time now);
    // The watcher called SyncFile; `reached`: the message reached the service's socket.
    void syncFileCalled(Time now, bool reached);

    // Our "1" is in the domain and no other writer has touched it since.
    bool awaitingPass() const { return m_raisedAt.has_value(); }
    // Something is waiting to be raised or taken up: the watcher then looks at the status more often.
    bool busy() const { return m_pendingSince || m_raisedAt || m_confirmationDue; }
    // Changes wait for their raise: the watcher looks again after `coalesce`.
    bool raiseWaiting() const { return m_pendingSince.has_value(); }

private:
    RaiseTiming m_timing;
    // The first change that no raise of ours stands for yet.
    std::optional<Time> m_pendingSince;
    // Our raise that is still in the domain, whether it only confirms, and the first change since it.
    std::optional<Time> m_raisedAt;
    bool m_raiseConfirms = false;
    std::optional<Time> m_changedSinceRaise;
    bool m_confirmationDue = false;
    Time m_lastRaise;
    // The last write of another process: the service at work.
    std::optional<Time> m_othersWrote;
    bool m_syncFileCalled = false;
    Time m_syncFileRetry;
    bool m_polling = false;
};

}
