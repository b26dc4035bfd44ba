// korbanhold-watch: the file watcher of the Korbanhold product. It watches every folder of the synced folder
// ("<korbanholdPathKey>/Korbanhold", from the settings domain) and raises the status in the file watcher's domain
// when something changed, so that the sync service's next pass reports it; when no pass takes a raise up, it calls
// the service's SyncFile. It runs in the foreground until SIGTERM or SIGINT, then exits with status 0; log lines
// go to stderr (the journal under systemd). docs/watcher.md tells the rules.
//
// Environment:
//   KORBANHOLD_PREFERENCES_DIR   the preferences folder (default $XDG_CONFIG_HOME/korbanhold/Preferences)
//   KORBANHOLD_RUNTIME_DIR       the service's socket and the watcher's state file (default $XDG_RUNTIME_DIR/korbanhold)
//   KORBANHOLD_WATCH_QUEUE_LIMIT a test aid: more events than this in one read count as an overflow of the queue

#include "common/ProgramInfo.h"
#include "platform/Log.h"
#include "platform/IpcServiceSocket.h"
#include "platform/UserDefaults.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/RecordKeys.h"
#include "watch/Watcher.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>
#include <sys/signalfd.h>

namespace {

std::optional<std::size_t> queueLimitFromEnvironment()
{
    const char* limit = std::getenv("KORBANHOLD_WATCH_QUEUE_LIMIT");
    if (!limit || !*limit)
        return std::nullopt;
    return std::stoul(limit);
}

}

int main(int argc, char** argv)
{
    namespace domains = engine::domains;
    namespace settings = engine::settings;
    platform::setProgramName("korbanhold-watch");
    watch::WatcherOptions options;
    options.settingsDomain = domains::korbanhold;
    options.pathKey = settings::korbanholdPath;
    options.statusDomain = domains::fileWatcher;
    options.statusKey = settings::fileWatcherStatus;
    options.serviceName = service::syncServiceName;
    double rescanSeconds = 600, pollSeconds = 5, takeUpSeconds = 5;
    CLI::App app("The file watcher of the Korbanhold sync service: raises the status when the synced folder changes.",
        "korbanhold-watch");
    tools::addVersionFlag(app);
    app.add_option("--rescan-interval", rescanSeconds, "Raise the status at least this often (seconds)")
        ->check(CLI::PositiveNumber)->capture_default_str();
    app.add_option("--poll-interval", pollSeconds, "Raise this often while folders cannot be watched (seconds)")
        ->check(CLI::PositiveNumber)->capture_default_str();
    app.add_option("--sync-call-after", takeUpSeconds, "Call SyncFile when no pass takes a raise up this long (seconds)")
        ->check(CLI::PositiveNumber)->capture_default_str();
    tools::addVersionFlag(app);
    CLI11_PARSE(app, argc, argv);
    const auto milliseconds = [](double seconds) { return std::chrono::milliseconds(std::llround(seconds * 1000)); };
    options.timing.rescan = milliseconds(rescanSeconds);
    options.timing.poll = milliseconds(pollSeconds);
    options.timing.takeUp = milliseconds(takeUpSeconds);
    options.queueLimit = queueLimitFromEnvironment();
    try {
        options.stateFile = watch::watcherStateFile();
    } catch (const platform::ipc::ListenError& error) {
        platform::log("No state file is kept: %@", std::string_view(error.what()));
    }

    // SIGTERM and SIGINT arrive as readable data on a descriptor that the loop waits on with the folder's events.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
    const int stop = signalfd(-1, &stopSignals, SFD_CLOEXEC);

    platform::UserDefaults::setApplicationDomain(std::string(domains::fileWatcher));
    watch::Watcher watcher(platform::UserDefaults::standardUserDefaults(), std::move(options));
    watcher.run(stop);
    platform::log("Stopped");
    return EXIT_SUCCESS;
}
