#include "platform/IpcConnection.h"

#include "platform/IpcServer.h"
#include "platform/IpcServiceSocket.h"
#include "platform/helpers/EveryKind.h"
#include "platform/helpers/IpcTestSupport.h"
#include "support/LogCapture.h"

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

using namespace platform::ipc;
using ipctest::EventRecorder;
using testsupport::eventually;

namespace {

struct ConnectedPair {
    std::shared_ptr<Connection> first;
    std::shared_ptr<Connection> second;
};

// Two peer connections over the two ends of one socket pair.
ConnectedPair connectedPair()
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        throw std::runtime_error("socketpair failed");
    return { Connection::createForPeer(OwnedFd(ends[0])), Connection::createForPeer(OwnedFd(ends[1])) };
}

Object numbered(std::int64_t number) { return Object::dictionary({ { "n", Object::int64(number) } }); }

std::vector<std::int64_t> numbersOf(const std::vector<Object>& events)
{
    std::vector<std::int64_t> numbers;
    for (const auto& event : events) {
        if (const Object* n = event.find("n"))
            numbers.push_back(n->int64Value());
    }
    return numbers;
}

std::vector<std::int64_t> range(std::int64_t count)
{
    std::vector<std::int64_t> numbers;
    for (std::int64_t i = 0; i < count; ++i)
        numbers.push_back(i);
    return numbers;
}

// A server in a private runtime folder whose peers are resumed with a recorder each, and which answers nothing.
struct RecordingService {
    static constexpr const char* name = "Test.Service";
    ipctest::ScopedRuntimeFolder folder;
    std::mutex mutex;
    std::vector<std::shared_ptr<Connection>> peers;
    std::vector<std::shared_ptr<EventRecorder>> recorders;
    std::shared_ptr<Server> server;

    RecordingService()
    {
        server = Server::start(listenForService(name), [this](const std::shared_ptr<Connection>& peer) {
            auto recorder = EventRecorder::make();
            peer->setEventHandler(recorder->handler());
            peer->resume();
            std::lock_guard lock(mutex);
            peers.push_back(peer);
            recorders.push_back(recorder);
        });
    }
    ~RecordingService()
    {
        server->stop();
        std::lock_guard lock(mutex);
        for (auto& peer : peers)
            peer->cancel();
    }

    std::size_t peerCount()
    {
        std::lock_guard lock(mutex);
        return peers.size();
    }
    std::shared_ptr<Connection> peer(std::size_t index)
    {
        std::lock_guard lock(mutex);
        return peers.at(index);
    }
    std::shared_ptr<EventRecorder> recorder(std::size_t index)
    {
        std::lock_guard lock(mutex);
        return recorders.at(index);
    }
};

}

TEST(IpcConnection, MessagesArriveInTheOrderTheyWereSent)
{
    auto [sender, receiver] = connectedPair();
    auto recorder = EventRecorder::make();
    receiver->setEventHandler(recorder->handler());
    receiver->resume();
    sender->resume();
    for (int i = 0; i < 200; ++i)
        sender->sendMessage(numbered(i));
    ASSERT_TRUE(recorder->waitFor(200));
    EXPECT_EQ(numbersOf(recorder->events()), range(200));
    sender->cancel();
    receiver->cancel();
}

TEST(IpcConnection, EventsRunOnTheTargetQueueOneAtATime)
{
    auto [sender, receiver] = connectedPair();
    auto queue = platform::Queue::makeSerial("test.target");
    std::atomic<int> running = 0, overlaps = 0, onQueue = 0, handled = 0;
    receiver->setTargetQueue(queue);
    receiver->setEventHandler([&, queue](const Object&) {
        if (running.fetch_add(1) > 0)
            ++overlaps;
        onQueue += queue->isCurrent();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        --running;
        ++handled;
    });
    receiver->resume();
    sender->resume();
    for (int i = 0; i < 20; ++i)
        sender->sendMessage(numbered(i));
    ASSERT_TRUE(eventually([&] { return handled == 20; }));
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(onQueue, 20);
    sender->cancel();
    receiver->cancel();
    EXPECT_TRUE(eventually([&] { return handled == 21; })) << "the last event is ConnectionInvalid";
}

