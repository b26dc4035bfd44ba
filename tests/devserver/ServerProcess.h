#pragma once

// korbanhold-devserver as a real child process on a free port of 127.0.0.1, for the tests of this folder.

#include "support/Process.h"

#include <string>
#include <string_view>
#include <vector>

namespace devservertest {

class ServerProcess {
public:
    // Starts the server with `arguments` and "--port 0", and waits for its "listening on" line.
    explicit ServerProcess(std::vector<std::string> arguments = { "--db", ":memory:" },
        testsupport::ProcessOptions options = {});
    // Ends the server with SIGTERM if it still runs.
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // The line the server printed, without its newline.
    const std::string& listeningLine() const { return m_line; }
    int port() const { return m_port; }
    // http://127.0.0.1:PORT/KorbanholdRestService/<methodPath>
    std::string methodUrl(std::string_view methodPath) const;
    // http://127.0.0.1:PORT/devserver/<route>
    std::string adminUrl(std::string_view route) const;
    // http://127.0.0.1:PORT<path>
    std::string url(std::string_view path) const;

    // Sends `signal` and waits for the process to end; what it wrote on stderr is passed on to the test's output.
    testsupport::ProcessResult stop(int signal);

private:
    testsupport::Process m_process;
    bool m_running = true;
    std::string m_line;
    int m_port = 0;
};

// Runs the server program to its end with `arguments`, for the options that end it at once.
testsupport::ProcessResult runServerProgram(const std::vector<std::string>& arguments);

}
