#include "platform/HttpEngine.h"

#include "platform/HttpTransfer.h"

#include <algorithm>

namespace platform::http {

namespace {

// The longest the I/O thread sleeps when nothing is due; commands and socket activity wake it earlier.
constexpr int idlePollMilliseconds = 1000;

CURLM* makeMultiHandle()
{
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    return initialised == CURLE_OK ? curl_multi_init() : nullptr;
}

}

Engine& Engine::shared()
{
    static Engine engine;
    return engine;
}

Engine::Engine()
    : m_multi(makeMultiHandle())
{
    // Started last, once every member the thread uses exists.
    m_thread = std::thread([this] { run(); });
}

Engine::~Engine()
{
    {
        std::lock_guard lock(m_commandsMutex);
        m_stopping = true;
    }
    curl_multi_wakeup(m_multi);
    m_thread.join();
    // Tasks still running when the process ends are dropped without a report.
    for (auto& [task, transfer] : m_transfers)
        curl_multi_remove_handle(m_multi, transfer->handle());
    m_transfers.clear();
    curl_multi_cleanup(m_multi);
}

void Engine::start(std::shared_ptr<Task> task)
{
    post(Command { Command::Kind::Start, std::move(task) });
}

void Engine::cancel(std::shared_ptr<Task> task)
{
    post(Command { Command::Kind::Cancel, std::move(task) });
}

testhooks::TransferCounts Engine::transferCounts() const
{
    return { m_transferCount.load(), m_peakTransferCount.load() };
}

void Engine::resetPeakTransferCount()
{
    m_peakTransferCount = m_transferCount.load();
}

void Engine::post(Command command)
{
    {
        std::lock_guard lock(m_commandsMutex);
        m_commands.push_back(std::move(command));
    }
    curl_multi_wakeup(m_multi);
}

void Engine::run()
{
    for (;;) {
        std::vector<Command> commands;
        {
            std::lock_guard lock(m_commandsMutex);
            if (m_stopping)
                return;
            commands.swap(m_commands);
        }
        for (const Command& command : commands)
            apply(command);

        int running = 0;
        curl_multi_perform(m_multi, &running);
        collectFinished();
        expireTimedOut();
        curl_multi_poll(m_multi, nullptr, 0, pollTimeoutMilliseconds(), nullptr);
    }
}

void Engine::apply(const Command& command)
{
    if (command.kind == Command::Kind::Start) {
        begin(command.task);
        return;
    }
    if (auto found = m_transfers.find(command.task.get()); found != m_transfers.end())
        end(*found->second, found->second->failure(urlError(URLErrorCancelled)));
}

void Engine::begin(std::shared_ptr<Task> task)
{
    auto transfer = std::make_unique<Transfer>(task);
    if (auto error = transfer->prepare()) {
        task->finish(Result::failure(std::move(*error)));
        return;
    }
    Transfer& added = *transfer;
    m_transfers.emplace(task.get(), std::move(transfer));
    m_transferCount = m_transfers.size();
    m_peakTransferCount = std::max(m_peakTransferCount.load(), m_transfers.size());

    HostSlot& slot = m_slots[{ task->m_session.get(), added.hostKey() }];
    const std::size_t limit = std::max<std::size_t>(task->m_session->configuration().httpMaximumConnectionsPerHost, 1);
    if (slot.active < limit)
        activate(added);
    else
        slot.waiting.push_back(&added);
}

void Engine::activate(Transfer& transfer)
{
    m_slots[{ transfer.task()->m_session.get(), transfer.hostKey() }].active += 1;
    curl_multi_add_handle(m_multi, transfer.handle());
}

void Engine::end(Transfer& transfer, Result result)
{
    const HostSlotKey key { transfer.task()->m_session.get(), transfer.hostKey() };
    HostSlot& slot = m_slots[key];
    if (auto waiting = std::find(slot.waiting.begin(), slot.waiting.end(), &transfer); waiting != slot.waiting.end()) {
        slot.waiting.erase(waiting);
    } else {
        curl_multi_remove_handle(m_multi, transfer.handle());
        slot.active -= 1;
    }
    // The transfer goes first, closing its connection and files, so that nothing of it is left when the report
    // runs.
    const std::shared_ptr<Task> task = transfer.task();
    const auto waitLimit = std::max(transfer.deadline() - Transfer::Clock::now(), Transfer::Clock::duration::zero());
    m_transfers.erase(task.get());
    m_transferCount = m_transfers.size();
    task->transferEnded(std::move(result), waitLimit);

    if (!slot.waiting.empty()) {
        Transfer* next = slot.waiting.front();
        slot.waiting.pop_front();
        activate(*next);
    } else if (slot.active == 0) {
        m_slots.erase(key);
    }
}

void Engine::collectFinished()
{
    int remaining = 0;
    while (CURLMsg* message = curl_multi_info_read(m_multi, &remaining)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        Transfer* transfer = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
        const CURLcode code = message->data.result;
        end(*transfer, transfer->result(code));
    }
}

void Engine::expireTimedOut()
{
    const auto now = Transfer::Clock::now();
    std::vector<Transfer*> expired;
    for (const auto& [task, transfer] : m_transfers) {
        if (transfer->deadline() <= now)
            expired.push_back(transfer.get());
    }
    for (Transfer* transfer : expired)
        end(*transfer, transfer->failure(urlError(URLErrorTimedOut)));
}

int Engine::pollTimeoutMilliseconds() const
{
    long curlTimeout = -1;
    curl_multi_timeout(m_multi, &curlTimeout);
    long timeout = curlTimeout < 0 ? idlePollMilliseconds : std::min<long>(curlTimeout, idlePollMilliseconds);
    const auto now = Transfer::Clock::now();
    for (const auto& [task, transfer] : m_transfers) {
        const auto untilDeadline = std::chrono::ceil<std::chrono::milliseconds>(transfer->deadline() - now).count();
        timeout = std::min<long>(timeout, std::max<long>(untilDeadline, 0));
    }
    return static_cast<int>(timeout);
}

}