TEST(IpcConnection, NothingIsDeliveredBeforeTheFirstResume)
{
    auto [sender, receiver] = connectedPair();
    auto recorder = EventRecorder::make();
    receiver->setEventHandler(recorder->handler());
    sender->resume();
    sender->sendMessage(numbered(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(recorder->count(), 0u);
    receiver->resume();
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(numbersOf(recorder->events()), std::vector<std::int64_t> { 1 });
    sender->cancel();
    receiver->cancel();
}

TEST(IpcConnection, SuspendHoldsMessagesBackAndNestsUntilEveryResume)
{
    auto [sender, receiver] = connectedPair();
    auto recorder = EventRecorder::make();
    receiver->setEventHandler(recorder->handler());
    receiver->resume();
    sender->resume();
    receiver->suspend();
    receiver->suspend();
    // More messages than are read ahead: the rest wait in the socket until the receiver is resumed.
    for (int i = 0; i < 100; ++i)
        sender->sendMessage(numbered(i));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    receiver->resume();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(recorder->count(), 0u) << "one suspend is still unmatched";
    receiver->resume();
    ASSERT_TRUE(recorder->waitFor(100));
    EXPECT_EQ(numbersOf(recorder->events()), range(100));
    sender->cancel();
    receiver->cancel();
}

TEST(IpcConnection, AResumeWithoutASuspendIsIgnoredWithALogLine)
{
    testsupport::LogCapture log;
    auto [first, second] = connectedPair();
    first->resume();
    first->resume();
    EXPECT_EQ(log.countStartingWith("IPC: resume of the connection"), 1u);
    first->cancel();
    second->cancel();
}

TEST(IpcConnection, CancelDeliversConnectionInvalidAsTheLastEventAndReleasesTheHandler)
{
    auto [first, second] = connectedPair();
    auto recorder = EventRecorder::make();
    std::weak_ptr<EventRecorder> held = recorder;
    first->setEventHandler(recorder->handler());
    first->resume();
    recorder.reset();
    first->cancel();
    first->sendMessage(numbered(1));
    ASSERT_TRUE(eventually([&] { return held.expired(); })) << "the handler is released after the last event";

    // The peer of a cancelled connection sees it end too.
    auto peerRecorder = EventRecorder::make();
    second->setEventHandler(peerRecorder->handler());
    second->resume();
    ASSERT_TRUE(peerRecorder->waitFor(1));
    EXPECT_EQ(peerRecorder->events()[0].errorEventIf(), ErrorEvent::ConnectionInvalid);
}

TEST(IpcConnection, ConnectionInvalidCarriesItsDescription)
{
    auto [first, second] = connectedPair();
    auto recorder = EventRecorder::make();
    first->setEventHandler(recorder->handler());
    first->resume();
    first->cancel();
    ASSERT_TRUE(recorder->waitFor(1));
    const Object event = recorder->events().at(0);
    EXPECT_EQ(event.type(), Type::Error);
    EXPECT_EQ(event.errorEventIf(), ErrorEvent::ConnectionInvalid);
    ASSERT_NE(ipctest::descriptionOf(event), nullptr);
    EXPECT_EQ(*ipctest::descriptionOf(event), "Connection invalid");
    second->cancel();
}

TEST(IpcConnection, AMessageSentBeforeCancelStillArrives)
{
    auto [sender, receiver] = connectedPair();
    auto recorder = EventRecorder::make();
    receiver->setEventHandler(recorder->handler());
    receiver->resume();
    sender->resume();
    sender->sendMessage(Object::dictionary({ { "data", Object::data(Bytes(4 << 20, 7)) } }));
    sender->cancel();
    ASSERT_TRUE(recorder->waitFor(2));
    EXPECT_EQ(recorder->events()[0].find("data")->dataIf()->size(), 4u << 20);
    EXPECT_EQ(recorder->events()[1].errorEventIf(), ErrorEvent::ConnectionInvalid);
}

TEST(IpcConnection, TerminationImminentIsDeliveredAndTheConnectionGoesOn)
{
    auto [sender, receiver] = connectedPair();
    auto recorder = EventRecorder::make();
    receiver->setEventHandler(recorder->handler());
    receiver->resume();
    sender->resume();
    receiver->deliverTerminationImminent();
    sender->sendMessage(numbered(5));
    ASSERT_TRUE(recorder->waitFor(2));
    const Object event = recorder->events()[0];
    EXPECT_EQ(event.errorEventIf(), ErrorEvent::TerminationImminent);
    EXPECT_EQ(*ipctest::descriptionOf(event), "Termination imminent");
    EXPECT_EQ(numbersOf(recorder->events()), std::vector<std::int64_t> { 5 });
    sender->cancel();
    receiver->cancel();
}

TEST(IpcConnection, AMessageThatCannotBeEncodedIsDroppedWithALogLine)
{
    testsupport::LogCapture log;
    auto [sender, receiver] = connectedPair();
    auto recorder = EventRecorder::make();
    receiver->setEventHandler(recorder->handler());
    receiver->resume();
    sender->resume();
    sender->sendMessage(Object::dictionary({ { "event", Object::error(ErrorEvent::ConnectionInvalid) } }));
    sender->sendMessage(numbered(1));
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(numbersOf(recorder->events()), std::vector<std::int64_t> { 1 });
    EXPECT_EQ(log.countStartingWith("IPC: a message for the connection"), 1u);
    sender->cancel();
    receiver->cancel();
}

TEST(IpcConnection, CredentialsNameTheProcessAtTheOtherEnd)
{
    auto [first, second] = connectedPair();
    const PeerCredentials credentials = first->credentials();
    EXPECT_EQ(credentials.pid, ::getpid());
    EXPECT_EQ(credentials.euid, ::geteuid());
    EXPECT_EQ(credentials.egid, ::getegid());
    std::uint32_t session = 0;
    std::ifstream("/proc/self/sessionid") >> session;
    EXPECT_EQ(credentials.auditSessionId, session == 4294967295u ? 0u : session);
    EXPECT_FALSE(first->name());
    first->cancel();
    second->cancel();
}

TEST(IpcConnection, AnAuditSessionThatCannotBeReadIsZero)
{
    EXPECT_EQ(auditSessionId(0), 0u);
    EXPECT_EQ(auditSessionId(-5), 0u);
}

TEST(IpcConnection, AConnectionByServiceNameReachesTheServiceAndKnowsItsName)
{
    RecordingService service;
    auto client = Connection::createToService(RecordingService::name);
    EXPECT_EQ(client->name(), RecordingService::name);
    auto recorder = EventRecorder::make();
    client->setEventHandler(recorder->handler());
    client->sendMessage(numbered(1)); // waits for the first resume
    client->resume();
    ASSERT_TRUE(eventually([&] { return service.peerCount() == 1 && service.recorder(0)->count() == 1; }));
    EXPECT_EQ(numbersOf(service.recorder(0)->events()), std::vector<std::int64_t> { 1 });
    EXPECT_EQ(client->credentials().pid, ::getpid());
    client->cancel();
}

TEST(IpcConnection, AServiceThatGoesAwayInterruptsTheConnectionWhichConnectsAgainOnTheNextSend)
{
    RecordingService service;
    auto client = Connection::createToService(RecordingService::name);
    auto recorder = EventRecorder::make();
    client->setEventHandler(recorder->handler());
    client->resume();
    client->sendMessage(numbered(1));
    ASSERT_TRUE(eventually([&] { return service.peerCount() == 1 && service.recorder(0)->count() == 1; }));

    service.peer(0)->cancel();
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(recorder->events()[0].errorEventIf(), ErrorEvent::ConnectionInterrupted);
    EXPECT_EQ(*ipctest::descriptionOf(recorder->events()[0]), "Connection interrupted");

    client->sendMessage(numbered(2));
    ASSERT_TRUE(eventually([&] { return service.peerCount() == 2 && service.recorder(1)->count() == 1; }));
    EXPECT_EQ(numbersOf(service.recorder(1)->events()), std::vector<std::int64_t> { 2 });
    client->cancel();
}

TEST(IpcConnection, AServiceThatCannotBeReachedMakesTheConnectionInvalid)
{
    ipctest::ScopedRuntimeFolder folder;
    auto client = Connection::createToService("Nobody.Listens");
    auto recorder = EventRecorder::make();
    client->setEventHandler(recorder->handler());
    client->resume();
    client->sendMessage(numbered(1));
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(recorder->events()[0].errorEventIf(), ErrorEvent::ConnectionInvalid);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(recorder->count(), 1u);
}

TEST(IpcConnection, ClosedConnectionsLeaveNoDescriptorOpen)
{
    const std::size_t before = ipctest::openDescriptorCount();
    {
        auto [sender, receiver] = connectedPair();
        auto recorder = EventRecorder::make();
        receiver->setEventHandler(recorder->handler());
        receiver->resume();
        sender->resume();
        const OwnedFd file = ipctest::temporaryFileHolding("x");
        sender->sendMessage(Object::dictionary({ { "fd", *Object::fileDescriptor(file.get()) } }));
        ASSERT_TRUE(recorder->waitFor(1));
        sender->cancel();
        ASSERT_TRUE(recorder->waitFor(2));
    }
    EXPECT_TRUE(ipctest::descriptorsReturnTo(before)) << ipctest::openDescriptorCount() << " open, " << before << " before";
}
