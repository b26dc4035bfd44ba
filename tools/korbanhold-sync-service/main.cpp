// korbanhold-sync-service: the background synchronisation service. Started on demand (by systemd socket
// activation, or by hand), it serves the host application's requests until SIGTERM or SIGINT, then tells every
// connected peer that termination is imminent and exits with status 0. Log lines go to stderr, or straight to the
// journal when stderr is the journal's stream (JournalLog.h); under a Type=notify unit it reports READY=1 once it
// serves.
//
// Environment:
//   KORBANHOLD_RUNTIME_DIR      the folder of the service's socket (default $XDG_RUNTIME_DIR/korbanhold)
//   KORBANHOLD_PREFERENCES_DIR  the preferences folder (default $XDG_CONFIG_HOME/korbanhold/Preferences)
//   KORBANHOLD_SERVER           host[:port] or http://host[:port]/ of the REST server (default localhost:8080)
//   KORBANHOLD_APPKIT_VERSION   the OS version to act as; 1138 serves as OS 10.7 did
//   LISTEN_FDS, LISTEN_PID      the socket given by systemd socket activation
//
// Options: --help and --version print and exit with status 0, starting nothing.
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

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>

namespace {

constexpr const char* environmentHelp = R"(Environment:
  KORBANHOLD_RUNTIME_DIR      the folder of the service's socket (default $XDG_RUNTIME_DIR/korbanhold)
  KORBANHOLD_PREFERENCES_DIR  the preferences folder (default $XDG_CONFIG_HOME/korbanhold/Preferences)
  KORBANHOLD_SERVER           host[:port] or http://host[:port]/ of the REST server (default localhost:8080)
  KORBANHOLD_APPKIT_VERSION   the OS version to act as; 1138 serves as OS 10.7 did
  LISTEN_FDS, LISTEN_PID      the socket given by systemd socket activation)";

// Reads the arguments before anything starts. Gives back the status to exit with at once (after --help, --version
// or a wrong argument), or nothing when the service should run.
std::optional<int> readCommandLine(int argc, char** argv)
{
    CLI::App app("The background synchronisation service of Korbanhold. Started on demand (by systemd socket "
                 "activation, or by hand), it serves the host application's requests until SIGTERM or SIGINT.",
        "korbanhold-sync-service");
    app.footer(environmentHelp);
    tools::addVersionFlag(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    return std::nullopt;
}

}

int main(int argc, char** argv)
{
    if (const auto status = readCommandLine(argc, argv))
        return *status;
    platform::setProgramName("korbanhold-sync-service");
    // Under systemd the lines go to the journal directly, with priorities, and without a second time stamp.
    if (platform::stderrIsJournal())
        platform::setLogSink(platform::journalSink());
    platform::UserDefaults::setApplicationDomain(service::syncServiceName);
    platform::stopMainQueueOnSignals({ SIGTERM, SIGINT });
    try {
        rest::configuredServer();
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
