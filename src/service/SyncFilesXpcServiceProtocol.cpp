#include "service/SyncFilesXpcServiceProtocol.h"

#include "sync/SyncFilesXpcService.h"

namespace service {

platform::ipc::Interface syncFilesXpcServiceInterface()
{
    return platform::ipc::Interface::withProtocol<engine::SyncFilesXpcService>("SyncFilesXpcServiceProtocol",
        { { "SyncFile", &engine::SyncFilesXpcService::SyncFile } });
}

}
