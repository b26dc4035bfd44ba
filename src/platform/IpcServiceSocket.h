#pragma once

// Where a service listens. A service named N listens at <runtime folder>/N.sock, where the runtime folder is
// $KORBANHOLD_RUNTIME_DIR, or else $XDG_RUNTIME_DIR/korbanhold. The folder belongs to the user alone (0700) and the
// socket is 0600, so that no other user can reach the service; a service refuses to listen in a folder that another
// user owns or that is open to others. Started by systemd socket activation, a service takes the socket it is given.

#include "platform/OwnedFd.h"

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace platform::ipc {

// Why a service cannot listen, in one line.
class ListenError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Raises ListenError when neither variable is set.
std::filesystem::path runtimeFolder();
std::filesystem::path serviceSocketPath(std::string_view serviceName);

// Raises ListenError unless `folder` is a folder (not a link to one) owned by this process's user and closed to
// group and others.
void checkRuntimeFolder(const std::filesystem::path& folder);

// A service's listening socket, and the lock that says the service is alive for as long as it is held.
struct ServiceSocket {
    OwnedFd socket;
    // An exclusive flock on serviceLockPath(); absent for a socket that systemd passed and no lock could be taken.
    OwnedFd lock;
};

// The lock file beside a service's socket: <socket path>.lock.
std::filesystem::path serviceLockPath(std::string_view serviceName);

// The listening socket of service `serviceName`: the first listening Unix stream socket that systemd passed
// (LISTEN_FDS) when the process was started by socket activation; otherwise a socket bound at
// serviceSocketPath(serviceName), after creating the runtime folder (0700) if it is missing and checking it.
// Whether a service is running there is decided by the lock beside the socket, never by a connection that could be
// slow to answer: while another process holds it, nothing is touched and ListenError says so; once its holder is
// gone, a socket file left behind is replaced. Raises ListenError.
ServiceSocket listenForService(std::string_view serviceName);

}
