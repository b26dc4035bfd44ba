#pragma once

// What the benchmarks that run the real programs share: the programs of this build, a program running in the
// background, waiting for a log line or any other condition, and the median of what they measured.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace bench {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

inline fs::path toolsFolder()
{
    // build/<preset>/bench/bench_first_sync -> build/<preset>/tools
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "tools";
}

// A program running in the background, its standard output and error written to files; ended with SIGTERM.
class Background {
public:
    Background(const fs::path& program, const std::vector<std::string>& arguments,
        const std::vector<std::string>& environment, const fs::path& output, const fs::path& errors)
    {
        std::vector<std::string> words { program.string() };
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        std::vector<std::string> variables = environment;
        for (char** variable = environ; *variable; ++variable)
            variables.emplace_back(*variable);
        std::vector<char*> envp;
        for (auto& variable : variables)
            envp.push_back(variable.data());
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int failed = posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (failed)
            throw std::runtime_error("cannot start " + program.string());
    }
    ~Background()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    pid_t pid() const { return m_pid; }

    // Waits for the program to end by itself; its exit status.
    int wait()
    {
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
};

inline std::string readAll(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

template<typename Condition>
void waitFor(Condition condition, const std::string& what)
{
    const auto deadline = Clock::now() + std::chrono::minutes(10);
    while (!condition()) {
        if (Clock::now() > deadline)
            throw std::runtime_error("gave up waiting for " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// Reads a growing log from where it last stopped, so that a wait looks only at the new part of a large file.
class LogFollower {
public:
    explicit LogFollower(fs::path path) : m_path(std::move(path)) { }

    // True once `text` has been written after the previous find.
    bool find(const std::string& text)
    {
        std::ifstream in(m_path, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(m_searched));
        std::string fresh(std::istreambuf_iterator<char>(in), {});
        const auto at = fresh.find(text);
        if (at != std::string::npos) {
            m_searched += at + text.size();
            return true;
        }
        // Keep the end that may hold the first part of `text`.
        if (fresh.size() > text.size())
            m_searched += fresh.size() - text.size();
        return false;
    }

    // Looks only at what is written from now on.
    void skipToEnd() { m_searched = fs::file_size(m_path); }

private:
    fs::path m_path;
    std::size_t m_searched = 0;
};


}
