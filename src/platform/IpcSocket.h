#pragma once

// Thin wrappers of the Unix-socket system calls that the IPC runtime makes. They return errors (as errno values)
// instead of leaving callers to read errno, and hand every received descriptor over as an OwnedFd.

#include "platform/OwnedFd.h"

#include <sys/types.h>
#include <sys/un.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace platform::ipc {

// Who is at the other end of a connected socket, as the kernel recorded it when the connection was made.
struct PeerCredentials {
    uid_t euid = 0;
    gid_t egid = 0;
    pid_t pid = 0;
    // The audit session of the peer process (/proc/<pid>/sessionid); 0 when unknown.
    std::uint32_t auditSessionId = 0;
};

// The peer's credentials from SO_PEERCRED; all zero when the socket has none.
PeerCredentials readPeerCredentials(int socket);

// The audit session id of process `pid`, 0 when it cannot be read or the process has none.
std::uint32_t auditSessionId(pid_t pid);

// Sends the first bytes of `bytes` with `descriptors` attached as SCM_RIGHTS, without blocking and without SIGPIPE.
// Gives the number of bytes sent (the descriptors go with the first byte), or -errno.
long sendWithDescriptors(int socket, std::span<const std::uint8_t> bytes, std::span<const int> descriptors);

struct Received {
    // Bytes read, 0 at the end of the stream, or -errno.
    long size = 0;
    // Descriptors that came with these bytes, in order, each closed on exec.
    std::vector<OwnedFd> descriptors;
    // The peer sent more descriptors than could be taken; the kernel closed the rest.
    bool descriptorsTruncated = false;
};

// Reads at most `buffer.size()` bytes without blocking, taking up to `maxDescriptors` descriptors that came with them.
Received receiveWithDescriptors(int socket, std::span<std::uint8_t> buffer, std::size_t maxDescriptors);

// A stream socket connected to the Unix socket at `path`, non-blocking and closed on exec; or -errno in `error`.
OwnedFd connectUnixSocket(const std::string& path, int& error);

// Fills a Unix socket address; false when `path` does not fit one.
bool unixAddress(const std::string& path, sockaddr_un& address);

}
