#include "WatcherProcess.h"

#include "support/Eventually.h"
#include "support/TempDir.h"

#include <csignal>

namespace e2etest {

namespace {

testsupport::ProcessOptions watcherOptions(const ServiceFolders& folders,
    const std::vector<std::pair<std::string, std::optional<std::string>>>& environment)
{
    auto options = folders.options();
    options.environment.insert(options.environment.end(), environment.begin(), environment.end());
    // The watcher runs for the whole test; wait() only collects its end after SIGTERM.
    options.timeout = std::chrono::minutes(10);
    return options;
}

std::vector<std::string> commandLine(const std::filesystem::path& log, const std::vector<std::string>& launcher,
    const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = { "-c", "log=$1; shift; exec \"$@\" 2>\"$log\"", "sh", log.string() };
    command.insert(command.end(), launcher.begin(), launcher.end());
    command.push_back(testsupport::builtProgram("tools/korbanhold-watch").string());
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

}

WatcherProcess::WatcherProcess(const ServiceFolders& folders, const std::vector<std::string>& arguments,
    const std::vector<std::pair<std::string, std::optional<std::string>>>& environment,
    const std::vector<std::string>& launcher)
    : m_log(folders.logPath().parent_path() / "watcher.log")
    , m_runtime(folders.runtimeFolder())
    , m_process("/bin/sh", commandLine(m_log, launcher, arguments), watcherOptions(folders, environment))
{
    m_started = testsupport::eventually([&] { return !state().empty() || m_process.hasEnded(); },
                    std::chrono::seconds(30), std::chrono::milliseconds(20))
        && !m_process.hasEnded();
}

std::string WatcherProcess::log() const
{
    return std::filesystem::exists(m_log) ? testsupport::readFile(m_log) : std::string();
}

bool WatcherProcess::logEventuallyHolds(const std::string& text) const
{
    return testsupport::eventually([&] { return log().find(text) != std::string::npos; }, std::chrono::seconds(60),
        std::chrono::milliseconds(50));
}

std::filesystem::path WatcherProcess::stateFile() const
{
    return m_runtime / "korbanhold-watch.state";
}

std::string WatcherProcess::state() const
{
    // The watcher replaces the file while it runs and removes it when it stops.
    try {
        std::error_code error;
        return std::filesystem::exists(stateFile(), error) ? testsupport::readFile(stateFile()) : std::string();
    } catch (const std::exception&) {
        return {};
    }
}

testsupport::ProcessResult WatcherProcess::stop()
{
    ::kill(m_process.pid(), SIGTERM);
    return m_process.wait();
}

}
