#include "platform/IpcConnection.h"

#include "platform/IpcServer.h"
#include "platform/IpcServiceSocket.h"
#include "helpers/EveryKind.h"
#include "platform/helpers/IpcTestSupport.h"
#include "support/LogCapture.h"

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

using namespace platform::ipc;
using platform::OwnedFd;
using ipctest::EventRecorder;
using testsupport::eventually;

namespace {

using ipctest::ConnectedPair;

// Resumes both ends of `pair`, the receiver recording what it gets.
std::shared_ptr<EventRecorder> resumeRecording(ConnectedPair& pair)
{
    auto recorder = EventRecorder::make();
    pair.receiver->setEventHandler(recorder->handler());
    pair.receiver->resume();
    pair.sender->resume();
    return recorder;
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

}

TEST(IpcConnection, MessagesArriveInTheOrderTheyWereSent)
{
    ConnectedPair pair;
    auto recorder = resumeRecording(pair);
    for (int i = 0; i < 200; ++i)
        pair.sender->sendMessage(numbered(i));
    ASSERT_TRUE(recorder->waitFor(200));
    EXPECT_EQ(numbersOf(recorder->events()), range(200));
}

TEST(IpcConnection, EventsRunOnTheTargetQueueOneAtATime)
{
    ConnectedPair pair;
    auto queue = platform::Queue::makeSerial("test.target");
    std::atomic<int> running = 0, overlaps = 0, onQueue = 0, handled = 0;
    pair.receiver->setTargetQueue(queue);
    pair.receiver->setEventHandler([&, queue](const Object&) {
        if (running.fetch_add(1) > 0)
            ++overlaps;
        onQueue += queue->isCurrent();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        --running;
        ++handled;
    });
    pair.receiver->resume();
    pair.sender->resume();
    for (int i = 0; i < 20; ++i)
        pair.sender->sendMessage(numbered(i));
    ASSERT_TRUE(eventually([&] { return handled == 20; }));
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(onQueue, 20);
    pair.receiver->cancel();
    EXPECT_TRUE(eventually([&] { return handled == 21; })) << "the last event is ConnectionInvalid";
}

TEST(IpcConnection, NothingIsDeliveredBeforeTheFirstResume)
{
    ConnectedPair pair;
    auto recorder = EventRecorder::make();
    pair.receiver->setEventHandler(recorder->handler());
    pair.sender->resume();
    pair.sender->sendMessage(numbered(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(recorder->count(), 0u);
    pair.receiver->resume();
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(numbersOf(recorder->events()), std::vector<std::int64_t> { 1 });
}

TEST(IpcConnection, SuspendHoldsMessagesBackAndNestsUntilEveryResume)
{
    ConnectedPair pair;
    auto recorder = resumeRecording(pair);
    pair.receiver->suspend();
    pair.receiver->suspend();
    // More messages than are read ahead: the rest wait in the socket until the receiver is resumed.
    for (int i = 0; i < 100; ++i)
        pair.sender->sendMessage(numbered(i));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pair.receiver->resume();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(recorder->count(), 0u) << "one suspend is still unmatched";
    pair.receiver->resume();
    ASSERT_TRUE(recorder->waitFor(100));
    EXPECT_EQ(numbersOf(recorder->events()), range(100));
}

TEST(IpcConnection, AResumeWithoutASuspendIsIgnoredWithALogLine)
{
    testsupport::LogCapture log;
    ConnectedPair pair;
    pair.sender->resume();
    pair.sender->resume();
    EXPECT_EQ(log.countStartingWith("IPC: resume of the connection"), 1u);
}

TEST(IpcConnection, CancelDeliversConnectionInvalidAsTheLastEventAndReleasesTheHandler)
{
    ConnectedPair pair;
    auto recorder = EventRecorder::make();
    std::weak_ptr<EventRecorder> held = recorder;
    pair.sender->setEventHandler(recorder->handler());
    pair.sender->resume();
    recorder.reset();
    pair.sender->cancel();
    pair.sender->sendMessage(numbered(1));
    ASSERT_TRUE(eventually([&] { return held.expired(); })) << "the handler is released after the last event";

    // The peer of a cancelled connection sees it end too.
    auto peerRecorder = EventRecorder::make();
    pair.receiver->setEventHandler(peerRecorder->handler());
    pair.receiver->resume();
    ASSERT_TRUE(peerRecorder->waitFor(1));
    EXPECT_EQ(peerRecorder->events()[0].errorEventIf(), ErrorEvent::ConnectionInvalid);
}

TEST(IpcConnection, ConnectionInvalidCarriesItsDescription)
{
    ConnectedPair pair;
    auto recorder = EventRecorder::make();
    pair.sender->setEventHandler(recorder->handler());
    pair.sender->resume();
    pair.sender->cancel();
    ASSERT_TRUE(recorder->waitFor(1));
    const Object event = recorder->events().at(0);
    EXPECT_EQ(event.type(), Type::Error);
    EXPECT_EQ(event.errorEventIf(), ErrorEvent::ConnectionInvalid);
    ASSERT_NE(ipctest::descriptionOf(event), nullptr);
    EXPECT_EQ(*ipctest::descriptionOf(event), "Connection invalid");
    pair.receiver->cancel();
}

TEST(IpcConnection, AMessageSentBeforeCancelStillArrives)
{
    ConnectedPair pair;
    auto recorder = resumeRecording(pair);
    pair.sender->sendMessage(Object::dictionary({ { "data", Object::data(Bytes(4 << 20, 7)) } }));
    pair.sender->cancel();
    ASSERT_TRUE(recorder->waitFor(2));
    EXPECT_EQ(recorder->events()[0].find("data")->dataIf()->size(), 4u << 20);
    EXPECT_EQ(recorder->events()[1].errorEventIf(), ErrorEvent::ConnectionInvalid);
}

TEST(IpcConnection, TerminationImminentIsDeliveredAndTheConnectionGoesOn)
{
    ConnectedPair pair;
    auto recorder = resumeRecording(pair);
    pair.receiver->deliverTerminationImminent();
    pair.sender->sendMessage(numbered(5));
    ASSERT_TRUE(recorder->waitFor(2));
    const Object event = recorder->events()[0];
    EXPECT_EQ(event.errorEventIf(), ErrorEvent::TerminationImminent);
    EXPECT_EQ(*ipctest::descriptionOf(event), "Termination imminent");
    EXPECT_EQ(numbersOf(recorder->events()), std::vector<std::int64_t> { 5 });
}

TEST(IpcConnection, AMessageThatCannotBeEncodedIsDroppedWithALogLine)
{
    testsupport::LogCapture log;
    ConnectedPair pair;
    auto recorder = resumeRecording(pair);
    pair.sender->sendMessage(Object::dictionary({ { "event", Object::error(ErrorEvent::ConnectionInvalid) } }));
    pair.sender->sendMessage(numbered(1));
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(numbersOf(recorder->events()), std::vector<std::int64_t> { 1 });
    EXPECT_EQ(log.countStartingWith("IPC: a message for the connection"), 1u);
}

TEST(IpcConnection, CredentialsNameTheProcessAtTheOtherEnd)
{
    ConnectedPair pair;
    const PeerCredentials credentials = pair.sender->credentials();
    EXPECT_EQ(credentials.pid, ::getpid());
    EXPECT_EQ(credentials.euid, ::geteuid());
    EXPECT_EQ(credentials.egid, ::getegid());
    std::uint32_t session = 0;
    std::ifstream("/proc/self/sessionid") >> session;
    EXPECT_EQ(credentials.auditSessionId, session == 4294967295u ? 0u : session);
    EXPECT_FALSE(pair.sender->name());
}

TEST(IpcConnection, AnAuditSessionThatCannotBeReadIsZero)
{
    EXPECT_EQ(auditSessionId(0), 0u);
    EXPECT_EQ(auditSessionId(-5), 0u);
}

TEST(IpcConnection, AConnectionByServiceNameReachesTheServiceAndKnowsItsName)
{
    ipctest::RecordingServer service("Test.Service");
    auto client = Connection::createToService(service.name());
    EXPECT_EQ(client->name(), service.name());
    auto recorder = EventRecorder::make();
    client->setEventHandler(recorder->handler());
    client->sendMessage(numbered(1)); // waits for the first resume
    client->resume();
    ASSERT_TRUE(eventually([&] { return service.eventCount(0) == 1; }));
    EXPECT_EQ(numbersOf(service.recorder(0)->events()), std::vector<std::int64_t> { 1 });
    EXPECT_EQ(client->credentials().pid, ::getpid());
    client->cancel();
}

TEST(IpcConnection, AServiceThatGoesAwayInterruptsTheConnectionWhichConnectsAgainOnTheNextSend)
{
    ipctest::RecordingServer service("Test.Service");
    auto client = Connection::createToService(service.name());
    auto recorder = EventRecorder::make();
    client->setEventHandler(recorder->handler());
    client->resume();
    client->sendMessage(numbered(1));
    ASSERT_TRUE(eventually([&] { return service.eventCount(0) == 1; }));

    service.peer(0)->cancel();
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(recorder->events()[0].errorEventIf(), ErrorEvent::ConnectionInterrupted);
    EXPECT_EQ(*ipctest::descriptionOf(recorder->events()[0]), "Connection interrupted");

    client->sendMessage(numbered(2));
    ASSERT_TRUE(eventually([&] { return service.eventCount(1) == 1; }));
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
    {
        // The runtime opens the descriptors of its event loops once, on first use: before counting. The receiver
        // sees the end of the connection once both its sockets are closed.
        ConnectedPair warmUp;
        auto ended = resumeRecording(warmUp);
        warmUp.sender->cancel();
        ASSERT_TRUE(ended->waitFor(1));
    }
    const std::size_t before = ipctest::openDescriptorCount();
    {
        ConnectedPair pair;
        auto recorder = resumeRecording(pair);
        const OwnedFd file = ipctest::temporaryFileHolding("x");
        pair.sender->sendMessage(Object::dictionary({ { "fd", *Object::fileDescriptor(file.get()) } }));
        ASSERT_TRUE(recorder->waitFor(1));
        pair.sender->cancel();
        ASSERT_TRUE(recorder->waitFor(2));
    }
    EXPECT_TRUE(ipctest::descriptorsReturnTo(before)) << ipctest::openDescriptorCount() << " open, " << before << " before";
}
