// Malformed frames from a peer: each closes that peer's connection with one log line, leaks no descriptor, and
// leaves the server serving its other connections.
#include "platform/IpcServer.h"
#include "platform/IpcServiceSocket.h"
#include "platform/IpcWire.h"
#include "helpers/EveryKind.h"
#include "platform/helpers/IpcTestSupport.h"
#include "platform/helpers/RawFrames.h"
#include "support/LogCapture.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>

using namespace platform::ipc;
using platform::OwnedFd;
using ipctest::dictionaryHolding;
using ipctest::rawFrame;
using ipctest::rawHeader;
using testsupport::eventually;

namespace {

constexpr const char* service = "Test.BadFrames";

class IpcBadFrame : public testing::Test {
protected:
    void SetUp() override
    {
        // A well-behaved client that must go on being served.
        m_goodClient = Connection::createToService(service);
        m_goodClient->setEventHandler([](const Object&) { });
        m_goodClient->resume();
        m_goodClient->sendMessage(numbered(0));
        ASSERT_TRUE(eventually([&] { return goodMessages() == 1; }));
    }

    void TearDown() override { m_goodClient->cancel(); }

    static Object numbered(std::int64_t number) { return Object::dictionary({ { "n", Object::int64(number) } }); }

    std::size_t goodMessages() { return m_server.eventCount(0); }

    OwnedFd badClient()
    {
        int error = 0;
        OwnedFd socket = connectUnixSocket(serviceSocketPath(service).string(), error);
        EXPECT_TRUE(socket) << error;
        return socket;
    }

    static void send(const OwnedFd& socket, const Bytes& bytes, std::span<const int> descriptors = {})
    {
        ASSERT_EQ(sendWithDescriptors(socket.get(), bytes, descriptors), static_cast<long>(bytes.size()));
    }

    // Sends `bytes` (with `descriptors`) as a peer, and stops sending when told to; then expects what
    // expectRefused(misbehave, reason) does.
    void expectRefused(const Bytes& bytes, const std::string& reason, std::span<const int> descriptors = {}, bool stopAfterwards = false)
    {
        expectRefused(
            [&](const OwnedFd& client) {
                send(client, bytes, descriptors);
                if (stopAfterwards)
                    ::shutdown(client.get(), SHUT_WR);
            },
            reason);
    }

    // Lets a peer `misbehave`, then checks that the server closed that peer with exactly one log line giving
    // `reason`, kept serving the good client, and has as many descriptors open as before.
    void expectRefused(const std::function<void(const OwnedFd&)>& misbehave, const std::string& reason)
    {
        const std::size_t descriptorsBefore = ipctest::openDescriptorCount();
        {
            OwnedFd client = badClient();
            misbehave(client);
            ASSERT_TRUE(eventually([&] { return m_log.countStartingWith("IPC: closing the connection") > 0; }));
            EXPECT_TRUE(closedByServer(client));
        }
        const auto lines = m_log.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0], "IPC: closing the connection from process " + std::to_string(::getpid()) + " (uid "
                + std::to_string(::geteuid()) + ") after a bad frame: " + reason);

        m_goodClient->sendMessage(numbered(1));
        EXPECT_TRUE(eventually([&] { return goodMessages() == 2; })) << "the other connection is still served";
        EXPECT_TRUE(ipctest::descriptorsReturnTo(descriptorsBefore))
            << ipctest::openDescriptorCount() << " descriptors open, " << descriptorsBefore << " before";
    }

    static bool closedByServer(const OwnedFd& socket)
    {
        return eventually([&] {
            char byte;
            const ssize_t got = ::recv(socket.get(), &byte, 1, MSG_DONTWAIT);
            return got == 0 || (got < 0 && errno == ECONNRESET);
        });
    }

private:
    ipctest::RecordingServer m_server { service };
    std::shared_ptr<Connection> m_goodClient;
    testsupport::LogCapture m_log;
};

}

