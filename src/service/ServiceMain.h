#pragma once

// The service's entry: chooses how to serve by the OS version and serves until the main queue is stopped (SIGTERM).
//
// On OS 10.7 the service serves its connections itself (XPCService): every message of any content, on any
// connection, runs SyncFile on a new SyncFilesXpcService. On every other version it runs the listener, whose delegate
// exports one SyncFilesXpcService per connection.

#include <memory>

namespace service {

class XPCConnection;

// Returns 0 once serving has ended. Raises platform::ipc::ListenError when the service cannot listen.
int main(int argc, char** argv);

// The connection handler of the older path: every message that `connection` delivers starts SyncFile on a new
// SyncFilesXpcService, which its polling loop then keeps alive.
void startSyncFileOnEveryMessage(const std::shared_ptr<XPCConnection>& connection);

}
