#pragma once

// The service's entry: chooses how to serve by the OS version and serves until the main queue is stopped (SIGTERM).
//
// On OS 10.7 the service serves its connections itself (XPCService): every message of any content, on any
// connection, runs SyncFile (strict mode: on a new SyncFilesXpcService each time). On every other version it runs the
// listener, whose delegate exports a SyncFilesXpcService to each connection (strict mode: one per connection).
// Outside strict mode the process has one SyncFilesXpcService for all of them (SyncEngines.h).

#include <memory>

namespace service {

class XPCConnection;

// Returns 0 once serving has ended. Raises platform::ipc::ListenError when the service cannot listen.
int main(int argc, char** argv);

// The connection handler of the older path: every message that `connection` delivers starts SyncFile on the
// SyncFilesXpcService of syncEngineForRequest(), which its polling loop then keeps alive.
void startSyncFileOnEveryMessage(const std::shared_ptr<XPCConnection>& connection);

}
