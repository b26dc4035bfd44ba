#pragma once

// The HTTP I/O thread: one libcurl multi handle that carries every running task of the process, the sessions'
// connection limits per host, and the tasks' time limits. Tasks reach it through resume() and cancel().

#include "platform/HttpSession.h"

#include <curl/curl.h>

#include <atomic>
#include <deque>
#include <map>
#include <thread>
#include <unordered_map>
#include <vector>

namespace platform::http {

class Transfer;

class Engine {
public:
    // The process's engine; its thread starts on first use and is stopped when the process exits.
    static Engine& shared();

    void start(std::shared_ptr<Task> task);
    void cancel(std::shared_ptr<Task> task);

    testhooks::TransferCounts transferCounts() const;
    void resetPeakTransferCount();

private:
    Engine();
    ~Engine();

    struct Command {
        enum class Kind { Start, Cancel } kind;
        std::shared_ptr<Task> task;
    };
    // The tasks of one session talking to one host.
    struct HostSlot {
        std::size_t active = 0;
        std::deque<Transfer*> waiting;
    };
    using HostSlotKey = std::pair<const Session*, std::string>;

    void post(Command command);
    void run();
    void apply(const Command& command);
    void begin(std::shared_ptr<Task> task);
    void activate(Transfer& transfer);
    // Takes the transfer off the multi handle (or its slot's waiting list), reports `result` and lets the next
    // waiting transfer of its slot start.
    void end(Transfer& transfer, Result result);
    void collectFinished();
    void expireTimedOut();
    int pollTimeoutMilliseconds() const;

    CURLM* const m_multi;
    std::thread m_thread;

    std::mutex m_commandsMutex;
    std::vector<Command> m_commands;
    bool m_stopping = false;

    // Owned by the I/O thread.
    std::unordered_map<const Task*, std::unique_ptr<Transfer>> m_transfers;
    std::map<HostSlotKey, HostSlot> m_slots;

    std::atomic<std::size_t> m_transferCount { 0 };
    std::atomic<std::size_t> m_peakTransferCount { 0 };
};

}
