#include "platform/IpcServer.h"

#include "platform/IpcRuntime.h"
#include "platform/IpcServiceSocket.h"
#include "platform/IpcSocket.h"
#include "platform/IpcWire.h"
#include "platform/Log.h"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace platform::ipc {

namespace asio = boost::asio;

// The listening side of a server. Every member is used on the I/O thread only.
struct Server::Acceptor {
    std::optional<asio::posix::stream_descriptor> socket;
    OwnedFd lock;
    // Waits before accepting again when the process has run out of descriptors.
    asio::steady_timer pause { ioContext() };
};

std::shared_ptr<Server> Server::start(ServiceSocket listening, ConnectionHandler handler)
{
    auto server = std::make_shared<Server>(Private {}, std::move(listening), std::move(handler));
    asio::post(ioContext(), [server] { server->acceptAll(); });
    return server;
}

std::shared_ptr<Server> Server::start(OwnedFd listeningSocket, ConnectionHandler handler)
{
    return start(ServiceSocket { std::move(listeningSocket), OwnedFd() }, std::move(handler));
}

Server::Server(Private, ServiceSocket listening, ConnectionHandler handler)
    : m_acceptor(std::make_unique<Acceptor>())
    , m_handler(std::move(handler))
    , m_queue(Queue::makeSerial("ipc.server"))
{
    const int socket = listening.socket.get();
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    m_acceptor->socket.emplace(ioContext(), listening.socket.release());
    m_acceptor->lock = std::move(listening.lock);
}

Server::~Server() = default;

void Server::acceptAll()
{
    auto& socket = m_acceptor->socket;
    while (socket) {
        OwnedFd peer(::accept4(socket->native_handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (peer) {
            try {
                accepted(std::move(peer));
            } catch (const std::bad_alloc&) {
                log("IPC: refused a connection: out of memory");
            }
            continue;
        }
        const int error = errno;
        if (error == EINTR || error == ECONNABORTED)
            continue;
        if (error == EAGAIN || error == EWOULDBLOCK) {
            socket->async_wait(asio::posix::descriptor_base::wait_read,
                [self = shared_from_this()](const boost::system::error_code& failed) {
                    if (!failed)
                        self->acceptAll();
                });
        } else {
            log("IPC: accepting a connection failed: %@", std::strerror(error));
            m_acceptor->pause.expires_after(std::chrono::milliseconds(100));
            m_acceptor->pause.async_wait([self = shared_from_this()](const boost::system::error_code& failed) {
                if (!failed)
                    self->acceptAll();
            });
        }
        return;
    }
}

void Server::accepted(OwnedFd socket)
{
    const PeerCredentials peer = readPeerCredentials(socket.get());
    if (peer.euid != ::geteuid()) {
        log("IPC: refused a connection from process %@ (uid %@): the service serves uid %@ only", peer.pid, peer.euid,
            ::geteuid());
        return;
    }
    if (*m_openPeers >= limits::maxConnections) {
        log("IPC: refused a connection from process %@: %@ connections are open, the most the service serves at once",
            peer.pid, limits::maxConnections);
        return;
    }
    ++*m_openPeers;
    auto connection = Connection::createForPeer(std::move(socket), [openPeers = m_openPeers] { --*openPeers; });
    {
        std::lock_guard lock(m_mutex);
        std::erase_if(m_peers, [](const auto& weak) { return weak.expired(); });
        m_peers.push_back(connection);
    }
    m_queue->async([handler = m_handler, connection] { handler(connection); });
}

void Server::stop()
{
    asio::post(ioContext(), [self = shared_from_this()] {
        self->m_acceptor->socket.reset();
        self->m_acceptor->lock.reset();
        self->m_acceptor->pause.cancel();
    });
}

void Server::announceTerminationImminent()
{
    std::lock_guard lock(m_mutex);
    for (const auto& weak : m_peers) {
        if (auto connection = weak.lock())
            connection->deliverTerminationImminent();
    }
}

void runService(const std::function<void()>& listen)
{
    try {
        listen();
    } catch (const ListenError& error) {
        log("%@", error.what());
        std::exit(EXIT_FAILURE);
    }
    runMainQueue();
    std::exit(EXIT_SUCCESS);
}

void serve(std::string_view serviceName, ConnectionHandler handler)
{
    runService([&] { Server::start(listenForService(serviceName), std::move(handler)); });
}

}
