#include "ServiceProcess.h"

#include "support/Eventually.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace e2etest {

namespace {

std::size_t occurrences(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

// The service's stderr goes to `logPath` through a shell, which then gives its process to the launcher or service.
std::vector<std::string> shellArguments(const std::filesystem::path& logPath, const std::vector<std::string>& command)
{
    std::vector<std::string> arguments = { "-c", "log=$1; shift; exec \"$@\" 2>\"$log\"", "sh", logPath.string() };
    arguments.insert(arguments.end(), command.begin(), command.end());
    return arguments;
}

// True when the socket at `path` takes a connection. The socket file appears at bind(), before the service listens,
// so its existence alone does not say that the service is ready.
bool acceptsConnections(const std::filesystem::path& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(probe);
    return connected;
}

}

std::filesystem::path serviceProgram()
{
    return testsupport::builtProgram("tools/korbanhold-sync-service");
}

ServiceFolders::ServiceFolders()
    : m_runtime(m_root / "run")
    , m_preferences(m_root / "Preferences")
{
    std::filesystem::create_directory(m_runtime);
    ::chmod(m_runtime.c_str(), 0700);
}

std::filesystem::path ServiceFolders::socketPath() const
{
    return m_runtime / "Ulmaridon.SyncFilesXpcService.sock";
}

testsupport::ProcessOptions ServiceFolders::options(const std::optional<std::string>& appKitVersion) const
{
    testsupport::ProcessOptions options;
    options.environment = {
        { "KORBANHOLD_RUNTIME_DIR", m_runtime.string() },
        { "KORBANHOLD_PREFERENCES_DIR", m_preferences.string() },
        { "KORBANHOLD_STATE_DIR", (m_root / "state").string() },
        { "KORBANHOLD_APPKIT_VERSION", appKitVersion },
        { "KORBANHOLD_SERVER", m_server },
        { "LISTEN_FDS", std::nullopt },
        { "LISTEN_PID", std::nullopt },
    };
    options.environment.insert(options.environment.end(), m_extraEnvironment.begin(), m_extraEnvironment.end());
    options.timeout = std::chrono::seconds(20);
    return options;
}

std::string ServiceFolders::log() const
{
    return std::filesystem::exists(logPath()) ? testsupport::readFile(logPath()) : std::string();
}

std::size_t ServiceFolders::logCount(const std::string& text) const
{
    return occurrences(log(), text);
}

bool ServiceFolders::logEventuallyHolds(const std::string& text, std::size_t times) const
{
    return testsupport::eventually([&] { return logCount(text) >= times; });
}

std::string ServiceFolders::fileWatcherDomain() const
{
    const auto path = m_preferences / "Ulmaridon.FileWatcherXpcService.json";
    return std::filesystem::exists(path) ? testsupport::readFile(path) : std::string();
}

testsupport::ProcessResult ServiceFolders::sync(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> command = { "sync" };
    command.insert(command.end(), arguments.begin(), arguments.end());
    return testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), command, options());
}

ServiceProcess::ServiceProcess(const ServiceFolders& folders, const std::optional<std::string>& appKitVersion,
    const std::vector<std::string>& launcher)
    : m_process("/bin/sh", [&] {
        std::vector<std::string> command = launcher;
        command.push_back(serviceProgram().string());
        return shellArguments(folders.logPath(), command);
    }(), folders.options(appKitVersion))
{
    m_listening = testsupport::eventually([&] { return acceptsConnections(folders.socketPath()); });
}

testsupport::ProcessResult ServiceProcess::stop(int signal)
{
    ::kill(m_process.pid(), signal);
    return m_process.wait();
}

testsupport::ProcessResult ServiceProcess::kill()
{
    return stop(SIGKILL);
}

}
