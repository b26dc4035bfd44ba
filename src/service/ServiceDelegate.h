#pragma once

// ServiceDelegate: the delegate of the service's listener (the serving path of every OS version but 10.7). It
// accepts every connection it is asked about, without looking at the caller (the runtime has already turned away
// peers of another user), and exports to each one the SyncFilesXpcService that SyncEngines.h gives it: one of its own
// in strict mode (every SyncFile call of one connection runs on the same object, one after the other on the
// connection's queue), the process's one object otherwise.

#include "platform/IpcListener.h"

#include <memory>

namespace engine {
class SyncFilesXpcService;
}

namespace service {

class ServiceDelegate : public platform::ipc::ListenerDelegate {
public:
    // Exports the connection's SyncFilesXpcService through SyncFilesXpcServiceProtocol, resumes the connection, answers true.
    bool listener(platform::ipc::Listener& listener,
        const std::shared_ptr<platform::ipc::ListenerConnection>& shouldAcceptNewConnection) override;

protected:
    // The object exported to one new connection.
    virtual std::shared_ptr<engine::SyncFilesXpcService> newSyncFilesXpcService();
};

}
