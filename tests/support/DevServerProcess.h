#pragma once

// korbanhold-devserver as a real child process on a free port of 127.0.0.1, for every test that needs the server.

#include "support/Process.h"

#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

class DevServerProcess {
public:
    // Starts the server with `arguments` and "--port 0" (unless they name a port), and waits for its "listening on"
    // line.
    explicit DevServerProcess(std::vector<std::string> arguments = { "--db", ":memory:" },
        ProcessOptions options = {});
    // Ends the server with SIGTERM if it still runs.
    ~DevServerProcess();
    DevServerProcess(const DevServerProcess&) = delete;
    DevServerProcess& operator=(const DevServerProcess&) = delete;

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
    ProcessResult stop(int signal);

private:
    Process m_process;
    bool m_running = true;
    std::string m_line;
    int m_port = 0;
};

// Runs the server program to its end with `arguments`, for the options that end it at once.
ProcessResult runServerProgram(const std::vector<std::string>& arguments);

}
