// Measures the first sync of a new folder end to end, with the real programs: korbanhold-devserver and
// korbanhold-sync-service as processes, `korbanhold sync` to start the service's loop, and the time from that call
// (which raises the status) until the service has stored the table with the server's file identifiers (its
// "filde ID updayted" line, written after the second store). Beside it, the steady-state pass of the same tree with
// nothing changed, in the same service process.
//
//   bench_first_sync [--files 100000] [--runs 3] [--steady-passes 3] [--folder /tmp/korbanhold-first-sync]
//
// Every run starts from a fresh server database, a fresh service process and no stored table. Where the time goes
// is read from the service's log, whose lines carry the time they were written (after their text was formatted):
//   pass       "syncFileInTablenCloud: 1" -> "Final List changed list": walk, classification, the change list
//   prepare    -> "Json String": status "0" written, query records built, the request encoded
//   request    -> "response ": sent, applied by the devserver, answered, the reply parsed
//   stores     -> "filde ID updayted": the table stored, status, identifiers copied, stored again, read back
// Prints the medians; asserts nothing.

#include "BenchSupport.h"

#include "platform/UserDefaults.h"
#include "platform/Value.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace bench;

using platform::Value;

constexpr const char* passStartLine = "syncFileInTablenCloud: 1";
constexpr const char* passEndLine = "Final List changed list";
constexpr const char* requestLine = "Json String";
constexpr const char* replyLine = "response ";
constexpr const char* storedLine = "filde ID updayted";

// ---------------------------------------------------------------- the folder

// N small files in folders of a thousand, one level below the synced folder.
void makeFolder(const fs::path& synced, std::size_t files)
{
    fs::remove_all(synced);
    for (std::size_t made = 0; made < files; ++made) {
        const fs::path folder = synced / ("part-" + std::to_string(made / 1000));
        if (made % 1000 == 0)
            fs::create_directories(folder);
        std::ofstream(folder / ("item-" + std::to_string(made % 1000) + ".txt")) << "content " << made << '\n';
    }
}

// ---------------------------------------------------------------- one run

struct RunFigures {
    double total = 0;
    std::map<std::string, double> segments;
    std::vector<double> steadyPasses;
};

class Run {
public:
    Run(const fs::path& folder, int steadyPasses) : m_folder(folder), m_steadyPasses(steadyPasses) { }

    RunFigures measure()
    {
        const fs::path preferences = m_folder / "Preferences";
        const fs::path runtime = m_folder / "run";
        fs::remove_all(preferences);
        fs::remove_all(runtime);
        fs::remove(m_folder / "server.sqlite");
        fs::create_directories(preferences);
        fs::create_directories(runtime);
        ::chmod(runtime.c_str(), 0700);
        platform::UserDefaults store("bench_first_sync", preferences);
        store.setPersistentDomain(Value::dictionary({ { "korbanholdPathKey", Value(m_folder.string()) },
                                      { "computerIdKey", Value("1") }, { "userIdKey", Value("1") } }),
            "Ulmaridon.Korbanhold");
        store.setPersistentDomain(Value::dictionary({ { "SharedFileDataKey", Value::array() } }),
            "Ulmaridon.SharedFilesXpcService");
        store.synchronize();

        Background server(toolsFolder() / "korbanhold-devserver",
            { "--port", "0", "--db", (m_folder / "server.sqlite").string() }, {}, m_folder / "server.out",
            m_folder / "server.err");
        waitFor([&] { return readAll(m_folder / "server.out").find('\n') != std::string::npos; }, "the devserver");
        const std::string line = readAll(m_folder / "server.out");
        const std::string port = line.substr(line.rfind(':') + 1, line.find('/', line.rfind(':')) - line.rfind(':') - 1);

        const std::vector<std::string> environment { "KORBANHOLD_PREFERENCES_DIR=" + preferences.string(),
            "KORBANHOLD_RUNTIME_DIR=" + runtime.string(), "KORBANHOLD_SERVER=127.0.0.1:" + port };
        const fs::path log = m_folder / "service.log";
        Background service(toolsFolder() / "korbanhold-sync-service", {}, environment, m_folder / "service.out", log);
        waitFor([&] { return fs::exists(runtime / "Ulmaridon.SyncFilesXpcService.sock"); }, "the service's socket");

        RunFigures figures;
        LogFollower follower(log);
        const auto start = Clock::now();
        Background sync(toolsFolder() / "korbanhold", { "sync" }, environment, "/dev/null", m_folder / "sync.err");
        if (sync.wait() != 0)
            throw std::runtime_error("korbanhold sync failed: " + readAll(m_folder / "sync.err"));
        waitFor([&] { return follower.find(storedLine); }, "the stored table");
        figures.total = std::chrono::duration<double>(Clock::now() - start).count();
        figures.segments = segmentsOf(log);

        for (int pass = 0; pass < m_steadyPasses; ++pass)
            figures.steadyPasses.push_back(steadyPass(store, log));
        fs::remove(log);
        return figures;
    }

private:
    static std::map<std::string, double> segmentsOf(const fs::path& log)
    {
        const std::vector<std::string> order { passStartLine, passEndLine, requestLine, replyLine, storedLine };
        const auto times = markerTimes(log, order);
        std::map<std::string, double> segments;
        const char* names[] = { "pass", "prepare", "request", "stores" };
        for (std::size_t k = 0; k + 1 < order.size(); ++k)
            if (times.contains(order[k]) && times.contains(order[k + 1]))
                segments[names[k]] = times.at(order[k + 1]) - times.at(order[k]);
        return segments;
    }

