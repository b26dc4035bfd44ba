#pragma once

// korbanhold-watch as a real process for tests, with the service's folders and its log in a file beside the
// service's, so that a test can read it while the watcher runs.

#include "ServiceProcess.h"

#include "support/Process.h"

#include <filesystem>
#include <string>
#include <vector>

namespace e2etest {

class WatcherProcess {
public:
    // Starts korbanhold-watch with `arguments` and `environment` added to the service's environment; `launcher` is
    // put in front of it (unshare ...), when given. Waits until the watcher has written its state file.
    WatcherProcess(const ServiceFolders& folders, const std::vector<std::string>& arguments = {},
        const std::vector<std::pair<std::string, std::optional<std::string>>>& environment = {},
        const std::vector<std::string>& launcher = {});

    pid_t pid() const { return m_process.pid(); }
    bool started() const { return m_started; }
    std::string log() const;
    bool logEventuallyHolds(const std::string& text) const;
    std::filesystem::path stateFile() const;
    // The state file's text, or "" when there is none.
    std::string state() const;
    bool hasEnded() const { return m_process.hasEnded(); }
    // Sends SIGTERM and waits for the watcher to end.
    testsupport::ProcessResult stop();

private:
    std::filesystem::path m_log;
    std::filesystem::path m_runtime;
    testsupport::Process m_process;
    bool m_started = false;
};

}
