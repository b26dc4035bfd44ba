// korbanhold-sync-service: the background synchronisation service. Started on demand (by systemd socket
// activation, or by hand), it serves the host application's requests until SIGTERM or SIGINT, then tells every
// connected peer that termination is imminent and exits with status 0. Log lines go to stderr (the journal under
// systemd).
//
// Environment:
//   KORBANHOLD_RUNTIME_DIR      the folder of the service's socket (default $XDG_RUNTIME_DIR/korbanhold)
//   KORBANHOLD_PREFERENCES_DIR  the preferences folder (default $XDG_CONFIG_HOME/korbanhold/Preferences)
//   KORBANHOLD_SERVER           host[:port] of the REST server (default localhost:8080)
//   KORBANHOLD_APPKIT_VERSION   the OS version to act as; 1138 serves as OS 10.7 did
//   KORBANHOLD_MAX_REPLY_BYTES  the largest server reply held in memory (default 268435456, docs/http-errors.md)
//   KORBANHOLD_IPC_FRAME_TIMEOUT_MS  how long an IPC frame may take to arrive (default 30000, docs/ipc-wire-format.md)
//   LISTEN_FDS, LISTEN_PID      the socket given by systemd socket activation
//
// Exit status: 0 after a clean stop, 1 when the service cannot listen (one line on stderr says why).

#include "platform/IpcServiceSocket.h"
#include "platform/Log.h"
#include "platform/Queue.h"
#include "platform/UserDefaults.h"
#include "service/ServiceMain.h"
#include "service/SyncFilesXpcServiceProtocol.h"

#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv)
{
    // Blocks of 128 KiB and more come straight from the system and go straight back when freed. By default the
    // allocator raises that threshold after each such free, up to 32 MiB, and then keeps what large inputs (a
    // reply cut at its limit, a huge domain) left behind in its heap for the rest of the process.
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    platform::setProgramName("korbanhold-sync-service");
    platform::UserDefaults::setApplicationDomain(service::syncServiceName);
    platform::stopMainQueueOnSignals({ SIGTERM, SIGINT });
    try {
        const int status = service::main(argc, argv);
        // The polling loops never end: passes may be running on other threads right now, using the standard
        // defaults and the queues. The process ends here, without destroying the static objects under them.
        std::cerr.flush();
        std::fflush(nullptr);
        std::_Exit(status);
    } catch (const platform::ipc::ListenError& error) {
        platform::log("The service cannot start: %@", std::string_view(error.what()));
        return EXIT_FAILURE;
    }
}
