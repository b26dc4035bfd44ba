#include "platform/IpcSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <string>

namespace platform::ipc {

PeerCredentials readPeerCredentials(int socket)
{
    ucred credentials {};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return {};
    return { credentials.uid, credentials.gid, credentials.pid, auditSessionId(credentials.pid) };
}

std::uint32_t auditSessionId(pid_t pid)
{
    if (pid <= 0)
        return 0;
    std::ifstream file("/proc/" + std::to_string(pid) + "/sessionid");
    std::string text;
    if (!(file >> text))
        return 0;
    std::uint32_t session = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), session);
    // The kernel writes 4294967295 for a process outside any audit session.
    constexpr std::uint32_t unset = 4294967295u;
    if (error != std::errc() || end != text.data() + text.size() || session == unset)
        return 0;
    return session;
}

long sendWithDescriptors(int socket, std::span<const std::uint8_t> bytes, std::span<const int> descriptors)
{
    iovec part { const_cast<std::uint8_t*>(bytes.data()), bytes.size() };
    msghdr message {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    std::vector<char> control;
    if (!descriptors.empty()) {
        control.resize(CMSG_SPACE(descriptors.size_bytes()));
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size_bytes());
    }
    const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 ? -errno : sent;
}

Received receiveWithDescriptors(int socket, std::span<std::uint8_t> buffer, std::size_t maxDescriptors)
{
    Received received;
    iovec part { buffer.data(), buffer.size() };
    msghdr message {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(maxDescriptors * sizeof(int)));
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0) {
        received.size = -errno;
        return received;
    }
    received.size = size;
    received.descriptorsTruncated = (message.msg_flags & MSG_CTRUNC) != 0;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof fd);
            received.descriptors.emplace_back(fd);
        }
    }
    return received;
}

bool unixAddress(const std::string& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

OwnedFd connectUnixSocket(const std::string& path, int& error)
{
    sockaddr_un address;
    if (!unixAddress(path, address)) {
        error = -ENAMETOOLONG;
        return {};
    }
    OwnedFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        error = -errno;
        return {};
    }
    // A blocking connect, so that a service whose backlog is full is waited for, for at most a second.
    const timeval timeout { 1, 0 };
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        error = -errno;
        return {};
    }
    const timeval none { 0, 0 };
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &none, sizeof none);
    ::fcntl(socket.get(), F_SETFL, ::fcntl(socket.get(), F_GETFL) | O_NONBLOCK);
    error = 0;
    return socket;
}

}
