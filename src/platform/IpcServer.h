#pragma once

// platform::ipc::Server: accepts the peers of a listening socket, and serve(), which runs a whole service on one.
//
// A peer whose effective uid is not this process's is disconnected as soon as it is accepted, before any of its
// bytes is read, with one log line: a service is reachable only by its own user. While limits::maxConnections peers
// have their sockets open, a new peer is disconnected at once with one log line too. Every other peer becomes a new,
// suspended Connection that is handed to the connection handler on the server's own serial queue.

#include "platform/IpcConnection.h"
#include "platform/IpcServiceSocket.h"
#include "platform/OwnedFd.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace platform::ipc {

using ConnectionHandler = std::function<void(const std::shared_ptr<Connection>& peer)>;

class Server : public std::enable_shared_from_this<Server> {
    struct Private { };

public:
    // Starts accepting on `listening` (a listening Unix stream socket), holding its lock until stop().
    static std::shared_ptr<Server> start(ServiceSocket listening, ConnectionHandler handler);
    // Starts accepting on a listening Unix stream socket that has no lock.
    static std::shared_ptr<Server> start(OwnedFd listeningSocket, ConnectionHandler handler);

    Server(Private, ServiceSocket listening, ConnectionHandler handler);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Stops accepting, closes the listening socket and gives its lock back; the connections already made go on.
    void stop();
    // Delivers TerminationImminent to every peer connection that is still open.
    void announceTerminationImminent();

private:
    struct Acceptor;

    // Accepts every peer waiting, then waits for more.
    void acceptAll();
    void accepted(OwnedFd socket);

    const std::unique_ptr<Acceptor> m_acceptor; // touched on the I/O thread only
    const ConnectionHandler m_handler;
    const std::shared_ptr<Queue> m_queue;
    std::mutex m_mutex;
    std::vector<std::weak_ptr<Connection>> m_peers;
    // Peers whose sockets are open; each connection counts itself down when its socket closes.
    const std::shared_ptr<std::atomic<std::size_t>> m_openPeers = std::make_shared<std::atomic<std::size_t>>(0);
};

// Runs a service for the rest of the process: `listen` starts listening (raising ListenError when it cannot), then the
// calling thread runs the main queue. When listening fails, logs why in one line and exits with status 1.
[[noreturn]] void runService(const std::function<void()>& listen);

// Serves the service `serviceName` as the platform's service main function does: listens (listenForService), hands
// every new peer connection to `handler`, and gives the calling thread to the main queue for the rest of the process.
// When the service cannot listen, it logs why in one line and exits with status 1.
[[noreturn]] void serve(std::string_view serviceName, ConnectionHandler handler);

}
