#include "service/ServiceMain.h"

#include "platform/IpcListener.h"
#include "platform/Queue.h"
#include "platform/ServiceReadiness.h"
#include "service/ServiceDelegate.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "service/XPCService.h"
#include "sync/SyncFilesXpcService.h"
#include "util/ServicesUtilities.h"

namespace service {

namespace {

void runListener()
{
    auto listener = platform::ipc::Listener::serviceListener(syncServiceName);
    listener->setDelegate(std::make_shared<ServiceDelegate>());
    listener->start();
    platform::notifyServiceReady();
    platform::runMainQueue();
    listener->announceTerminationImminent();
    listener->stop();
}

}

int main(int, char**)
{
    if (util::ServicesUtilities::is10_7())
        XPCService::runServiceWithConnectionHandler(startSyncFileOnEveryMessage);
    else
        runListener();
    return 0;
}

void startSyncFileOnEveryMessage(const std::shared_ptr<XPCConnection>& connection)
{
    connection->setEventHandler([](const Object&, const std::shared_ptr<XPCConnection>&) {
        std::make_shared<engine::SyncFilesXpcService>()->SyncFile();
    });
}

}
