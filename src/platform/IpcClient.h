#pragma once

// Sending one message to a service and leaving, as a client that expects no reply does (`korbanhold sync`, the file
// watcher's call of SyncFile). Connecting to the socket of a service that systemd listens for starts the service.

#include "platform/IpcObject.h"

#include <string>

namespace platform::ipc {

// What went wrong with a send: the errno of the failing call and the words for it; `error` 0 means the message went.
struct SendResult {
    int error = 0;
    std::string where; // the socket path, or empty when no socket path could be made
    std::string reason;
    explicit operator bool() const { return error == 0; }
};

// Connects to the socket of service `serviceName` (serviceSocketPath) and writes the whole frame of `message`,
// waiting while the socket's buffer is full. Raises WireError when `message` cannot be encoded.
SendResult sendMessage(std::string_view serviceName, const Object& message);

}
