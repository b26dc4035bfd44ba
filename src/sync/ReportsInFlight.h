#pragma once

// Whether a batch report of the engine is under way, for a guarded pass that must not start before the report's
// table is stored: a pass that began meanwhile would find the same differences and report them a second time. The
// pass holds back with the status left busy, and the report's end raises the status again, since storing an
// accepted report writes "0". A report whose completion never comes (a transport that drops it) stops counting as
// under way after `limit`.

#include <atomic>
#include <chrono>
#include <functional>

namespace engine {

class ReportsInFlight {
public:
    static constexpr std::chrono::seconds limit { 150 };

    void started();
    // True when a report is under way: the pass holds back (logged once per report).
    bool holdBackPass();

    // Ends the report when it goes out of scope; `raise` runs then when a pass held back meanwhile.
    class Finishing {
    public:
        Finishing(ReportsInFlight& reports, std::function<void()> raise);
        ~Finishing();
        Finishing(const Finishing&) = delete;
        Finishing& operator=(const Finishing&) = delete;

    private:
        ReportsInFlight& m_reports;
        std::function<void()> m_raise;
    };

private:
    std::atomic<int> m_underWay { 0 };
    std::atomic<std::int64_t> m_lastStart { 0 };
    std::atomic<bool> m_passHeldBack { false };
};

}
