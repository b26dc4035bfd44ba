#pragma once

// What the benchmarks share: generated trees with their git repositories, child programs timed with their peak
// memory, programs running in the background, and the times of the service's log lines. Header-only, because every
// bench/*.cpp is a program of its own.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace bench {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

struct ChildRun {
    double seconds = 0;
    long peakKilobytes = 0;
    std::string output;
};

// Runs a program, its output captured (or dropped), and returns its wall time and peak resident memory.
inline ChildRun spawn(const std::vector<std::string>& arguments, bool capture)
{
    int channel[2];
    if (pipe(channel) != 0)
        throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (capture)
        posix_spawn_file_actions_adddup2(&actions, channel[1], 1);
    else
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclose(&actions, channel[0]);
    posix_spawn_file_actions_addclose(&actions, channel[1]);
    std::vector<char*> argv;
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    auto start = Clock::now();
    pid_t child = 0;
    if (posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        throw std::runtime_error("cannot start " + arguments[0]);
    posix_spawn_file_actions_destroy(&actions);
    close(channel[1]);
    ChildRun run;
    char buffer[4096];
    for (ssize_t got; (got = read(channel[0], buffer, sizeof buffer)) > 0;)
        run.output.append(buffer, static_cast<std::size_t>(got));
    close(channel[0]);
    int status = 0;
    rusage usage {};
    wait4(child, &status, 0, &usage);
    run.seconds = secondsSince(start);
    run.peakKilobytes = usage.ru_maxrss;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error(arguments[0] + " failed");
    return run;
}

inline void shell(const std::string& command)
{
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("failed: " + command);
}

// ---------------------------------------------------------------- generated trees

// About 100 entries per folder, a few levels deep: ten folders per level until the leaf folders, each holding 99
// files (one in ten with some content, the rest empty).
inline void generateTree(const fs::path& synced, std::size_t items)
{
    std::size_t leafFolders = std::max<std::size_t>(1, items / 100);
    std::vector<fs::path> level { synced };
    fs::create_directories(synced);
    while (level.size() * 10 <= leafFolders) {
        std::vector<fs::path> next;
        for (const auto& folder : level) {
            for (int index = 0; index < 10; ++index) {
                next.push_back(folder / ("folder-" + std::to_string(index)));
                fs::create_directory(next.back());
            }
        }
        level = std::move(next);
    }
    std::size_t made = 0;
    for (const auto& folder : level) {
        for (int index = 0; index < 99; ++index, ++made) {
            std::ofstream file(folder / ("file-" + std::to_string(index) + ".txt"));
            if (made % 10 == 0)
                file << std::string(100 + made % 3000, 'k');
        }
    }
}

struct Tree {
    fs::path home; // holds Korbanhold
    fs::path gitDir;
    fs::path steadyPreferences;
};

inline Tree prepare(const fs::path& cache, std::size_t items)
{
    std::string name = std::to_string(items);
    Tree tree { cache / ("tree-" + name), cache / ("git-" + name + ".git"), cache / ("prefs-" + name) };
    fs::path synced = tree.home / "Korbanhold";
    if (!fs::exists(cache / ("tree-" + name + ".done"))) {
        std::cerr << "generating the tree of " << items << " items in " << tree.home << "\n";
        fs::remove_all(tree.home);
        generateTree(synced, items);
        std::ofstream(cache / ("tree-" + name + ".done"));
    }
    if (!fs::exists(cache / ("git-" + name + ".done"))) {
        std::cerr << "committing the tree of " << items << " items to " << tree.gitDir << "\n";
        fs::remove_all(tree.gitDir);
        std::string git = "git --git-dir='" + tree.gitDir.string() + "' --work-tree='" + synced.string() + "' ";
        shell(git + "init -q && " + git + "add -A && " + git
            + "-c user.name=bench -c user.email=bench@localhost commit -qm tree && " + git + "status --porcelain >/dev/null");
        std::ofstream(cache / ("git-" + name + ".done"));
    }
    return tree;
}

inline fs::path toolsFolder()
{
    // build/<preset>/bench/bench_first_sync -> build/<preset>/tools
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "tools";
}

// ---------------------------------------------------------------- child processes

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
inline void waitFor(Condition condition, const std::string& what)
{
    const auto deadline = Clock::now() + std::chrono::minutes(10);
    while (!condition()) {
        if (Clock::now() > deadline)
            throw std::runtime_error("gave up waiting for " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// ---------------------------------------------------------------- the service's log

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

// Seconds since the epoch of a log line's time ("yyyy-MM-dd HH:mm:ss.SSS", local time), or absent.
inline std::optional<double> lineTime(const std::string& line)
{
    std::tm parts {};
    int milliseconds = 0;
    if (std::sscanf(line.c_str(), "%d-%d-%d %d:%d:%d.%d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
            &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &milliseconds)
        != 7)
        return std::nullopt;
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    parts.tm_isdst = -1;
    return static_cast<double>(std::mktime(&parts)) + milliseconds / 1000.0;
}

// The times of the last line of each message in `markers`, from the lines of the log that start a message.
inline std::map<std::string, double> markerTimes(const fs::path& log, const std::vector<std::string>& markers)
{
    std::map<std::string, double> times;
    std::ifstream in(log);
    for (std::string line; std::getline(in, line);) {
        const auto text = line.find("] ");
        if (text == std::string::npos)
            continue;
        for (const auto& marker : markers)
            if (line.compare(text + 2, marker.size(), marker) == 0)
                if (const auto time = lineTime(line))
                    times[marker] = *time;
    }
    return times;
}

// The sizes of a "--sizes 10000,100000" argument.
inline std::vector<std::size_t> sizesOf(const std::string& list)
{
    std::vector<std::size_t> sizes;
    std::istringstream items(list);
    for (std::string size; std::getline(items, size, ',');)
        sizes.push_back(std::stoull(size));
    return sizes;
}

}
