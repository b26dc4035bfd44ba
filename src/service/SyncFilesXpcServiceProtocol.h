#pragma once

// SyncFilesXpcServiceProtocol: what the service exports over the listener. One method, `SyncFile`, with no
// arguments and no reply; an invocation of it runs SyncFilesXpcService::SyncFile on the connection's exported object.

#include "platform/IpcListener.h"

namespace service {

// The IPC name of the service, and so of its socket.
inline constexpr const char* syncServiceName = "Ulmaridon.SyncFilesXpcService";

// The interface made from the protocol; its exported object is a std::shared_ptr<engine::SyncFilesXpcService>.
platform::ipc::Interface syncFilesXpcServiceInterface();

}