TEST_F(IpcBadFrame, ATruncatedMessageClosesTheConnection)
{
    Bytes body = encodeFrame(Object::dictionary({ { "key", Object::string("value") } })).bytes;
    body.erase(body.begin(), body.begin() + frameHeaderSize);
    body.resize(body.size() - 3);
    expectRefused(rawFrame(body), "a value runs past the end of the frame");
}

TEST_F(IpcBadFrame, AnOversizedFrameClosesTheConnectionBeforeItsBodyIsRead)
{
    expectRefused(rawHeader(limits::maxBodySize + 1), "a frame body of 16777217 bytes exceeds the limit of 16777216");
}

TEST_F(IpcBadFrame, AFrameOfUnknownTypeClosesTheConnection)
{
    expectRefused(rawHeader(5, 0, 0x07), "unknown frame type 0x07");
}

TEST_F(IpcBadFrame, AValueOfUnknownTypeClosesTheConnection)
{
    expectRefused(rawFrame(dictionaryHolding({ 0x7F })), "unknown value type 0x7f");
}

TEST_F(IpcBadFrame, NestingBeyondTheLimitClosesTheConnection)
{
    Bytes value;
    for (std::size_t i = 0; i < limits::maxDepth; ++i)
        value.insert(value.end(), { 0x0C, 1, 0, 0, 0 });
    value.push_back(0x00);
    expectRefused(rawFrame(dictionaryHolding(value)), "containers nest deeper than 32 levels");
}

TEST_F(IpcBadFrame, ALengthThatLiesClosesTheConnection)
{
    expectRefused(rawFrame(dictionaryHolding({ 0x08, 0xE8, 0x03, 0, 0, 'a', 'b', 'c' })), "a value runs past the end of the frame");
}

TEST_F(IpcBadFrame, DescriptorsWhereNoneWereAnnouncedCloseTheConnectionAndAreClosed)
{
    const OwnedFd file = ipctest::temporaryFileHolding("secret");
    const int descriptors[] = { file.get(), file.get() };
    expectRefused(rawFrame(dictionaryHolding({ 0x00 })), "the frame announces 0 descriptors but 2 came with it", descriptors);
}

TEST_F(IpcBadFrame, DescriptorsInTheMiddleOfAFrameCloseTheConnectionAndAreClosed)
{
    const Bytes body = dictionaryHolding({ 0x00 });
    const OwnedFd file = ipctest::temporaryFileHolding("secret");
    const int descriptors[] = { file.get() };
    expectRefused(
        [&](const OwnedFd& client) {
            send(client, rawHeader(static_cast<std::uint32_t>(body.size())));
            send(client, body, descriptors);
        },
        "descriptors came in the middle of a frame");
}

TEST_F(IpcBadFrame, AnnouncedDescriptorsThatDoNotComeCloseTheConnection)
{
    expectRefused(rawFrame(dictionaryHolding({ 0x0A, 0, 0 }), 1), "the frame announces 1 descriptors but 0 came with it");
}

TEST_F(IpcBadFrame, MoreDescriptorsThanTheLimitCloseTheConnectionAndAreClosed)
{
    const OwnedFd file = ipctest::temporaryFileHolding("secret");
    const std::vector<int> descriptors(limits::maxDescriptors + 1, file.get());
    expectRefused(rawFrame(dictionaryHolding({ 0x00 }), limits::maxDescriptors + 1),
        "a frame came with more than 64 descriptors", descriptors);
}

TEST_F(IpcBadFrame, StoppingInTheMiddleOfAFrameClosesTheConnection)
{
    Bytes partial = rawHeader(100);
    partial.insert(partial.end(), 50, 0);
    expectRefused(partial, "the peer stopped in the middle of a frame", {}, true);
}

TEST_F(IpcBadFrame, StoppingInTheMiddleOfAHeaderClosesTheConnection)
{
    expectRefused(Bytes { 'K', 'I', 'P' }, "the peer stopped in the middle of a frame", {}, true);
}

TEST_F(IpcBadFrame, AFrameWithoutTheMagicClosesTheConnection)
{
    expectRefused(Bytes(frameHeaderSize, 'x'), "the frame does not start with the magic \"KIPC\"");
}
