#include "platform/Queue.h"

#include "platform/Log.h"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <map>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace platform {

namespace asio = boost::asio;

namespace {

using namespace std::chrono_literals;

// The queue whose task the calling thread is running, if any.
thread_local const Queue* t_currentQueue = nullptr;
// True on the threads of the pool.
thread_local bool t_onPoolThread = false;

class CurrentQueueScope {
public:
    explicit CurrentQueueScope(const Queue* queue) : m_previous(std::exchange(t_currentQueue, queue)) { }
    ~CurrentQueueScope() { t_currentQueue = m_previous; }
    CurrentQueueScope(const CurrentQueueScope&) = delete;
    CurrentQueueScope& operator=(const CurrentQueueScope&) = delete;

private:
    const Queue* m_previous;
};

// The threads behind the global queue and the serial queues.
class Pool {
public:
    static constexpr std::size_t maximumThreads = 64;

    Pool()
        : m_work(asio::make_work_guard(m_context))
        , m_base(std::max<std::size_t>(2, std::thread::hardware_concurrency()))
    {
        std::lock_guard lock(m_mutex);
        while (m_threads.size() < m_base)
            startThread();
    }

    asio::io_context& context() { return m_context; }

    // A pool thread is about to wait in sync(): keep `m_base` threads free to run what it waits for.
    void beginWait()
    {
        std::lock_guard lock(m_mutex);
        ++m_waiting;
        if (!m_stopping && m_threads.size() - m_waiting < m_base && m_threads.size() < maximumThreads)
            startThread();
    }

    void endWait()
    {
        std::lock_guard lock(m_mutex);
        --m_waiting;
    }

    // Lets the running tasks finish (for a while), drops the rest and joins the threads.
    void stop()
    {
        std::unique_lock lock(m_mutex);
        m_stopping = true;
        m_context.stop();
        // exit() may be called from a task, whose own thread cannot leave run() before exit() returns.
        const std::size_t remaining = t_onPoolThread ? 1 : 0;
        if (!m_exited.wait_for(lock, 2s, [&] { return m_running == remaining; }))
            return; // A task that hangs keeps its thread; the process ends around it.
        for (std::thread& thread : m_threads) {
            if (thread.get_id() != std::this_thread::get_id())
                thread.join();
            else
                thread.detach();
        }
        m_threads.clear();
    }

private:
    // Called with m_mutex held.
    void startThread()
    {
        ++m_running;
        m_threads.emplace_back([this] {
            t_onPoolThread = true;
            pthread_setname_np(pthread_self(), "korbanhold-pool");
            m_context.run();
            std::lock_guard lock(m_mutex);
            --m_running;
            m_exited.notify_all();
        });
    }

    asio::io_context m_context;
    asio::executor_work_guard<asio::io_context::executor_type> m_work;
    const std::size_t m_base;
    std::mutex m_mutex;
    std::condition_variable m_exited;
    std::vector<std::thread> m_threads;
    std::size_t m_running = 0;
    std::size_t m_waiting = 0;
    bool m_stopping = false;
};

// Marks the calling pool thread as waiting for another queue while the object lives.
class PoolWaitScope {
public:
    explicit PoolWaitScope(Pool& pool) : m_pool(t_onPoolThread ? &pool : nullptr)
    {
        if (m_pool)
            m_pool->beginWait();
    }
    ~PoolWaitScope()
    {
        if (m_pool)
            m_pool->endWait();
    }
    PoolWaitScope(const PoolWaitScope&) = delete;
    PoolWaitScope& operator=(const PoolWaitScope&) = delete;

private:
    Pool* m_pool;
};

// The io_context of the main queue, run by whichever thread calls runMainQueue().
class MainLoop {
public:
    MainLoop() : m_work(asio::make_work_guard(m_context)) { }

    asio::any_io_executor executor() { return m_context.get_executor(); }

