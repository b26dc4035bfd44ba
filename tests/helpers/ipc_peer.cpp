// The other process in the IPC runtime's tests.
//
//   ipc_peer exchange SERVICE   connects to SERVICE, sends a message of every kind, waits for one back, checks it
//                               and prints the service's credentials as "pid=P euid=U egid=G asid=S"; exit status 0
//                               when the reply was right, 2 when it was not (the problems on stderr), 3 on no reply
//   ipc_peer serve SERVICE      serves SERVICE, answering every message with { "served-by": <its pid> }
#include "EveryKind.h"

#include "platform/IpcConnection.h"
#include "platform/IpcServer.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <utility>

using namespace platform::ipc;

static int exchange(const std::string& service)
{
    auto connection = Connection::createToService(service);
    std::promise<Object> reply;
    auto replied = reply.get_future();
    connection->setEventHandler([&reply, answered = false](const Object& event) mutable {
        if (!std::exchange(answered, true))
            reply.set_value(event);
    });
    connection->resume();
    connection->sendMessage(ipctest::messageOfEveryKind("from the client", "shared by the client"));
    if (replied.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
        return 3;
    const Object message = replied.get();
    const PeerCredentials credentials = connection->credentials();
    std::printf("pid=%d euid=%u egid=%u asid=%u\n", credentials.pid, credentials.euid, credentials.egid, credentials.auditSessionId);
    std::fflush(stdout);
    const std::string problems = ipctest::checkMessageOfEveryKind(message, "from the server", "shared by the server");
    connection->cancel();
    if (!problems.empty()) {
        std::fprintf(stderr, "wrong reply: %s\n", problems.c_str());
        return 2;
    }
    return 0;
}

static void serveAnswering(const std::string& service)
{
    serve(service, [](const std::shared_ptr<Connection>& peer) {
        peer->setEventHandler([peer](const Object& event) {
            if (event.type() == Type::Dictionary)
                peer->sendMessage(Object::dictionary({ { "served-by", Object::int64(::getpid()) } }));
        });
        peer->resume();
    });
}

int main(int argc, char** argv)
{
    if (argc == 3 && std::string(argv[1]) == "exchange")
        return exchange(argv[2]);
    if (argc == 3 && std::string(argv[1]) == "serve")
        serveAnswering(argv[2]);
    std::fprintf(stderr, "usage: ipc_peer exchange|serve SERVICE\n");
    return 64;
}
