#include "service/ServiceDelegate.h"

#include "service/SyncEngines.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/SyncFilesXpcService.h"

namespace service {

bool ServiceDelegate::listener(platform::ipc::Listener&,
    const std::shared_ptr<platform::ipc::ListenerConnection>& shouldAcceptNewConnection)
{
    shouldAcceptNewConnection->setExportedInterface(syncFilesXpcServiceInterface());
    shouldAcceptNewConnection->setExportedObject(newSyncFilesXpcService());
    shouldAcceptNewConnection->resume();
    return true;
}

std::shared_ptr<engine::SyncFilesXpcService> ServiceDelegate::newSyncFilesXpcService()
{
    return syncEngineForRequest();
}

}
