#pragma once

// Runs the ipc_peer helper program as a real second process: with extra environment variables, optionally with a
// listening socket passed the way systemd's socket activation passes one (descriptor 3, LISTEN_FDS=1, LISTEN_PID
// set to the child's own pid), its output collected, and a time limit.

#include "platform/helpers/IpcTestSupport.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace ipctest {

struct PeerResult {
    // The exit status, or -1 when the child was ended by a signal.
    int exitCode = -1;
    std::string output;
    std::string errors;
};

class PeerProcess {
public:
    PeerProcess(std::vector<std::string> arguments, std::vector<std::string> environment, int activationSocket = -1)
    {
        std::vector<std::string> argv = { peerProgram().string() };
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        std::vector<std::string> envp;
        for (char** variable = environ; *variable; ++variable)
            envp.emplace_back(*variable);
        envp.insert(envp.end(), environment.begin(), environment.end());
        if (activationSocket >= 0) {
            envp.emplace_back("LISTEN_FDS=1");
            envp.emplace_back("LISTEN_PID=0000000000"); // the child writes its pid over the placeholder
        }
        std::vector<char*> argPointers, envPointers;
        for (auto& argument : argv)
            argPointers.push_back(argument.data());
        argPointers.push_back(nullptr);
        for (auto& variable : envp)
            envPointers.push_back(variable.data());
        envPointers.push_back(nullptr);
        char* listenPid = activationSocket >= 0 ? envPointers[envPointers.size() - 2] + std::strlen("LISTEN_PID=") : nullptr;

        m_output = ::memfd_create("peer-output", MFD_CLOEXEC);
        m_errors = ::memfd_create("peer-errors", MFD_CLOEXEC);
        m_pid = ::fork();
        if (m_pid < 0)
            throw std::runtime_error("fork failed");
        if (m_pid == 0) {
            // Only async-signal-safe calls from here on.
            ::dup2(m_output, 1);
            ::dup2(m_errors, 2);
            if (activationSocket >= 0) {
                // dup2 onto itself would keep close-on-exec, so clear it in that case.
                if (activationSocket == 3)
                    ::fcntl(3, F_SETFD, 0);
                else
                    ::dup2(activationSocket, 3);
                writePid(listenPid, ::getpid());
            }
            ::execve(argPointers[0], argPointers.data(), envPointers.data());
            ::_exit(127);
        }
    }

    ~PeerProcess()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        ::close(m_output);
        ::close(m_errors);
    }

    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    pid_t pid() const { return m_pid; }

    // Waits for the child to end, killing it after `timeout`.
    PeerResult wait(std::chrono::milliseconds timeout = std::chrono::seconds(20))
    {
        PeerResult result;
        int status = 0;
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (::waitpid(m_pid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() >= deadline) {
                ::kill(m_pid, SIGKILL);
                ::waitpid(m_pid, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        m_pid = -1;
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.output = contents(m_output);
        result.errors = contents(m_errors);
        return result;
    }

    // Ends the child (SIGTERM) and waits for it.
    PeerResult stop()
    {
        ::kill(m_pid, SIGTERM);
        return wait();
    }

private:
    // Writes `pid` in decimal over the placeholder, which is long enough for any pid.
    static void writePid(char* digits, pid_t pid)
    {
        int length = 1;
        for (pid_t rest = pid / 10; rest > 0; rest /= 10)
            ++length;
        digits[length] = '\0';
        for (int i = length - 1; i >= 0; --i, pid /= 10)
            digits[i] = static_cast<char>('0' + pid % 10);
    }

    static std::string contents(int file)
    {
        std::string text;
        char buffer[4096];
        ssize_t count;
        for (off_t offset = 0; (count = ::pread(file, buffer, sizeof buffer, offset)) > 0; offset += count)
            text.append(buffer, static_cast<std::size_t>(count));
        return text;
    }

    pid_t m_pid = -1;
    int m_output = -1;
    int m_errors = -1;
};

}
