#pragma once

// Which way the engine runs: guarded (the default) or strict.
//
// Strict is the system exactly as designed, every kept quirk included. Guarded adds the safeguards against losing
// data on the server that docs/safeguards.md lists: a missing or suddenly empty synced folder is not reported as
// deleted, moves and hard links are matched to the right table entries, an edit of the size or the date alone is a
// modification, one polling loop serves the whole process, a failed or refused report stores nothing and is retried
// with a backoff, and a pass that keeps failing for the same reason works around the record that causes it.
//
// The mode is chosen once per process (`KORBANHOLD_STRICT=1`, or `korbanhold-sync-service --strict`); each safeguard
// asks its question here, at one place in the code.

#include <chrono>
#include <string_view>

namespace engine {

class SyncPolicy {
public:
    static SyncPolicy strict();
    static SyncPolicy guarded();
    // Strict when $KORBANHOLD_STRICT is "1", guarded otherwise.
    static SyncPolicy fromEnvironment();
    // The mode of this process: fromEnvironment() until the program sets one (its --strict option).
    static SyncPolicy forProcess();
    static void setForProcess(SyncPolicy policy);

    bool isStrict() const { return m_strict; }
    // "strict" or "guarded", as `korbanhold status` and the log show it.
    std::string_view name() const { return m_strict ? "strict" : "guarded"; }

    // A missing synced folder (or setting) is not walked as an empty one while the table lists items.
    bool guardsMissingRoot() const { return !m_strict; }
    // A walk that finds nothing does not delete a non-empty table unless a person confirmed it.
    bool guardsEmptiedRoot() const { return !m_strict; }
    // Items are matched to table entries by path and file number together, each walked path on its own: no shift
    // after a move, hard links as items of their own, a reused file number not taken for a move.
    bool matchesItemsExactly() const { return !m_strict; }
    // An item renamed within its folder whose size or date text changed too is also reported modified (strict: the
    // renamed record alone, with the old size and date).
    bool reportsChangesOfRenamedItems() const { return !m_strict; }
    // A size text or a date text of a file that changed makes a modification (strict: both must change).
    bool modifiedWhenEitherTextChanged() const { return !m_strict; }
    // One engine for the whole process, whatever the number of connections and messages (the service host asks),
    // and one polling loop per engine, whatever the number of SyncFile calls (the engine asks).
    bool oneEnginePerProcess() const { return !m_strict; }
    bool oneLoopPerEngine() const { return !m_strict; }
    // The deletions of a pass (moves' old paths included) are reported before its other changes, so that a folder
    // renamed on the server cannot carry along an item the same report deletes at its old path.
    bool reportsDeletionsFirst() const { return !m_strict; }
    // A report answered with an HTTP error, a body that is not a list of results, or a refused change stores
    // nothing for those changes.
    bool checksReportReplies() const { return !m_strict; }
    // A pass waits while a batch report of the object is under way, so that it does not report the same changes
    // again before the table is stored; the report's end raises the status for it.
    bool waitsForReportsInFlight() const { return !m_strict; }
    // An accepted report stores the table once, with the server's identifiers in it (strict: twice, first without
    // them), so that a service that ends in between cannot keep new items without their identifiers for good.
    bool storesTableOnceWithIdentifiers() const { return !m_strict; }
    // A report that stored nothing raises the status again after a backoff.
    bool retriesFailedReports() const { return !m_strict; }
    // A pass that failed for the same reason three times in a row leaves out what causes the failure.
    bool worksAroundRepeatedFailures() const { return !m_strict; }

    // The first delay of the retry backoff (2 s; $KORBANHOLD_RETRY_BACKOFF_MS shortens it for tests) and its cap.
    std::chrono::milliseconds firstRetryDelay() const { return m_firstRetryDelay; }
    static constexpr std::chrono::milliseconds maximumRetryDelay { 5 * 60 * 1000 };

private:
    explicit SyncPolicy(bool strict);

    bool m_strict;
    std::chrono::milliseconds m_firstRetryDelay;
};

}
