#pragma once

// Which SyncFilesXpcService serves a connection (listener path) or a message (older path). In strict mode each one
// gets a new object, whose SyncFile calls each start a polling loop of their own. Otherwise the process has one
// object, made at the first request, so that however many connections, messages and SyncFile calls arrive, one
// polling loop runs.

#include "sync/SyncPolicy.h"

#include <filesystem>
#include <memory>
#include <optional>

namespace engine {
class SyncFilesXpcService;
}

namespace service {

std::shared_ptr<engine::SyncFilesXpcService> syncEngineForRequest();

// Logs the mode the service runs in and records it in the service's status file (sync/ServiceStatus.h) for
// `korbanhold status`. Called once the service serves.
void announceSyncMode(const engine::SyncPolicy& policy);

}