    void run()
    {
        {
            std::lock_guard lock(m_mutex);
            // A stop asked for before the loop ran ends this run at once.
            if (std::exchange(m_stopRequested, false))
                return;
            m_running = true;
            m_context.restart();
        }
        m_context.run();
        std::lock_guard lock(m_mutex);
        m_running = false;
    }

    void stop()
    {
        std::lock_guard lock(m_mutex);
        if (m_running)
            m_context.stop();
        else
            m_stopRequested = true;
    }

private:
    asio::io_context m_context;
    asio::executor_work_guard<asio::io_context::executor_type> m_work;
    std::mutex m_mutex;
    bool m_running = false;
    bool m_stopRequested = false;
};

enum class QueueKind { Main, Global, Serial };

void runLoggingExceptions(const std::string& label, const Task& task)
{
    runLoggingUncaught(format("a task of queue %@", label), task);
}

class QueueImpl;

// The `after` tasks held back while a TestClock lives, keyed by due time and then submission order.
struct VirtualTime {
    struct Waiting {
        std::shared_ptr<QueueImpl> queue;
        Task task;
    };
    using Key = std::pair<std::chrono::nanoseconds, std::uint64_t>;

    mutable std::mutex mutex;
    bool active = false;
    std::chrono::nanoseconds now { 0 };
    std::uint64_t submissions = 0;
    std::map<Key, Waiting> waiting;

    // Holds `task` back when virtual time is on; false (and `task` untouched) otherwise.
    bool hold(std::shared_ptr<QueueImpl> queue, std::chrono::nanoseconds delay, Task& task)
    {
        std::lock_guard lock(mutex);
        if (!active)
            return false;
        waiting.emplace(Key { now + delay, submissions++ }, Waiting { std::move(queue), std::move(task) });
        return true;
    }
};

VirtualTime& virtualTime()
{
    // Never destroyed: a pool thread may still schedule while the program's statics go away.
    static VirtualTime* const instance = new VirtualTime;
    return *instance;
}

struct Runtime;
Runtime& runtime();

class QueueImpl final : public Queue, public std::enable_shared_from_this<QueueImpl> {
public:
    QueueImpl(QueueKind kind, std::string label, asio::any_io_executor executor)
        : m_kind(kind)
        , m_label(std::move(label))
        , m_executor(std::move(executor))
    {
    }

    void async(Task task) override
    {
        asio::post(m_executor, [self = shared_from_this(), task = std::move(task)] {
            CurrentQueueScope scope(self.get());
            runLoggingExceptions(self->m_label, task);
        });
    }

    void after(std::chrono::nanoseconds delay, Task task) override;

    void sync(Task task) override;

    bool isCurrent() const override { return t_currentQueue == this; }

    const std::string& label() const override { return m_label; }

    // Runs a task that has come due in virtual time, waiting for it where waiting cannot deadlock.
    void runDue(Task task)
    {
        if (m_kind == QueueKind::Main || isCurrent())
            return async(std::move(task));
        sync([this, &task] { runLoggingExceptions(m_label, task); });
    }

private:
    const QueueKind m_kind;
    const std::string m_label;
    const asio::any_io_executor m_executor;
};

struct Runtime {
    Pool pool;
    MainLoop mainLoop;
    std::shared_ptr<QueueImpl> mainQueue = std::make_shared<QueueImpl>(QueueKind::Main, "main", mainLoop.executor());
    std::shared_ptr<QueueImpl> globalQueue
        = std::make_shared<QueueImpl>(QueueKind::Global, "global.background", pool.context().get_executor());
    // Waited for on the pool, so that a signal stops the main queue even while no thread is running it.
    asio::signal_set stopSignals { pool.context() };
};

void waitForStopSignal(asio::signal_set& signals)
{
    signals.async_wait([&signals](const boost::system::error_code& error, int) {
        if (error)
            return;
        runtime().mainLoop.stop();
        waitForStopSignal(signals);
    });
}

Runtime& runtime()
{
    // Never destroyed, so that queues stay valid while static objects are destroyed at exit; the threads are stopped
    // by the exit handler before that.
    static Runtime* const instance = [] {
        auto* created = new Runtime;
        std::atexit([] {
            runtime().mainLoop.stop();
            runtime().pool.stop();
        });
        return created;
    }();
    return *instance;
}

void QueueImpl::after(std::chrono::nanoseconds delay, Task task)
{
    if (virtualTime().hold(shared_from_this(), delay, task))
        return;
    auto timer = std::make_shared<asio::steady_timer>(runtime().pool.context(), delay);
    timer->async_wait(
        [timer, self = shared_from_this(), task = std::move(task)](const boost::system::error_code& error) mutable {
            if (!error)
                self->async(std::move(task));
        });
}

void QueueImpl::sync(Task task)
{
    if (m_kind == QueueKind::Global) {
        CurrentQueueScope scope(this);
        task();
        return;
    }
    if (isCurrent())
        throw std::logic_error("sync() called from a task of the same serial queue " + m_label);
    std::packaged_task<void()> job(std::move(task));
    std::future<void> done = job.get_future();
    asio::post(m_executor, [self = shared_from_this(), &job] {
        CurrentQueueScope scope(self.get());
        job();
    });
    PoolWaitScope waiting(runtime().pool);
    done.get();
}

}

