// Two real processes: this test serves, the ipc_peer helper calls in; each sends the other a message of every value
// kind, descriptors included, and checks what it receives.
#include "platform/IpcServer.h"
#include "platform/IpcServiceSocket.h"
#include "helpers/EveryKind.h"
#include "platform/helpers/IpcTestSupport.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <future>
#include <sstream>

using namespace platform::ipc;

TEST(IpcProcesses, TwoProcessesExchangeEveryValueKindAndReadFilesThroughThePassedDescriptors)
{
    ipctest::ScopedRuntimeFolder folder;
    std::promise<std::pair<Object, PeerCredentials>> received;
    auto server = Server::start(listenForService("Test.Exchange"), [&](const std::shared_ptr<Connection>& peer) {
        peer->setEventHandler([&, peer, answered = false](const Object& event) mutable {
            if (event.type() != Type::Dictionary || std::exchange(answered, true))
                return;
            received.set_value({ event, peer->credentials() });
            peer->sendMessage(ipctest::messageOfEveryKind("from the server", "shared by the server"));
        });
        peer->resume();
    });

    const testsupport::ProcessResult result = testsupport::runProcess(ipctest::peerProgram(), { "exchange", "Test.Exchange" });
    auto message = received.get_future();
    ASSERT_EQ(message.wait_for(std::chrono::seconds(5)), std::future_status::ready) << result.standardError;
    const auto [event, credentials] = message.get();

    EXPECT_EQ(ipctest::checkMessageOfEveryKind(event, "from the client", "shared by the client"), "");
    EXPECT_EQ(result.exitCode, 0) << result.standardError;

    // Each side reads the other's credentials.
    std::ostringstream expected;
    expected << "pid=" << ::getpid() << " euid=" << ::geteuid() << " egid=" << ::getegid()
             << " asid=" << auditSessionId(::getpid()) << "\n";
    EXPECT_EQ(result.standardOutput, expected.str());
    EXPECT_GT(credentials.pid, 0);
    EXPECT_NE(credentials.pid, ::getpid());
    EXPECT_EQ(credentials.euid, ::geteuid());
    EXPECT_EQ(credentials.egid, ::getegid());
    server->stop();
}
