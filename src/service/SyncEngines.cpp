#include "service/SyncEngines.h"

#include "platform/IpcServiceSocket.h"
#include "platform/Log.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/SyncFilesXpcService.h"

#include <fstream>
#include <mutex>

namespace service {

std::shared_ptr<engine::SyncFilesXpcService> syncEngineForRequest()
{
    auto policy = engine::SyncPolicy::forProcess();
    if (!policy.oneEnginePerProcess())
        return std::make_shared<engine::SyncFilesXpcService>();
    static std::mutex mutex;
    static std::shared_ptr<engine::SyncFilesXpcService> processEngine;
    std::lock_guard lock(mutex);
    if (!processEngine)
        processEngine = std::make_shared<engine::SyncFilesXpcService>();
    return processEngine;
}

}

namespace service {

namespace {
    std::filesystem::path serviceSocketPathBeside(const std::filesystem::path& modePath)
    {
        return modePath.parent_path() / (std::string(syncServiceName) + ".sock");
    }
}

std::optional<std::filesystem::path> syncModePath()
{
    try {
        return platform::ipc::runtimeFolder() / "sync-mode";
    } catch (const platform::ipc::ListenError&) {
        return std::nullopt;
    }
}

void announceSyncMode(const engine::SyncPolicy& policy)
{
    platform::log("Sync mode: %@", policy.name());
    auto path = syncModePath();
    std::error_code error;
    // Only beside the service's own socket: a service given its socket by systemd may have no runtime folder of
    // its own to write into.
    if (!path || !std::filesystem::is_socket(serviceSocketPathBeside(*path), error))
        return;
    auto written = path->string() + ".new";
    std::ofstream(written) << policy.name() << '\n';
    std::filesystem::rename(written, *path, error);
}

}
