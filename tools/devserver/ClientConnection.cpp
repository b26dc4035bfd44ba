#include "devserver/ClientConnection.h"

#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <filesystem>

namespace devserver {

// The port and address of a socket's own end (local) or of its peer.
static bool endpoint(int socket, bool peer, std::string& address, int& port)
{
    sockaddr_storage storage {};
    socklen_t length = sizeof storage;
    auto* raw = reinterpret_cast<sockaddr*>(&storage);
    if ((peer ? getpeername(socket, raw, &length) : getsockname(socket, raw, &length)) != 0)
        return false;
    char text[INET6_ADDRSTRLEN] {};
    if (storage.ss_family == AF_INET) {
        const auto* ipv4 = reinterpret_cast<const sockaddr_in*>(&storage);
        inet_ntop(AF_INET, &ipv4->sin_addr, text, sizeof text);
        port = ntohs(ipv4->sin_port);
    } else if (storage.ss_family == AF_INET6) {
        const auto* ipv6 = reinterpret_cast<const sockaddr_in6*>(&storage);
        inet_ntop(AF_INET6, &ipv6->sin6_addr, text, sizeof text);
        port = ntohs(ipv6->sin6_port);
    } else {
        return false;
    }
    address = text;
    return true;
}

static bool matches(int socket, const httplib::Request& request)
{
    std::string address;
    int port = 0;
    return endpoint(socket, false, address, port) && address == request.local_addr && port == request.local_port
        && endpoint(socket, true, address, port) && address == request.remote_addr && port == request.remote_port;
}

std::optional<ClientConnection> ClientConnection::of(const httplib::Request& request)
{
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        const auto name = entry.path().filename().string();
        int descriptor = -1;
        if (std::from_chars(name.data(), name.data() + name.size(), descriptor).ec != std::errc())
            continue;
        struct stat status {};
        if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode) && matches(descriptor, request))
            return ClientConnection(descriptor);
    }
    return std::nullopt;
}

void ClientConnection::waitUntilClosedByClient(const std::atomic<bool>& stopping) const
{
    // The client has sent its whole request and waits for the reply, so the next thing it can do is close.
    pollfd watch { m_socket, POLLRDHUP, 0 };
    constexpr int checkStopEveryMs = 50;
    while (!stopping) {
        watch.revents = 0;
        const int ready = poll(&watch, 1, checkStopEveryMs);
        if (ready > 0 && (watch.revents & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)))
            return;
        if (ready < 0 && errno != EINTR)
            return;
    }
}

void ClientConnection::shutDown() const { ::shutdown(m_socket, SHUT_RDWR); }

}
