#include "platform/IpcServiceSocket.h"

#include "platform/IpcSocket.h"

#include <systemd/sd-daemon.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

namespace platform::ipc {

namespace {

    std::string octalMode(mode_t mode)
    {
        char text[8];
        std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
        return text;
    }

    [[noreturn]] void refuse(const std::filesystem::path& where, const std::string& why)
    {
        throw ListenError("cannot listen at " + where.string() + ": " + why);
    }

    // The listening socket that systemd passed, if the process was started by socket activation.
    OwnedFd activatedSocket()
    {
        const int count = sd_listen_fds(1);
        if (count < 0)
            throw ListenError(std::string("cannot take the sockets passed by systemd: ") + std::strerror(-count));
        OwnedFd chosen;
        for (int fd = SD_LISTEN_FDS_START; fd < SD_LISTEN_FDS_START + count; ++fd) {
            if (!chosen && sd_is_socket_unix(fd, SOCK_STREAM, 1, nullptr, 0) > 0) {
                chosen.reset(fd);
                ::fcntl(fd, F_SETFD, FD_CLOEXEC);
            } else {
                ::close(fd);
            }
        }
        if (count > 0 && !chosen)
            throw ListenError("systemd passed " + std::to_string(count) + " sockets but no listening Unix stream socket");
        return chosen;
    }

    // The service's lock, taken without waiting; empty when another process holds it.
    OwnedFd takeServiceLock(const std::filesystem::path& lockPath)
    {
        OwnedFd lock(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!lock)
            refuse(lockPath, std::string("the lock file cannot be opened: ") + std::strerror(errno));
        while (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EWOULDBLOCK)
                return OwnedFd();
            if (errno != EINTR)
                refuse(lockPath, std::string("the lock file cannot be locked: ") + std::strerror(errno));
        }
        return lock;
    }

    // systemd owns the socket of an activated service; a lock beside it, when it can be had, tells a service started
    // by hand on that socket's path that this one runs. A socket without a path (abstract or unnamed) has no lock,
    // and nothing that a service started by hand could replace either.
    OwnedFd lockOfActivatedService(const OwnedFd& socket)
    {
        sockaddr_un address {};
        socklen_t length = sizeof address;
        if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0
            || length <= offsetof(sockaddr_un, sun_path) || address.sun_path[0] == '\0')
            return OwnedFd();
        const std::string socketPath(address.sun_path, ::strnlen(address.sun_path, sizeof address.sun_path));
        try {
            return takeServiceLock(socketPath + ".lock");
        } catch (const ListenError&) {
            return OwnedFd();
        }
    }

    // Removes a socket file whose service is gone: the caller holds the service's lock, so no service listens on it.
    void removeStaleSocket(const std::filesystem::path& path)
    {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0)
            return;
        if (!S_ISSOCK(status.st_mode))
            refuse(path, "a file that is not a socket is in the way");
        ::unlink(path.c_str());
    }

}

std::filesystem::path runtimeFolder()
{
    if (const char* folder = std::getenv("KORBANHOLD_RUNTIME_DIR"); folder && *folder)
        return folder;
    if (const char* folder = std::getenv("XDG_RUNTIME_DIR"); folder && *folder)
        return std::filesystem::path(folder) / "korbanhold";
    throw ListenError("neither KORBANHOLD_RUNTIME_DIR nor XDG_RUNTIME_DIR is set, so there is no runtime folder");
}

std::filesystem::path serviceSocketPath(std::string_view serviceName)
{
    return runtimeFolder() / (std::string(serviceName) + ".sock");
}

std::filesystem::path serviceLockPath(std::string_view serviceName)
{
    return runtimeFolder() / (std::string(serviceName) + ".sock.lock");
}

void checkRuntimeFolder(const std::filesystem::path& folder)
{
    struct stat status {};
    if (::lstat(folder.c_str(), &status) != 0)
        refuse(folder, std::string("the runtime folder cannot be read: ") + std::strerror(errno));
    if (!S_ISDIR(status.st_mode))
        refuse(folder, "the runtime folder is not a folder");
    if (status.st_uid != ::geteuid())
        refuse(folder, "the runtime folder is owned by uid " + std::to_string(status.st_uid) + ", not by uid "
                + std::to_string(::geteuid()));
    if ((status.st_mode & 077) != 0)
        refuse(folder, "the runtime folder is open to other users (mode " + octalMode(status.st_mode) + ", not 0700)");
}

ServiceSocket listenForService(std::string_view serviceName)
{
    if (OwnedFd activated = activatedSocket()) {
        OwnedFd lock = lockOfActivatedService(activated);
        return { std::move(activated), std::move(lock) };
    }

    const std::filesystem::path path = serviceSocketPath(serviceName);
    const std::filesystem::path folder = path.parent_path();
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        refuse(folder, std::string("the runtime folder cannot be created: ") + std::strerror(errno));
    checkRuntimeFolder(folder);
    OwnedFd lock = takeServiceLock(serviceLockPath(serviceName));
    if (!lock)
        refuse(path, "another process is already listening there");
    removeStaleSocket(path);

    sockaddr_un address;
    if (!unixAddress(path.string(), address))
        refuse(path, "the path is too long for a Unix socket");
    OwnedFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket)
        refuse(path, std::string("no socket: ") + std::strerror(errno));
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        refuse(path, std::string("bind failed: ") + std::strerror(errno));
    // The folder already keeps other users out; the socket's own mode says the same.
    if (::chmod(path.c_str(), 0600) != 0 || ::listen(socket.get(), SOMAXCONN) != 0)
        refuse(path, std::string("cannot listen: ") + std::strerror(errno));
    return { std::move(socket), std::move(lock) };
}

}