std::shared_ptr<Queue> Queue::main()
{
    return runtime().mainQueue;
}

std::shared_ptr<Queue> Queue::globalBackground()
{
    return runtime().globalQueue;
}

std::shared_ptr<Queue> Queue::current()
{
    // Every queue is a QueueImpl; the scope that set the pointer holds a reference to it.
    auto* queue = const_cast<QueueImpl*>(static_cast<const QueueImpl*>(t_currentQueue));
    return queue ? queue->shared_from_this() : nullptr;
}

std::shared_ptr<Queue> Queue::makeSerial(std::string label)
{
    return std::make_shared<QueueImpl>(QueueKind::Serial, std::move(label), asio::make_strand(runtime().pool.context()));
}

void runMainQueue()
{
    runtime().mainLoop.run();
}

void stopMainQueue()
{
    runtime().mainLoop.stop();
}

void stopMainQueueOnSignals(std::initializer_list<int> signals)
{
    asio::signal_set& stopSignals = runtime().stopSignals;
    for (int signal : signals)
        stopSignals.add(signal);
    static std::once_flag waiting;
    std::call_once(waiting, [&] { waitForStopSignal(stopSignals); });
}

TestClock::TestClock()
{
    VirtualTime& time = virtualTime();
    std::lock_guard lock(time.mutex);
    if (time.active)
        throw std::logic_error("only one TestClock may live at a time");
    time.active = true;
    time.now = {};
}

TestClock::~TestClock()
{
    VirtualTime& time = virtualTime();
    std::map<VirtualTime::Key, VirtualTime::Waiting> dropped;
    {
        std::lock_guard lock(time.mutex);
        time.active = false;
        time.now = {};
        dropped.swap(time.waiting);
    }
    // The dropped tasks (and what they hold) are destroyed here, outside the lock.
}

void TestClock::advance(std::chrono::nanoseconds delta)
{
    VirtualTime& time = virtualTime();
    const auto target = now() + delta;
    for (;;) {
        VirtualTime::Waiting due;
        {
            std::lock_guard lock(time.mutex);
            if (time.waiting.empty() || time.waiting.begin()->first.first > target) {
                time.now = target;
                return;
            }
            auto node = time.waiting.extract(time.waiting.begin());
            time.now = node.key().first;
            due = std::move(node.mapped());
        }
        // Run without the lock: the task may schedule more `after` tasks (and what it holds is released here too).
        due.queue->runDue(std::move(due.task));
    }
}

std::chrono::nanoseconds TestClock::now() const
{
    VirtualTime& time = virtualTime();
    std::lock_guard lock(time.mutex);
    return time.now;
}

std::size_t TestClock::pendingCount() const
{
    VirtualTime& time = virtualTime();
    std::lock_guard lock(time.mutex);
    return time.waiting.size();
}

}
