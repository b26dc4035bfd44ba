#include "service/SyncEngines.h"

#include "platform/Log.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/ServiceStatus.h"
#include "sync/SyncFilesXpcService.h"

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

void announceSyncMode(const engine::SyncPolicy& policy)
{
    platform::log("Sync mode: %@", policy.name());
    engine::status::modeChosen(policy.name());
}

}
