#pragma once

// The sync service as a real process for tests: korbanhold-sync-service started with its runtime and preferences
// folders in a temporary folder and its log written to a file there, so that a test can read the log while the
// service runs; and `korbanhold` run against the same folders.

#include "support/Process.h"
#include "support/TempDir.h"

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace e2etest {

class ServiceFolders {
public:
    ServiceFolders();

    const std::filesystem::path& runtimeFolder() const { return m_runtime; }
    std::filesystem::path socketPath() const;
    std::filesystem::path preferencesFolder() const { return m_preferences; }
    std::filesystem::path logPath() const { return m_root / "service.log"; }
    // The REST server ("host:port") the service reports to; unset, the service uses its default.
    void setServer(std::string address) { m_server = std::move(address); }
    // Runs the service in strict mode (KORBANHOLD_STRICT=1) or in the default mode whatever the test's own
    // environment says; without a call the service takes the mode from the test's environment.
    void setStrictMode(bool strict) { setEnvironment("KORBANHOLD_STRICT", strict ? "1" : "0"); }
    // Sets one more variable in the environment of every program a test starts.
    void setEnvironment(std::string name, std::string value) { m_extraEnvironment.emplace_back(std::move(name), std::move(value)); }
    // The environment of every program a test starts; `appKitVersion` absent leaves the OS version unset.
    testsupport::ProcessOptions options(const std::optional<std::string>& appKitVersion = std::nullopt) const;

    // The service's log so far.
    std::string log() const;
    // Waits until the log holds `text` `times` times; false when it does not within the time limit.
    bool logEventuallyHolds(const std::string& text, std::size_t times = 1) const;
    std::size_t logCount(const std::string& text) const;
    // The file watcher's domain as its file holds it, or "" when there is none.
    std::string fileWatcherDomain() const;

    // Runs `korbanhold sync` with `arguments`.
    testsupport::ProcessResult sync(const std::vector<std::string>& arguments = {}) const;

private:
    testsupport::TempDir m_root;
    std::filesystem::path m_runtime;
    std::filesystem::path m_preferences;
    std::optional<std::string> m_server;
    std::vector<std::pair<std::string, std::optional<std::string>>> m_extraEnvironment;
};

class ServiceProcess {
public:
    // Starts the service acting as OS version `appKitVersion` (absent: the current one) and waits until its socket
    // takes connections.
    // `program` and `arguments` put a launcher in front of it (systemd-socket-activate), when given.
    ServiceProcess(const ServiceFolders& folders, const std::optional<std::string>& appKitVersion,
        const std::vector<std::string>& launcher = {});

    bool listening() const { return m_listening; }
    // The service's process (the launcher, if any, has replaced itself with the service).
    pid_t pid() const { return m_process.pid(); }
    bool hasEnded() const { return m_process.hasEnded(); }
    // Sends `signal` (SIGTERM: a clean stop; SIGKILL: a crash) and waits for the service to end.
    testsupport::ProcessResult stop(int signal = SIGTERM);
    // Sends SIGKILL, as a crash or the out-of-memory killer would, and waits for the service to end.
    testsupport::ProcessResult kill();

private:
    testsupport::Process m_process;
    bool m_listening = false;
};

std::filesystem::path serviceProgram();

}
