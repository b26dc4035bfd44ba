#include "support/Process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace testsupport {

namespace {

[[noreturn]] void raiseErrno(int error, const std::string& what)
{
    throw std::system_error(error, std::generic_category(), what);
}

int makeMemoryFile(const char* name)
{
    const int fd = ::memfd_create(name, MFD_CLOEXEC);
    if (fd < 0)
        raiseErrno(errno, "memfd_create");
    return fd;
}

void writeAll(int fd, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            raiseErrno(errno, "write");
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

std::string readFromStart(int fd)
{
    std::string text;
    char buffer[65536];
    for (off_t offset = 0;;) {
        const ssize_t got = ::pread(fd, buffer, sizeof buffer, offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return text;
        text.append(buffer, static_cast<std::size_t>(got));
        offset += got;
    }
}

void closeIfOpen(int& fd)
{
    if (fd >= 0)
        ::close(std::exchange(fd, -1));
}

int reap(pid_t pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
    return status;
}

void killAndReap(pid_t pid)
{
    ::kill(pid, SIGKILL);
    reap(pid);
}

// This process's environment with `changes` applied, as "NAME=value" entries.
std::vector<std::string> environmentWith(const ProcessOptions& options)
{
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry) {
        const std::string_view text = *entry;
        const auto name = text.substr(0, text.find('='));
        bool changed = false;
        for (const auto& change : options.environment)
            changed = changed || change.first == name;
        if (!changed)
            entries.emplace_back(text);
    }
    for (const auto& [name, value] : options.environment) {
        if (value)
            entries.push_back(name + "=" + *value);
    }
    return entries;
}

std::vector<char*> nullTerminated(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    for (auto& text : strings)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The standard input of the child: a memory file holding the text, or /dev/null.
int openInput(const ProcessOptions& options)
{
    if (!options.standardInput) {
        const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            raiseErrno(errno, "open /dev/null");
        return fd;
    }
    const int fd = makeMemoryFile("stdin");
    writeAll(fd, *options.standardInput);
    ::lseek(fd, 0, SEEK_SET);
    return fd;
}

}

Process::Process(const std::filesystem::path& program, const std::vector<std::string>& arguments,
    const ProcessOptions& options)
{
    int input = openInput(options);
    m_output = makeMemoryFile("stdout");
    m_error = makeMemoryFile("stderr");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, m_output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, m_error, STDERR_FILENO);
    if (!options.workingDirectory.empty())
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory.c_str());

    // The child starts with no blocked signals and default handling of the signals a test runner may change.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> argumentStrings { program.string() };
    argumentStrings.insert(argumentStrings.end(), arguments.begin(), arguments.end());
    auto environment = environmentWith(options);
    const auto argv = nullTerminated(argumentStrings);
    const auto envp = nullTerminated(environment);
    const int result = ::posix_spawn(&m_pid, program.c_str(), &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    closeIfOpen(input);
    if (result != 0) {
        m_pid = -1;
        closeIfOpen(m_output);
        closeIfOpen(m_error);
        raiseErrno(result, "Cannot start " + program.string());
    }
    m_pidDescriptor = static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0));
    if (m_pidDescriptor < 0) {
        const int error = errno;
        killAndReap(m_pid);
        closeIfOpen(m_output);
        closeIfOpen(m_error);
        raiseErrno(error, "pidfd_open");
    }
    m_deadline = std::chrono::steady_clock::now() + options.timeout;
}

Process::Process(Process&& other) noexcept
    : m_pid(std::exchange(other.m_pid, -1))
    , m_pidDescriptor(std::exchange(other.m_pidDescriptor, -1))
    , m_output(std::exchange(other.m_output, -1))
    , m_error(std::exchange(other.m_error, -1))
    , m_deadline(other.m_deadline)
{
}

Process::~Process()
{
    if (m_pid > 0)
        killAndReap(m_pid);
    closeIfOpen(m_pidDescriptor);
    closeIfOpen(m_output);
    closeIfOpen(m_error);
}

std::string Process::standardOutputSoFar() const { return readFromStart(m_output); }

bool Process::hasEnded() const
{
    pollfd ended { m_pidDescriptor, POLLIN, 0 };
    return ::poll(&ended, 1, 0) > 0;
}

ProcessResult Process::wait()
{
    ProcessResult result;
    if (m_pid <= 0)
        return result;
    // The process descriptor becomes readable when the child ends.
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            break;
        }
        pollfd ended { m_pidDescriptor, POLLIN, 0 };
        const int ready = ::poll(&ended, 1, static_cast<int>(left.count()));
        if (ready > 0 || (ready < 0 && errno != EINTR))
            break;
    }
    if (result.timedOut)
        ::kill(m_pid, SIGKILL);
    const int status = reap(m_pid);
    m_pid = -1;
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    result.standardOutput = readFromStart(m_output);
    result.standardError = readFromStart(m_error);
    closeIfOpen(m_pidDescriptor);
    closeIfOpen(m_output);
    closeIfOpen(m_error);
    return result;
}

ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
    const ProcessOptions& options)
{
    return Process(program, arguments, options).wait();
}

std::filesystem::path builtProgram(const std::string& relativePath)
{
    if (const char* binaryDir = std::getenv("KORBANHOLD_BINARY_DIR"); binaryDir && *binaryDir)
        return std::filesystem::path(binaryDir) / relativePath;
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / relativePath;
}

}
