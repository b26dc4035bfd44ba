#include "service/XPCConnection.h"

#include "platform/helpers/IpcTestSupport.h"
#include "support/LogCapture.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <string_view>
#include <thread>

using platform::Value;
using platform::ipc::ErrorEvent;
using service::Object;
using service::XPCConnection;
using testsupport::eventually;
using IpcConnection = platform::ipc::Connection;
using XPCObject = platform::ipc::Object;

namespace {

// Records what a wrapper hands to its event handler; the handler keeps the recorder alive.
struct MessageRecorder : std::enable_shared_from_this<MessageRecorder> {
    std::mutex mutex;
    std::vector<Object> messages;
    // Only the addresses: holding the wrappers would keep them alive through their own handlers.
    std::vector<const XPCConnection*> connections;
    std::atomic<bool> onDispatchQueue = true;

    XPCConnection::EventHandler handler()
    {
        return [self = shared_from_this()](const Object& message, const std::shared_ptr<XPCConnection>& connection) {
            self->onDispatchQueue = self->onDispatchQueue && connection->dispatchQueue()->isCurrent();
            std::lock_guard lock(self->mutex);
            self->messages.push_back(message);
            self->connections.push_back(connection.get());
        };
    }
    std::size_t count()
    {
        std::lock_guard lock(mutex);
        return messages.size();
    }
    Object message(std::size_t index)
    {
        std::lock_guard lock(mutex);
        return messages.at(index);
    }
    const XPCConnection* connection(std::size_t index)
    {
        std::lock_guard lock(mutex);
        return connections.at(index);
    }
};

// A wrapper on one end of a socket pair, and a plain connection on the other end that records what it receives.
class XPCConnectionTest : public testing::Test {
protected:
    void SetUp() override
    {
        peer->setEventHandler(peerEvents->handler());
        peer->resume();
    }

    ipctest::ConnectedPair pair;
    const std::shared_ptr<IpcConnection>& peer = pair.sender;
    const std::shared_ptr<IpcConnection>& wrapped = pair.receiver;
    std::shared_ptr<ipctest::EventRecorder> peerEvents = ipctest::EventRecorder::make();
};

}


namespace {

// The captured lines without those of the sync loops that earlier tests of this process started: a loop never
// ends, and it logs every pass and every report it makes.
std::vector<std::string> linesOfThisTest(const testsupport::LogCapture& log)
{
    const std::string_view loopLines[] = { "syncFileInTablenCloud: ", "Final List changed list", "Error occured....",
        "filde ID updayted" };
    std::vector<std::string> lines;
    for (const std::string& line : log.lines())
        if (std::none_of(std::begin(loopLines), std::end(loopLines), [&](std::string_view start) { return line.starts_with(start); }))
            lines.push_back(line);
    return lines;
}

}

TEST_F(XPCConnectionTest, AMessageHoldingXPCDebugLogAmongOtherEntriesIsOnlyLogged)
{
    testsupport::LogCapture log;
    auto recorder = std::make_shared<MessageRecorder>();
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    wrapper->setEventHandler(recorder->handler());
    peer->sendMessage(XPCObject::dictionary({ { "XPCDebugLog", XPCObject::string("hello there") }, { "other", XPCObject::int64(1) } }));
    peer->sendMessage(XPCObject::dictionary({ { "after", XPCObject::int64(2) } }));
    ASSERT_TRUE(eventually([&] { return recorder->count() == 1; }));
    EXPECT_EQ(recorder->message(0), Object(Value::dictionary({ { "after", Value::integer(2) } })));
    EXPECT_EQ(linesOfThisTest(log), std::vector<std::string> { "LOG: hello there" });
}

TEST_F(XPCConnectionTest, SendingAStringSendsItUnderContents)
{
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    wrapper->sendMessage(Value("just text"));
    ASSERT_TRUE(peerEvents->waitFor(1));
    EXPECT_EQ(peerEvents->events()[0], XPCObject::dictionary({ { "contents", XPCObject::string("just text") } }));
}

