#include "service/SyncEngines.h"

#include "platform/IpcServiceSocket.h"
#include "platform/Log.h"
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
    if (!path)
        return;
    std::error_code error;
    if (std::filesystem::create_directories(path->parent_path(), error))
        std::filesystem::permissions(path->parent_path(), std::filesystem::perms::owner_all, error);
    auto written = path->string() + ".new";
    std::ofstream(written) << policy.name() << '\n';
    std::filesystem::rename(written, *path, error);
}

}
