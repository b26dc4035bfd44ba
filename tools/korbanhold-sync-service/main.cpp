// korbanhold-sync-service: the background synchronisation service. Started on demand (by systemd socket
// activation, or by hand), it serves the host application's requests until SIGTERM or SIGINT, then tells every
// connected peer that termination is imminent and exits with status 0. Log lines go to stderr, or straight to the
// journal when stderr is the journal's stream (JournalLog.h); under a Type=notify unit it reports READY=1 once it
// serves.
//
// Environment:
//   KORBANHOLD_STRICT           "1": the same as --strict
//   KORBANHOLD_RETRY_BACKOFF_MS the first delay of the retries after a failed batch report (default 2000; tests)
//   KORBANHOLD_RUNTIME_DIR      the folder of the service's socket (default $XDG_RUNTIME_DIR/korbanhold)
//   KORBANHOLD_PREFERENCES_DIR  the preferences folder (default $XDG_CONFIG_HOME/korbanhold/Preferences)
//   KORBANHOLD_STATE_DIR        the folder of its status file (default $XDG_STATE_HOME/korbanhold)
//   XDG_STATE_HOME              the watched-files table's database goes in $XDG_STATE_HOME/korbanhold (default
//                               ~/.local/state/korbanhold), or in KORBANHOLD_PREFERENCES_DIR when that is set
//   KORBANHOLD_LOG_LINE_MAX     the longest log line in bytes (default 49152; 0: no cap)
//   KORBANHOLD_SERVER           host[:port] or http://host[:port]/ of the REST server (default localhost:8080)
//   KORBANHOLD_APPKIT_VERSION   the OS version to act as; 1138 serves as OS 10.7 did
//   KORBANHOLD_MAX_REPLY_BYTES  the largest server reply held in memory (default 268435456, docs/http-errors.md)
//   KORBANHOLD_IPC_FRAME_TIMEOUT_MS  how long an IPC frame may take to arrive (default 30000, docs/ipc-wire-format.md)
//   LISTEN_FDS, LISTEN_PID      the socket given by systemd socket activation
//
// Options: --help and --version print and exit with status 0, starting nothing; --strict runs the described system
// exactly, without the safeguards against data loss (docs/safeguards.md).
//
// Exit status: 0 after a clean stop (or after --help, --version), 1 when the service cannot start: it cannot listen,
// or KORBANHOLD_SERVER is not a server address (one line on stderr says why); 2 for arguments it does not know.

#include "common/ProgramInfo.h"
#include "platform/IpcServiceSocket.h"
#include "platform/JournalLog.h"
#include "platform/Log.h"
#include "platform/Queue.h"
#include "platform/UserDefaults.h"
#include "rest/RestURL.h"
#include "service/ServiceMain.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/ServiceStatus.h"
#include "sync/SyncPolicy.h"

#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>

namespace {

constexpr const char* environmentHelp = R"(Environment:
  KORBANHOLD_STRICT           "1": the same as --strict
  KORBANHOLD_RETRY_BACKOFF_MS the first delay of the retries after a failed batch report (default 2000)
  KORBANHOLD_RUNTIME_DIR      the folder of the service's socket (default $XDG_RUNTIME_DIR/korbanhold)
  KORBANHOLD_PREFERENCES_DIR  the preferences folder (default $XDG_CONFIG_HOME/korbanhold/Preferences)
  KORBANHOLD_STATE_DIR        the folder of its status file (default $XDG_STATE_HOME/korbanhold)
  XDG_STATE_HOME              the watched-files table's database goes in $XDG_STATE_HOME/korbanhold (default
                              ~/.local/state/korbanhold), or in KORBANHOLD_PREFERENCES_DIR when that is set
  KORBANHOLD_LOG_LINE_MAX     the longest log line in bytes (default 49152; 0: no cap)
  KORBANHOLD_SERVER           host[:port] or http://host[:port]/ of the REST server (default localhost:8080)
  KORBANHOLD_APPKIT_VERSION   the OS version to act as; 1138 serves as OS 10.7 did
  KORBANHOLD_MAX_REPLY_BYTES  the largest server reply held in memory (default 268435456)
  KORBANHOLD_IPC_FRAME_TIMEOUT_MS  how long an IPC frame may take to arrive (default 30000)
  LISTEN_FDS, LISTEN_PID      the socket given by systemd socket activation)";

// Reads the arguments before anything starts; --strict chooses the mode of the process. Gives back the status to exit with at once (after --help, --version
// or a wrong argument), or nothing when the service should run.
std::optional<int> readCommandLine(int argc, char** argv)
{
    CLI::App app("The background synchronisation service of Korbanhold. Started on demand (by systemd socket "
                 "activation, or by hand), it serves the host application's requests until SIGTERM or SIGINT.",
        "korbanhold-sync-service");
    app.footer(environmentHelp);
    tools::addVersionFlag(app);
    bool strict = false;
    app.add_flag("--strict", strict,
        "Run the described system exactly, without the safeguards against data loss (docs/safeguards.md)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    if (strict)
        engine::SyncPolicy::setForProcess(engine::SyncPolicy::strict());
    return std::nullopt;
}

// What the service does goes to its status file, for `korbanhold status` and `korbanhold sync --wait`. Without a
// state folder it serves all the same.
void recordStatus()
{
    try {
        engine::status::recordTo(engine::status::filePath());
    } catch (const platform::Exception& error) {
        platform::log("The service keeps no status file: %@", error);
    }
}

}

int main(int argc, char** argv)
{
    if (const auto status = readCommandLine(argc, argv))
        return *status;
    // Blocks of 128 KiB and more come straight from the system and go straight back when freed. By default the
    // allocator raises that threshold after each such free, up to 32 MiB, and then keeps what large inputs (a
    // reply cut at its limit, a huge domain) left behind in its heap for the rest of the process.
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    // One heap for every thread. Passes run one at a time, but on whichever pool thread is free, and each thread
    // would otherwise get a heap of its own that keeps what that thread's last pass freed: at 100,000 items the
    // service peaked at 114 MB resident with them, 88 MB with one.
    ::mallopt(M_ARENA_MAX, 1);
    platform::setProgramName("korbanhold-sync-service");
    // Under systemd the lines go to the journal directly, with priorities, and without a second time stamp.
    if (platform::stderrIsJournal())
        platform::setLogSink(platform::journalSink());
    platform::UserDefaults::setApplicationDomain(service::syncServiceName);
    platform::stopMainQueueOnSignals({ SIGTERM, SIGINT });
    // A write over the file-size limit fails with EFBIG, which the store reports and survives, instead of ending the
    // process.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        rest::configuredServer();
        recordStatus();
        const int status = service::main(argc, argv);
        // The polling loops never end: passes may be running on other threads right now, using the standard
        // defaults and the queues. The process ends here, without destroying the static objects under them.
        std::cerr.flush();
        std::fflush(nullptr);
        std::_Exit(status);
    } catch (const platform::ipc::ListenError& error) {
        platform::log("The service cannot start: %@", std::string_view(error.what()));
        return EXIT_FAILURE;
    } catch (const rest::ServerSettingError& error) {
        platform::log("The service cannot start: %@", std::string_view(error.what()));
        return EXIT_FAILURE;
    }
}
