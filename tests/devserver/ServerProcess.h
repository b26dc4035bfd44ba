#pragma once

// korbanhold-devserver as a real child process on a free port of 127.0.0.1, for the tests of this folder.

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace devservertest {

// The program built beside the tests: $KORBANHOLD_BINARY_DIR/tools/korbanhold-devserver, or the same path found
// from the test executable's own place when the variable is not set.
std::string serverProgram();

class ServerProcess {
public:
    // Starts the server with `arguments` and "--port 0", and waits for its "listening on" line.
    explicit ServerProcess(std::vector<std::string> arguments = { "--db", ":memory:" },
        std::vector<std::string> environment = {});
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

    // Sends `signal` and waits for the process: its exit code, or 128 + the signal that ended it.
    int stop(int signal);

private:
    pid_t m_pid = -1;
    std::string m_line;
    int m_port = 0;
};

// Runs the server program to its end with `arguments` (for the options that exit at once) and returns its exit
// code; `output` receives what it wrote on stdout and stderr.
int runServerProgram(const std::vector<std::string>& arguments, std::string& output);

}