TEST_F(XPCConnectionTest, SendingADictionarySendsItUnchanged)
{
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    wrapper->sendMessage(Value::dictionary({ { "a", Value("b") }, { "n", Value::unsignedInteger(3) } }));
    ASSERT_TRUE(peerEvents->waitFor(1));
    EXPECT_EQ(peerEvents->events()[0], XPCObject::dictionary({ { "a", XPCObject::string("b") }, { "n", XPCObject::uint64(3) } }));
}

TEST_F(XPCConnectionTest, SendLogSendsTheOneEntryDebugLogDictionary)
{
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    wrapper->_sendLog("from far away");
    ASSERT_TRUE(peerEvents->waitFor(1));
    EXPECT_EQ(peerEvents->events()[0], XPCObject::dictionary({ { "XPCDebugLog", XPCObject::string("from far away") } }));
}

TEST_F(XPCConnectionTest, AnErrorEventWithNoErrorHandlerDoesNothing)
{
    testsupport::LogCapture log;
    auto recorder = std::make_shared<MessageRecorder>();
    std::weak_ptr<XPCConnection> held;
    {
        auto wrapper = XPCConnection::initWithConnection(wrapped);
        wrapper->setEventHandler(recorder->handler());
        held = wrapper;
    }
    peer->cancel();
    // The event ends the connection, which lets the wrapper go; nothing else happens.
    ASSERT_TRUE(eventually([&] { return held.expired(); }));
    EXPECT_EQ(recorder->count(), 0u);
    EXPECT_TRUE(linesOfThisTest(log).empty());
}

TEST_F(XPCConnectionTest, AnErrorHandlerGetsTheEventsDescriptionText)
{
    std::mutex mutex;
    std::vector<std::pair<std::optional<ErrorEvent>, std::optional<std::string>>> errors;
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    wrapper->setErrorHandler([&](const XPCObject& event, const std::optional<std::string>& description, const std::shared_ptr<XPCConnection>& connection) {
        EXPECT_EQ(connection.get(), wrapper.get());
        std::lock_guard lock(mutex);
        errors.emplace_back(event.errorEventIf(), description);
    });
    peer->cancel();
    ASSERT_TRUE(eventually([&] {
        std::lock_guard lock(mutex);
        return errors.size() == 1;
    }));
    EXPECT_EQ(errors[0].first, ErrorEvent::ConnectionInvalid);
    EXPECT_EQ(errors[0].second, "Connection invalid");
}

TEST_F(XPCConnectionTest, AnErrorHandlerGetsNullForAnEventWithoutDescription)
{
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    auto received = std::make_shared<std::vector<std::optional<std::string>>>();
    wrapper->setErrorHandler([received](const XPCObject&, const std::optional<std::string>& description, const std::shared_ptr<XPCConnection>&) {
        received->push_back(description);
    });
    wrapper->dispatchQueue()->sync([&] { wrapper->invokeErrorHandlerWithObject(XPCObject::error(ErrorEvent::ConnectionInterrupted), wrapper); });
    wrapper->dispatchQueue()->sync([&] {
        ASSERT_EQ(received->size(), 1u);
        EXPECT_FALSE(received->front());
    });
}

TEST(XPCConnection, WrappingANullConnectionGivesNull) { EXPECT_EQ(XPCConnection::initWithConnection(nullptr), nullptr); }

