#include "HostileHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace e2etest {

namespace {

    constexpr std::uint64_t gigabyte = 1ull << 30;
    constexpr std::size_t block = 1u << 20;

    bool sendAll(int socket, std::string_view bytes)
    {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0)
                return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    // Reads one request: its head, then as many body bytes as its Content-Length says. False when the client went.
    bool readRequest(int client)
    {
        std::string request;
        char buffer[65536];
        std::size_t headEnd = std::string::npos;
        std::size_t bodySize = 0;
        for (;;) {
            if (headEnd == std::string::npos) {
                headEnd = request.find("\r\n\r\n");
                if (headEnd != std::string::npos) {
                    const auto field = request.find("Content-Length: ");
                    if (field != std::string::npos && field < headEnd)
                        bodySize = std::strtoull(request.c_str() + field + 16, nullptr, 10);
                }
            }
            if (headEnd != std::string::npos && request.size() >= headEnd + 4 + bodySize)
                return true;
            const ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
            if (got <= 0)
                return false;
            request.append(buffer, static_cast<std::size_t>(got));
        }
    }

}

HostileHttpServer::HostileHttpServer(Reply reply)
    : m_reply(reply)
{
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (m_listener < 0 || ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || ::listen(m_listener, 16) != 0
        || ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("the hostile HTTP server cannot listen");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { serve(); });
}

HostileHttpServer::~HostileHttpServer()
{
    m_stopping = true;
    ::shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    ::close(m_listener);
}

std::string HostileHttpServer::address() const { return "127.0.0.1:" + std::to_string(m_port); }

void HostileHttpServer::serve()
{
    while (!m_stopping) {
        pollfd waiting { m_listener, POLLIN, 0 };
        if (::poll(&waiting, 1, 100) <= 0)
            continue;
        const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        answer(client);
        ::close(client);
    }
}

void HostileHttpServer::answer(int client)
{
    if (!readRequest(client))
        return;
    ++m_requests;
    const std::string filler(block, ' ');
    bool sent = true;
    if (m_reply == Reply::Gigabyte) {
        sent = sendAll(client,
            "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(gigabyte)
                + "\r\n\r\n");
        for (std::uint64_t total = 0; sent && total < gigabyte && !m_stopping; total += block) {
            sent = sendAll(client, filler);
            m_bytesSent += sent ? block : 0;
        }
    } else {
        sent = sendAll(client, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n");
        const std::string chunk = "100000\r\n" + filler + "\r\n";
        while (sent && !m_stopping) {
            sent = sendAll(client, chunk);
            m_bytesSent += sent ? block : 0;
        }
    }
    if (!sent)
        ++m_abandoned;
}

}
