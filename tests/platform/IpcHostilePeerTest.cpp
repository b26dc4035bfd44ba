// Peers that try to make a server hold what they never send: frames that announce large bodies and stop, and more
// connections than a server serves at once. Memory follows the bytes that arrived, and the connection cap refuses
// the surplus with a log line.
#include "platform/IpcServer.h"
#include "platform/IpcServiceSocket.h"
#include "platform/IpcSocket.h"
#include "platform/IpcWire.h"
#include "platform/helpers/IpcTestSupport.h"
#include "platform/helpers/RawFrames.h"
#include "support/LogCapture.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

using namespace platform::ipc;
using platform::OwnedFd;
using testsupport::eventually;

namespace {

constexpr const char* service = "Test.HostilePeers";

OwnedFd connectToService()
{
    int error = 0;
    OwnedFd socket = connectUnixSocket(serviceSocketPath(service).string(), error);
    EXPECT_TRUE(socket) << error;
    return socket;
}

void send(const OwnedFd& socket, const Bytes& bytes)
{
    ASSERT_EQ(sendWithDescriptors(socket.get(), bytes, {}), static_cast<long>(bytes.size()));
}

// This process's resident memory in bytes.
std::size_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::size_t pages = 0;
    std::size_t resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

bool closedByServer(const OwnedFd& socket)
{
    return eventually([&] {
        char byte;
        const ssize_t got = ::recv(socket.get(), &byte, 1, MSG_DONTWAIT);
        return got == 0 || (got < 0 && errno == ECONNRESET);
    });
}

}

// Before the fix each header made the server allocate the whole announced body at once: 40 of them held 640 MiB.
TEST(IpcHostilePeer, AnAnnouncedBodyTakesMemoryOnlyAsItArrives)
{
    ipctest::RecordingServer server(service);
    const std::size_t before = residentBytes();
    std::vector<OwnedFd> peers;
    for (int i = 0; i < 40; ++i) {
        peers.push_back(connectToService());
        Bytes start = ipctest::rawHeader(static_cast<std::uint32_t>(limits::maxBodySize));
        start.resize(start.size() + 1000, 0);
        send(peers.back(), start);
    }
    ASSERT_TRUE(eventually([&] { return server.peerCount() == 40; }));
    // The last peer's first bytes have been read once the server has taken a frame from a later, good client.
    auto goodClient = Connection::createToService(service);
    goodClient->setEventHandler([](const Object&) { });
    goodClient->resume();
    goodClient->sendMessage(Object::dictionary({ { "n", Object::int64(1) } }));
    ASSERT_TRUE(eventually([&] { return server.eventCount(40) == 1; }));
    EXPECT_LT(residentBytes(), before + 64 * 1024 * 1024) << "40 frames announcing 16 MiB each, 1000 bytes sent";
    goodClient->cancel();
}

// A body that comes in pieces, larger than the first room the reader makes for it, arrives whole.
TEST(IpcHostilePeer, ABodyThatComesInPiecesArrivesWhole)
{
    ipctest::RecordingServer server(service);
    const std::string text(3 * 1024 * 1024 + 17, 'x');
    const Frame frame = encodeFrame(Object::dictionary({ { "text", Object::string(text) } }));
    OwnedFd peer = connectToService();
    ::fcntl(peer.get(), F_SETFL, 0);
    // In pieces of an odd size, so that the reader's buffer fills and grows in the middle of what it reads.
    const std::size_t piece = 100'003;
    for (std::size_t sent = 0; sent < frame.bytes.size();) {
        const auto part = std::span(frame.bytes).subspan(sent, std::min(piece, frame.bytes.size() - sent));
        const ssize_t got = ::send(peer.get(), part.data(), part.size(), MSG_NOSIGNAL);
        ASSERT_GT(got, 0) << std::strerror(errno);
        sent += static_cast<std::size_t>(got);
    }
    ASSERT_TRUE(eventually([&] { return server.eventCount(0) == 1; }));
    const auto events = server.recorder(0)->events();
    ASSERT_NE(events[0].stringForKey("text"), nullptr);
    EXPECT_EQ(*events[0].stringForKey("text"), text);
}

// Costs about 1 s: 65 connections and their log lines.
TEST(IpcHostilePeer, ConnectionsBeyondTheCapAreRefusedUntilOneCloses)
{
    ipctest::RecordingServer server(service);
    testsupport::LogCapture log;
    std::vector<OwnedFd> peers;
    for (std::size_t i = 0; i < limits::maxConnections; ++i)
        peers.push_back(connectToService());
    ASSERT_TRUE(eventually([&] { return server.peerCount() == limits::maxConnections; }));

    OwnedFd surplus = connectToService();
    EXPECT_TRUE(closedByServer(surplus));
    ASSERT_TRUE(eventually([&] { return log.countStartingWith("IPC: refused a connection") == 1; }));
    EXPECT_EQ(log.lines().at(0),
        "IPC: refused a connection from process " + std::to_string(::getpid()) + ": 64 connections are open, the most "
            "the service serves at once");
    EXPECT_EQ(server.peerCount(), limits::maxConnections);

    // Once the server has seen the first peer go, its place is free for a new one.
    peers.front() = OwnedFd();
    ASSERT_TRUE(eventually([&] { return server.eventCount(0) == 1; }));
    OwnedFd next = connectToService();
    EXPECT_TRUE(eventually([&] { return server.peerCount() == limits::maxConnections + 1; }));
    EXPECT_EQ(log.countStartingWith("IPC: refused a connection"), 1u);
    peers.clear();
}