TEST_F(XPCConnectionTest, MessagesReachTheEventHandlerAsFrameworkObjectsOnTheDispatchQueueInOrder)
{
    auto recorder = std::make_shared<MessageRecorder>();
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    wrapper->setEventHandler(recorder->handler());
    for (int i = 0; i < 20; ++i)
        peer->sendMessage(XPCObject::dictionary({ { "n", XPCObject::int64(i) }, { "flag", XPCObject::boolean(true) } }));
    ASSERT_TRUE(eventually([&] { return recorder->count() == 20; }));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(recorder->message(static_cast<std::size_t>(i)),
            Object(Value::dictionary({ { "n", Value::integer(i) }, { "flag", Value::boolean(true) } })));
        EXPECT_EQ(recorder->connection(static_cast<std::size_t>(i)), wrapper.get());
    }
    EXPECT_TRUE(recorder->onDispatchQueue);
}

TEST_F(XPCConnectionTest, ANewDispatchQueueBecomesTheConnectionsTargetQueue)
{
    auto recorder = std::make_shared<MessageRecorder>();
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    auto queue = platform::Queue::makeSerial("test.dispatch");
    wrapper->setDispatchQueue(queue);
    EXPECT_EQ(wrapper->dispatchQueue(), queue);
    EXPECT_EQ(wrapped->targetQueue(), queue);
    wrapper->setEventHandler(recorder->handler());
    peer->sendMessage(XPCObject::dictionary());
    ASSERT_TRUE(eventually([&] { return recorder->count() == 1; }));
    EXPECT_TRUE(recorder->onDispatchQueue);
}

TEST_F(XPCConnectionTest, SuspendHoldsMessagesUntilResume)
{
    auto recorder = std::make_shared<MessageRecorder>();
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    wrapper->setEventHandler(recorder->handler());
    wrapper->suspend();
    wrapper->dispatchQueue()->sync([] { });
    peer->sendMessage(XPCObject::dictionary());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(recorder->count(), 0u);
    wrapper->resume();
    EXPECT_TRUE(eventually([&] { return recorder->count() == 1; }));
}

TEST_F(XPCConnectionTest, CredentialsAreThoseOfTheProcessAtTheOtherEnd)
{
    auto wrapper = XPCConnection::initWithConnection(wrapped);
    EXPECT_EQ(wrapper->connectionProcessID().int64Value(), ::getpid());
    EXPECT_EQ(wrapper->connectionEUID().int64Value(), ::geteuid());
    EXPECT_EQ(wrapper->connectionEGID().int64Value(), ::getegid());
    EXPECT_EQ(wrapper->connectionAuditSessionID().uint64Value(), platform::ipc::auditSessionId(::getpid()));
    EXPECT_FALSE(wrapper->connectionName()) << "a peer's connection has no name";
}

TEST_F(XPCConnectionTest, AWrapperThatGoesCancelsItsConnection)
{
    std::weak_ptr<XPCConnection> held = XPCConnection::initWithConnection(wrapped);
    // The connection's handler holds the last reference; replacing the handler lets the wrapper go.
    wrapped->setEventHandler([](const XPCObject&) { });
    EXPECT_TRUE(held.expired());
    ASSERT_TRUE(peerEvents->waitFor(1));
    EXPECT_EQ(peerEvents->events()[0].errorEventIf(), ErrorEvent::ConnectionInvalid);
}

TEST(XPCConnection, AWrapperByServiceNameReachesTheServiceAndKnowsItsName)
{
    ipctest::RecordingServer service("Test.Wrapped");
    auto wrapper = XPCConnection::initWithServiceName(service.name());
    ASSERT_NE(wrapper, nullptr);
    EXPECT_EQ(wrapper->connectionName(), "Test.Wrapped");
    EXPECT_EQ(wrapper->dispatchQueue()->label(), "Test.Wrapped");
    wrapper->sendMessage(Value::integer(7));
    ASSERT_TRUE(eventually([&] { return service.eventCount(0) == 1; }));
    EXPECT_EQ(service.recorder(0)->events()[0], XPCObject::dictionary({ { "contents", XPCObject::int64(7) } }));
    EXPECT_EQ(wrapper->connectionProcessID().int64Value(), ::getpid());
    wrapper->connection()->cancel();
}
