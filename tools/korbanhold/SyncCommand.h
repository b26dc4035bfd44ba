#pragma once

// `korbanhold sync`: asks the running sync service to sync, as the host application does.
//
//   korbanhold sync                     calls SyncFile (an invocation message; on the OS 10.7 path any message
//                                       starts a pass, so this one does too)
//   korbanhold sync --message JSON      sends JSON instead: a dictionary as it is, any other value as
//                                       { "contents": VALUE }, as the connection wrapper sends it
//   korbanhold sync --debug-log TEXT    sends { "XPCDebugLog": TEXT }, which the service only writes to its log
//   korbanhold sync --confirm-delete-all
//                                       confirms that the next pass may report every item deleted when it finds
//                                       the synced folder empty (the service refuses to otherwise): leaves the file
//                                       "confirm-delete-all" in the runtime folder, which that pass uses up, and
//                                       calls SyncFile
//   korbanhold sync --wait [--timeout S]
//                                       then waits (120 s at most by default) until the pass the message started
//                                       has ended, and its report when it had changes to report, as the service's
//                                       status file records them (sync/ServiceStatus.h), and prints what happened:
//                                       nothing to report, the records reported and the table stored, or the error
//                                       and the server's URL
//
// The service is found at its socket in the runtime folder ($KORBANHOLD_RUNTIME_DIR, else
// $XDG_RUNTIME_DIR/korbanhold).
//
// Exit status: 0 once the message is sent (with --wait: once the table is stored or there was nothing to report),
// 1 when the service cannot be reached (with --wait: the report failed, or the time ran out), 2 on a usage error.

#include <CLI/CLI.hpp>

namespace korbanhold {

void addSyncCommand(CLI::App& app);

}
