#pragma once

// Servers on loopback for the HTTP tests: a real HTTP server (cpp-httplib) and a raw socket server for replies that
// an HTTP server would never send (a connection dropped mid-reply, a reply that is not HTTP, no reply at all).

#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httptest {

inline std::string loopbackURL(int port, const std::string& path)
{
    return "http://127.0.0.1:" + std::to_string(port) + path;
}

// An HTTP server on an ephemeral loopback port. Register handlers on `server` before calling start(), which returns
// once the server is accepting connections.
class LoopbackHttpServer {
public:
    httplib::Server server;

    ~LoopbackHttpServer()
    {
        server.stop();
        if (m_thread.joinable())
            m_thread.join();
    }

    void start()
    {
        // The packaged library listens with a backlog of 5 and a handful of workers, compiled in. A thousand
        // connections arriving at once need more of both, or the kernel drops connection attempts and clients
        // wait seconds to retry: listening again on the bound socket raises the backlog.
        int listener = -1;
        server.set_socket_options([&listener](socket_t socket) {
            listener = socket;
            httplib::default_socket_options(socket);
        });
        server.new_task_queue = [] { return new httplib::ThreadPool(32); };
        m_port = server.bind_to_any_port("127.0.0.1");
        ::listen(listener, 4096);
        m_thread = std::thread([this] {
            server.listen_after_bind();
            m_listenEnded = true;
        });
        // The library's stop() does nothing to a server that has not yet entered its accept loop, which would then
        // accept for ever and hang the destructor's join: return only once the loop runs (or has given up).
        while (!server.is_running() && !m_listenEnded)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    std::string url(const std::string& path) const { return loopbackURL(m_port, path); }

private:
    int m_port = 0;
    std::atomic<bool> m_listenEnded { false };
    std::thread m_thread;
};

// Accepts connections on an ephemeral loopback port and hands each to `serve` on the server's thread, one after
// the other; the connection is closed when `serve` returns. `serve` should return once stopping() is true.
class RawSocketServer {
public:
    using Serve = std::function<void(int connection, RawSocketServer& server)>;

    explicit RawSocketServer(Serve serve)
        : m_serve(std::move(serve))
    {
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        ::listen(m_listener, 64);
        socklen_t length = sizeof(address);
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { acceptLoop(); });
    }

    ~RawSocketServer()
    {
        m_stopping = true;
        m_thread.join();
        ::close(m_listener);
    }

    std::string url(const std::string& path) const { return loopbackURL(m_port, path); }
    bool stopping() const { return m_stopping; }
    int accepted() const { return m_accepted; }

    // Reads the request's head (up to the empty line), or whatever arrives before the peer stops sending.
    static std::string readRequestHead(int connection)
    {
        std::string head;
        char byte;
        while (head.find("\r\n\r\n") == std::string::npos && ::recv(connection, &byte, 1, 0) == 1)
            head.push_back(byte);
        return head;
    }

    static void send(int connection, const std::string& bytes) { ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

    // Waits until the server stops or the peer closes the connection.
    void holdOpen(int connection) const
    {
        while (!m_stopping) {
            pollfd watched { connection, POLLIN, 0 };
            if (::poll(&watched, 1, 20) > 0) {
                char byte;
                if (::recv(connection, &byte, 1, 0) <= 0)
                    return;
            }
        }
    }

private:
    void acceptLoop()
    {
        while (!m_stopping) {
            pollfd watched { m_listener, POLLIN, 0 };
            if (::poll(&watched, 1, 20) <= 0)
                continue;
            const int connection = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0)
                continue;
            ++m_accepted;
            m_serve(connection, *this);
            ::close(connection);
        }
    }

    Serve m_serve;
    int m_listener = -1;
    int m_port = 0;
    std::atomic<bool> m_stopping { false };
    std::atomic<int> m_accepted { 0 };
    std::thread m_thread;
};

// A loopback port on which nothing listens: connecting to it is refused.
inline int closedLoopbackPort()
{
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    socklen_t length = sizeof(address);
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(probe);
    return ntohs(address.sin_port);
}

}
