#include "platform/IpcServer.h"

#include "platform/IpcServiceSocket.h"
#include "platform/IpcWire.h"
#include "platform/helpers/IpcTestSupport.h"
#include "support/LogCapture.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

using namespace platform::ipc;
using platform::Queue;
using platform::OwnedFd;
using ipctest::EventRecorder;
using testing::HasSubstr;
using testsupport::eventually;

namespace {

// A listening socket at `path`.
OwnedFd listeningSocketAt(const std::filesystem::path& path)
{
    sockaddr_un address;
    unixAddress(path.string(), address);
    OwnedFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(socket.get(), 16) != 0)
        throw std::runtime_error("cannot listen at " + path.string());
    return socket;
}

Object numbered(std::int64_t number) { return Object::dictionary({ { "n", Object::int64(number) } }); }

}

TEST(IpcServer, APeerOfAnotherUserIsDisconnectedBeforeAnyOfItsBytesIsRead)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "connecting as another user needs root, to switch to the user nobody";
    // A folder and socket that the other user can reach, so that only the server's own check stands in the way.
    testsupport::TempDir folder;
    ::chmod(folder.path().c_str(), 0755);
    const auto path = folder / "open.sock";
    OwnedFd listening = listeningSocketAt(path);
    ::chmod(path.c_str(), 0777);
    testsupport::LogCapture log;
    std::atomic<int> handed = 0;
    auto server = Server::start(std::move(listening), [&](const std::shared_ptr<Connection>& peer) {
        ++handed;
        peer->cancel();
    });

    sockaddr_un address;
    unixAddress(path.string(), address);
    const Bytes frame = encodeFrame(numbered(1)).bytes;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // As the user nobody: connect, send a whole message, and expect the connection to be closed on us.
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(10);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            ::_exit(11);
        ::send(socket, frame.data(), frame.size(), MSG_NOSIGNAL);
        char byte;
        const ssize_t got = ::recv(socket, &byte, 1, 0);
        ::_exit(got <= 0 ? 0 : 12);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "10: cannot become nobody, 11: cannot connect, 12: the server answered";
    ASSERT_TRUE(eventually([&] { return log.countStartingWith("IPC: refused a connection") == 1; }));
    EXPECT_TRUE(log.contains("IPC: refused a connection from process " + std::to_string(child)
        + " (uid 65534): the service serves uid 0 only"));
    EXPECT_EQ(handed, 0);
    server->stop();
}

TEST(IpcServer, APeerOfTheSameUserIsHandedOverSuspendedOnTheServersQueue)
{
    ipctest::ScopedRuntimeFolder folder;
    auto recorder = EventRecorder::make();
    std::mutex handedMutex;
    std::shared_ptr<Connection> handed;
    std::string handlerQueue;
    auto server = Server::start(listenForService("Test.Service"), [&](const std::shared_ptr<Connection>& peer) {
        auto current = Queue::current();
        std::lock_guard lock(handedMutex);
        handlerQueue = current ? current->label() : "(none)";
        peer->setEventHandler(recorder->handler());
        handed = peer;
    });
    auto client = Connection::createToService("Test.Service");
    client->setEventHandler([](const Object&) { });
    client->resume();
    client->sendMessage(numbered(3));
    ASSERT_TRUE(eventually([&] {
        std::lock_guard lock(handedMutex);
        return handed != nullptr;
    }));
    {
        std::lock_guard lock(handedMutex);
        EXPECT_EQ(handlerQueue, "ipc.server");
    }
    // Suspended: the message waits until the peer is resumed. (A peer handed over running could deliver it at any
    // moment, so this can only miss such a fault, never report one that is not there.)
    EXPECT_FALSE(eventually([&] { return recorder->events().size() > 0; }, std::chrono::milliseconds(200)));
    handed->resume();
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(recorder->events()[0], numbered(3));
    client->cancel();
    server->stop();
}

TEST(IpcServer, TerminationImminentReachesEveryOpenPeer)
{
    ipctest::RecordingServer service("Test.Service");
    std::vector<std::shared_ptr<Connection>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(Connection::createToService(service.name()));
        clients.back()->setEventHandler([](const Object&) { });
        clients.back()->resume();
    }
    ASSERT_TRUE(eventually([&] { return service.peerCount() == 3; }));
    service.announceTerminationImminent();
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(service.recorder(i)->waitFor(1));
        EXPECT_EQ(service.recorder(i)->events()[0].errorEventIf(), ErrorEvent::TerminationImminent);
    }
    for (const auto& client : clients)
        client->cancel();
}

TEST(IpcServer, AStoppedServerAcceptsNoMore)
{
    ipctest::ScopedRuntimeFolder folder;
    auto server = Server::start(listenForService("Test.Service"), [](const std::shared_ptr<Connection>&) { });
    server->stop();
    EXPECT_TRUE(eventually([&] {
        int error = 0;
        return !connectUnixSocket(serviceSocketPath("Test.Service").string(), error);
    }));
}

TEST(IpcServer, AServiceStartedBySocketActivationServesOnTheSocketItIsGiven)
{
    const std::filesystem::path activate = "/usr/bin/systemd-socket-activate";
    if (!std::filesystem::exists(activate))
        GTEST_SKIP() << "systemd-socket-activate is not installed (Debian package systemd)";
    testsupport::TempDir activation;
    const auto path = activation / "activated.sock";
    ipctest::ScopedRuntimeFolder elsewhere;
    testsupport::Process service(activate, { "--listen=" + path.string(), ipctest::peerProgram().string(), "serve", "Test.Activated" });

    // The socket is made by systemd-socket-activate, which starts the service on the first connection.
    OwnedFd socket;
    ASSERT_TRUE(eventually([&] {
        int error = 0;
        socket = connectUnixSocket(path.string(), error);
        return bool(socket);
    }));
    auto client = Connection::createForPeer(std::move(socket));
    auto recorder = EventRecorder::make();
    client->setEventHandler(recorder->handler());
    client->resume();
    client->sendMessage(numbered(1));
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ(recorder->events()[0].find("served-by")->int64Value(), service.pid());
    EXPECT_FALSE(std::filesystem::exists(elsewhere.path() / "Test.Activated.sock")) << "no socket of its own was made";
    client->cancel();
}

TEST(IpcServer, AServiceRefusesToStartInAnInsecureFolderWithOneClearLine)
{
    testsupport::TempDir folder;
    ::chmod(folder.path().c_str(), 0775);
    testsupport::ProcessOptions options;
    options.environment = { { "KORBANHOLD_RUNTIME_DIR", folder.string() } };
    const testsupport::ProcessResult result = testsupport::runProcess(ipctest::peerProgram(), { "serve", "Test.Insecure" }, options);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.standardError, testing::EndsWith("cannot listen at " + folder.string()
            + ": the runtime folder is open to other users (mode 0775, not 0700)\n"));
    EXPECT_EQ(std::count(result.standardError.begin(), result.standardError.end(), '\n'), 1) << result.standardError;
}