    // Raises the status and waits for the pass to end; the pass's time from its log lines.
    double steadyPass(platform::UserDefaults& store, const fs::path& log)
    {
        LogFollower follower(log);
        follower.skipToEnd();
        store.setPersistentDomain(Value::dictionary({ { "FileWatcherStatusKey", Value("1") } }),
            "Ulmaridon.FileWatcherXpcService");
        store.synchronize();
        waitFor([&] { return follower.find(std::string(passEndLine) + " (\n)"); }, "a steady pass");
        const auto times = markerTimes(log, { passStartLine, passEndLine });
        return times.at(passEndLine) - times.at(passStartLine);
    }

    fs::path m_folder;
    int m_steadyPasses;
};

}

int main(int argc, char** argv)
{
    try {
        std::vector<std::string> arguments(argv + 1, argv + argc);
        std::size_t files = 100000;
        int runs = 3;
        int steadyPasses = 3;
        fs::path folder = "/tmp/korbanhold-first-sync";
        for (std::size_t k = 0; k + 1 < arguments.size(); k += 2) {
            if (arguments[k] == "--files")
                files = std::stoull(arguments[k + 1]);
            else if (arguments[k] == "--runs")
                runs = std::stoi(arguments[k + 1]);
            else if (arguments[k] == "--steady-passes")
                steadyPasses = std::stoi(arguments[k + 1]);
            else if (arguments[k] == "--folder")
                folder = arguments[k + 1];
        }
        std::cerr << "making " << files << " files in " << folder / "Korbanhold" << "\n";
        makeFolder(folder / "Korbanhold", files);

        std::vector<double> totals, steady;
        std::map<std::string, std::vector<double>> segments;
        for (int run = 0; run < runs; ++run) {
            const RunFigures figures = Run(folder, steadyPasses).measure();
            std::printf("run %d: first sync %.3f s;", run + 1, figures.total);
            for (const auto& [name, seconds] : figures.segments) {
                std::printf(" %s %.3f s", name.c_str(), seconds);
                segments[name].push_back(seconds);
            }
            std::printf("; steady passes");
            for (double seconds : figures.steadyPasses)
                std::printf(" %.3f s", seconds);
            std::printf("\n");
            totals.push_back(figures.total);
            steady.insert(steady.end(), figures.steadyPasses.begin(), figures.steadyPasses.end());
        }
        std::printf("%zu files + %zu folders, medians of %d runs:\n", files, (files + 999) / 1000, runs);
        std::printf("  first sync, korbanhold sync to the second store: %.3f s\n", median(totals));
        for (const char* name : { "pass", "prepare", "request", "stores" })
            std::printf("    %-8s %.3f s\n", name, median(segments[name]));
        std::printf("  steady-state pass, nothing changed:              %.3f s\n", median(steady));
        std::printf("  first sync / steady pass:                        %.1f\n", median(totals) / median(steady));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "bench_first_sync: " << error.what() << "\n";
        return 1;
    }
}
