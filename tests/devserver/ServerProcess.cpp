#include "devserver/ServerProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace devservertest {

std::string serverProgram()
{
    if (const char* binaryDir = std::getenv("KORBANHOLD_BINARY_DIR"); binaryDir && *binaryDir)
        return (std::filesystem::path(binaryDir) / "tools" / "korbanhold-devserver").string();
    const auto testsDir = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return (testsDir.parent_path() / "tools" / "korbanhold-devserver").string();
}

namespace {

// Sanitizer builds start slowly; this is only the limit of a failing start.
constexpr auto startLimit = std::chrono::seconds(60);

struct Pipe {
    int read = -1;
    int write = -1;
    Pipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe failed");
        read = ends[0];
        write = ends[1];
    }
    ~Pipe()
    {
        if (read >= 0)
            close(read);
        if (write >= 0)
            close(write);
    }
};

pid_t spawn(const std::vector<std::string>& arguments, const std::vector<std::string>& environment, Pipe& output,
    bool mergeStderr)
{
    const std::string program = serverProgram();
    std::vector<std::string> argumentTexts { program };
    argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& argument : argumentTexts)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    std::vector<std::string> environmentTexts;
    for (char** entry = environ; *entry; ++entry)
        environmentTexts.emplace_back(*entry);
    environmentTexts.insert(environmentTexts.end(), environment.begin(), environment.end());
    std::vector<char*> envp;
    for (auto& entry : environmentTexts)
        envp.push_back(entry.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output.write, STDOUT_FILENO);
    if (mergeStderr)
        posix_spawn_file_actions_adddup2(&actions, output.write, STDERR_FILENO);
    pid_t pid = -1;
    const int failed = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failed)
        throw std::runtime_error("cannot start " + program);
    close(output.write);
    output.write = -1;
    return pid;
}

int waitForExit(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}

ServerProcess::ServerProcess(std::vector<std::string> arguments, std::vector<std::string> environment)
{
    arguments.insert(arguments.end(), { "--port", "0" });
    Pipe output;
    m_pid = spawn(arguments, environment, output, false);

    const auto deadline = std::chrono::steady_clock::now() + startLimit;
    while (m_line.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd watch { output.read, POLLIN, 0 };
        char buffer[256];
        ssize_t count = 0;
        if (left.count() <= 0 || poll(&watch, 1, static_cast<int>(left.count())) <= 0
            || (count = read(output.read, buffer, sizeof buffer)) <= 0) {
            stop(SIGKILL);
            throw std::runtime_error("korbanhold-devserver did not say where it listens; it printed: " + m_line);
        }
        m_line.append(buffer, static_cast<std::size_t>(count));
    }
    m_line.erase(m_line.find('\n'));
    const auto colon = m_line.rfind(':');
    m_port = std::atoi(m_line.c_str() + colon + 1);
}

ServerProcess::~ServerProcess()
{
    if (m_pid > 0)
        stop(SIGTERM);
}

int ServerProcess::stop(int signal)
{
    kill(m_pid, signal);
    const int code = waitForExit(m_pid);
    m_pid = -1;
    return code;
}

std::string ServerProcess::url(std::string_view path) const
{
    return "http://127.0.0.1:" + std::to_string(m_port) + std::string(path);
}

std::string ServerProcess::methodUrl(std::string_view methodPath) const
{
    return url("/KorbanholdRestService/" + std::string(methodPath));
}

std::string ServerProcess::adminUrl(std::string_view route) const { return url("/devserver/" + std::string(route)); }

int runServerProgram(const std::vector<std::string>& arguments, std::string& output)
{
    Pipe pipe;
    const pid_t pid = spawn(arguments, {}, pipe, true);
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(pipe.read, buffer, sizeof buffer)) > 0)
        output.append(buffer, static_cast<std::size_t>(count));
    return waitForExit(pid);
}

}
