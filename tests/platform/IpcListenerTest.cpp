#include "platform/IpcListener.h"

#include "platform/IpcServiceSocket.h"
#include "platform/helpers/IpcTestSupport.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace platform::ipc;
using testsupport::eventually;

namespace {

constexpr const char* service = "Test.Listener";

class Counter {
public:
    virtual ~Counter() = default;
    virtual void Count() = 0;
};

// Counts its calls, and notes whether two ever overlapped.
class SlowCounter : public Counter {
public:
    void Count() override
    {
        if (running.fetch_add(1) > 0)
            overlapped = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        --running;
        ++calls;
    }

    std::atomic<int> calls = 0;
    std::atomic<int> running = 0;
    std::atomic<bool> overlapped = false;
};

Interface counterInterface() { return Interface::withProtocol<Counter>("Counter", { { "Count", &Counter::Count } }); }

// Exports one new counter per connection, as a service does, and remembers them.
class CountingDelegate : public ListenerDelegate {
public:
    bool listener(Listener&, const std::shared_ptr<ListenerConnection>& shouldAcceptNewConnection) override
    {
        shouldAcceptNewConnection->setExportedInterface(counterInterface());
        auto counter = std::make_shared<SlowCounter>();
        shouldAcceptNewConnection->setExportedObject(std::shared_ptr<Counter>(counter));
        shouldAcceptNewConnection->resume();
        std::lock_guard lock(mutex);
        counters.push_back(counter);
        return true;
    }

    std::shared_ptr<SlowCounter> counter(std::size_t index)
    {
        std::lock_guard lock(mutex);
        return index < counters.size() ? counters[index] : nullptr;
    }

    void forget()
    {
        std::lock_guard lock(mutex);
        counters.clear();
    }

private:
    std::mutex mutex;
    std::vector<std::shared_ptr<SlowCounter>> counters;
};

class RefusingDelegate : public ListenerDelegate {
public:
    bool listener(Listener&, const std::shared_ptr<ListenerConnection>&) override { return false; }
};

class IpcListener : public testing::Test {
protected:
    void SetUp() override
    {
        m_listener = Listener::serviceListener(service);
        m_listener->setDelegate(delegate);
        m_listener->start();
    }

    void TearDown() override
    {
        for (auto& client : m_clients)
            client->cancel();
        m_listener->stop();
    }

    std::shared_ptr<Connection> client(std::shared_ptr<ipctest::EventRecorder> recorder = ipctest::EventRecorder::make())
    {
        auto connection = Connection::createToService(service);
        connection->setEventHandler(recorder->handler());
        connection->resume();
        m_clients.push_back(connection);
        return connection;
    }

    ipctest::ScopedRuntimeFolder m_folder;
    std::shared_ptr<CountingDelegate> delegate = std::make_shared<CountingDelegate>();
    std::shared_ptr<Listener> m_listener;
    std::vector<std::shared_ptr<Connection>> m_clients;
};

}

TEST_F(IpcListener, AnInvocationCallsTheMethodOnTheExportedObject)
{
    client()->sendMessage(makeInvocation("Count"));
    EXPECT_TRUE(eventually([&] { return delegate->counter(0) && delegate->counter(0)->calls == 1; }));
}

TEST_F(IpcListener, CallsOnOneConnectionRunOnItsOneObjectOneAfterTheOther)
{
    auto connection = client();
    connection->sendMessage(makeInvocation("Count"));
    connection->sendMessage(makeInvocation("Count"));
    ASSERT_TRUE(eventually([&] { return delegate->counter(0) && delegate->counter(0)->calls == 2; }));
    EXPECT_FALSE(delegate->counter(0)->overlapped);
    EXPECT_EQ(delegate->counter(1), nullptr) << "one object per connection";
}

TEST_F(IpcListener, EachConnectionExportsItsOwnObject)
{
    client()->sendMessage(makeInvocation("Count"));
    client()->sendMessage(makeInvocation("Count"));
    ASSERT_TRUE(eventually([&] { return delegate->counter(1) && delegate->counter(0)->calls + delegate->counter(1)->calls == 2; }));
    EXPECT_EQ(delegate->counter(0)->calls, 1);
}

TEST_F(IpcListener, AMessageThatIsNotAnInvocationIsDroppedWithALogLine)
{
    testsupport::LogCapture log;
    auto connection = client();
    connection->sendMessage(Object::dictionary({ { "XPCDebugLog", Object::string("hello") } }));
    connection->sendMessage(makeInvocation("Count"));
    ASSERT_TRUE(eventually([&] { return delegate->counter(0) && delegate->counter(0)->calls == 1; }));
    EXPECT_EQ(log.countStartingWith("IPC: dropped a message that is not an invocation"), 1u);
}

TEST_F(IpcListener, AnInvocationOfAMethodTheInterfaceDoesNotHaveIsDroppedWithALogLine)
{
    testsupport::LogCapture log;
    auto connection = client();
    connection->sendMessage(makeInvocation("Explode"));
    connection->sendMessage(makeInvocation("Count"));
    ASSERT_TRUE(eventually([&] { return delegate->counter(0) && delegate->counter(0)->calls == 1; }));
    EXPECT_TRUE(log.contains("IPC: dropped an invocation of Explode, which the exported interface does not have"));
}

TEST_F(IpcListener, TheExportedObjectLivesAsLongAsItsConnection)
{
    auto connection = client();
    connection->sendMessage(makeInvocation("Count"));
    ASSERT_TRUE(eventually([&] { return delegate->counter(0) && delegate->counter(0)->calls == 1; }));
    std::weak_ptr<SlowCounter> exported = delegate->counter(0);
    delegate->forget();
    EXPECT_FALSE(exported.expired());
    connection->cancel();
    EXPECT_TRUE(eventually([&] { return exported.expired(); }));
}

TEST_F(IpcListener, AConnectionTheDelegateRefusesIsClosed)
{
    m_listener->setDelegate(std::make_shared<RefusingDelegate>());
    auto recorder = ipctest::EventRecorder::make();
    auto connection = client(recorder);
    connection->sendMessage(makeInvocation("Count"));
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(recorder->events()[0].errorEventIf(), ErrorEvent::ConnectionInterrupted);
}

TEST(IpcInvocation, NamesTheSelectorAndCarriesTheArguments)
{
    const Object invocation = makeInvocation("SyncFile");
    EXPECT_EQ(*invocation.stringForKey("selector"), "SyncFile");
    EXPECT_EQ(*invocation.find("arguments"), Object::array());
}
