// The service at scale, with the real programs: korbanhold-sync-service against korbanhold-devserver on generated
// trees, beside `find`, `git status` and `git add` on the same tree, in one run.
//
//   bench_service_scale [--sizes 10000,100000,1000000] [--passes 3] [--cache /tmp/korbanhold-bench]
//
// Trees and their git repositories come from the cache that bench_sync_pass fills (BenchSupport.h). For every size:
// - find and git status (medians of three, git status's peak memory), and `git add` of one file after appending to
//   it;
// - the first sync: a fresh server database and preferences, a fresh service, `korbanhold sync`, until the service
//   logs "filde ID updayted". Beside the total, the request's round trip ("Json String" -> "response "), which holds
//   the server's own time, the total without it, the service's peak memory and the request body's size (from the
//   devserver's request log);
// - a freshly started service over the stored table: no-change passes (status raised; time from
//   "syncFileInTablenCloud: 1" to "Final List changed list"), then a one-file edit (the same append, status raised;
//   time from the pass's start to "filde ID updayted"), the bytes the service wrote for the edit (/proc/<pid>/io,
//   its log included) and the service's peak memory over all of it.
// Prints every figure and the ratios of the goals; asserts nothing.

#include "BenchSupport.h"

#include <sqlite3.h>

#include <csignal>

namespace {

using namespace bench;

constexpr const char* passStartLine = "syncFileInTablenCloud: 1";
constexpr const char* passEndLine = "Final List changed list";
constexpr const char* requestLine = "Json String";
constexpr const char* replyLine = "response ";
constexpr const char* storedLine = "filde ID updayted";

// A field of /proc/<pid>/status or /proc/<pid>/io, as a number ("VmHWM:" in kB, "write_bytes:" in bytes).
long procField(pid_t pid, const char* file, const std::string& field)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(in, line);)
        if (line.starts_with(field))
            return std::stol(line.substr(field.size()));
    return -1;
}

// The size of the largest batch request the devserver logged.
long requestBodyBytes(const fs::path& serverDatabase)
{
    sqlite3* db = nullptr;
    long bytes = -1;
    if (sqlite3_open_v2(serverDatabase.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* query = nullptr;
        if (sqlite3_prepare_v2(db,
                "SELECT max(length(body)) FROM requests WHERE method_path LIKE '%SyncFilesInTableAndCloud'", -1,
                &query, nullptr)
                == SQLITE_OK
            && sqlite3_step(query) == SQLITE_ROW)
            bytes = sqlite3_column_int64(query, 0);
        sqlite3_finalize(query);
    }
    sqlite3_close_v2(db);
    return bytes;
}

// Four kilobytes more: the table keeps sizes in kilobytes, and the edit must show in them.
void appendTo(const fs::path& file) { std::ofstream(file, std::ios::app) << std::string(4096, 'e'); }

// A one-file edit: the time from its pass's start to "filde ID updayted", and the bytes the service wrote meanwhile.
struct Edit {
    double seconds = 0;
    long storageBytes = 0, writtenBytes = 0;
};

struct Figures {
    std::size_t items = 0;
    double find = 0, gitStatus = 0, gitAdd = 0;
    long gitPeak = 0;
    double firstSync = 0, firstRoundTrip = 0;
    long firstPeak = 0, requestBytes = 0;
    double noChange = 0;
    Edit firstEdit, edit;
    long steadyPeak = 0, noChangePeak = 0;
};

class Scale {
public:
    Scale(const fs::path& cache, std::size_t items, int passes)
        : m_tree(prepare(cache, items))
        // Its own folder, so that two runs on the same cache (two engineers measuring at once) do not share a server
        // or preferences.
        , m_work(cache / ("service-" + std::to_string(items) + "-" + std::to_string(::getpid())))
        , m_passes(passes)
    {
        m_figures.items = items;
        // The first file of the tree's first leaf folder.
        m_edited = m_tree.home / "Korbanhold";
        while (!fs::exists(m_edited / "file-1.txt"))
            m_edited /= "folder-0";
        m_edited /= "file-1.txt";
    }

    ~Scale()
    {
        m_server.reset();
        std::error_code ignored;
        fs::remove_all(m_work, ignored);
    }

    Figures measure()
    {
        std::cerr << m_figures.items << " items: find, git status, git add\n";
        measureGit();
        startServer();
        std::cerr << m_figures.items << " items: the first sync\n";
        measureFirstSync();
        std::cerr << m_figures.items << " items: no-change passes and a one-file edit\n";
        measureSteadyService();
        return m_figures;
    }

private:
    std::vector<std::string> git(std::vector<std::string> command) const
    {
        std::vector<std::string> words { "git", "--git-dir=" + m_tree.gitDir.string(),
            "--work-tree=" + (m_tree.home / "Korbanhold").string() };
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }

    void measureGit()
    {
        const std::vector<std::string> find { "find", (m_tree.home / "Korbanhold").string(), "-printf",
            "%i %s %T@ %y\\n" };
        std::vector<double> findTimes, statusTimes;
        spawn(find, false);
        spawn(git({ "status", "--porcelain" }), false);
        for (int run = 0; run < 3; ++run) {
            findTimes.push_back(spawn(find, false).seconds);
            const ChildRun status = spawn(git({ "status", "--porcelain" }), false);
            statusTimes.push_back(status.seconds);
            m_figures.gitPeak = std::max(m_figures.gitPeak, status.peakKilobytes);
        }
        m_figures.find = median(findTimes);
        m_figures.gitStatus = median(statusTimes);
        appendTo(m_edited);
        m_figures.gitAdd = spawn(git({ "add", m_edited.string() }), false).seconds;
    }

    void startServer()
    {
        fs::remove_all(m_work);
        fs::create_directories(m_work / "run");
        ::chmod((m_work / "run").c_str(), 0700);
        m_server = std::make_unique<Background>(toolsFolder() / "korbanhold-devserver",
            // A million items' first sync is one request of about 400 MB, beyond the server's default limit.
            std::vector<std::string> { "--port", "0", "--db", (m_work / "server.sqlite").string(), "--max-body-bytes",
                std::to_string(std::uint64_t(4) << 30) },
            std::vector<std::string> {}, m_work / "server.out", m_work / "server.err");
        waitFor([&] { return readAll(m_work / "server.out").find('\n') != std::string::npos; }, "the devserver");
        const std::string line = readAll(m_work / "server.out");
        const auto colon = line.rfind(':');
        const std::string port = line.substr(colon + 1, line.find('/', colon) - colon - 1);
        const fs::path preferences = m_work / "Preferences";
        m_environment = { "KORBANHOLD_PREFERENCES_DIR=" + preferences.string(),
            "KORBANHOLD_RUNTIME_DIR=" + (m_work / "run").string(), "KORBANHOLD_SERVER=127.0.0.1:" + port };
        writeDomain(preferences, "Ulmaridon.Korbanhold",
            "{\"korbanholdPathKey\":\"" + m_tree.home.string() + "\",\"computerIdKey\":\"1\",\"userIdKey\":\"1\"}");
        writeDomain(preferences, "Ulmaridon.SharedFilesXpcService", "{\"SharedFileDataKey\":[]}");
    }

    static void writeDomain(const fs::path& preferences, const std::string& name, const std::string& json)
    {
        fs::create_directories(preferences);
        // Replaced whole, so that a pass never reads half a file.
        const fs::path temporary = preferences / ("." + name + ".tmp");
        std::ofstream(temporary) << json;
        fs::rename(temporary, preferences / (name + ".json"));
    }

    // Raises the status once the last pass has written it off: a pass logs its change list before it writes "0", and
    // a status raised in between would be lost.
    void raiseStatus() const
    {
        const fs::path status = m_work / "Preferences" / "Ulmaridon.FileWatcherXpcService.json";
        waitFor([&] { return readAll(status).find("\"0\"") != std::string::npos; }, "the status written off");
        writeDomain(m_work / "Preferences", "Ulmaridon.FileWatcherXpcService", "{\"FileWatcherStatusKey\":\"1\"}");
    }

    std::unique_ptr<Background> startService(const fs::path& log)
    {
        fs::remove(m_work / "run" / "Ulmaridon.SyncFilesXpcService.sock");
        auto service = std::make_unique<Background>(toolsFolder() / "korbanhold-sync-service",
            std::vector<std::string> {}, m_environment, m_work / "service.out", log);
        waitFor([&] { return fs::exists(m_work / "run" / "Ulmaridon.SyncFilesXpcService.sock"); }, "the socket");
        return service;
    }

    void sync()
    {
        Background call(toolsFolder() / "korbanhold", { "sync" }, m_environment, "/dev/null", m_work / "sync.err");
        if (call.wait() != 0)
            throw std::runtime_error("korbanhold sync failed: " + readAll(m_work / "sync.err"));
    }

    void measureFirstSync()
    {
        const fs::path log = m_work / "first.log";
        auto service = startService(log);
        LogFollower follower(log);
        const auto start = Clock::now();
        sync();
        waitFor([&] { return follower.find(storedLine); }, "the first sync's stored table");
        m_figures.firstSync = secondsSince(start);
        m_figures.firstPeak = procField(service->pid(), "status", "VmHWM:");
        const auto times = markerTimes(log, { requestLine, replyLine });
        if (times.contains(requestLine) && times.contains(replyLine))
            m_figures.firstRoundTrip = times.at(replyLine) - times.at(requestLine);
        m_figures.requestBytes = requestBodyBytes(m_work / "server.sqlite");
    }

    void measureSteadyService()
    {
        const fs::path log = m_work / "steady.log";
        auto service = startService(log);
        LogFollower follower(log);
        sync(); // its first pass finds nothing to change
        waitFor([&] { return follower.find(std::string(passEndLine) + " (\n)"); }, "the first no-change pass");
        std::vector<double> passes;
        for (int pass = 0; pass < m_passes; ++pass) {
            raiseStatus();
            waitFor([&] { return follower.find(std::string(passEndLine) + " (\n)"); }, "a no-change pass");
            const auto times = markerTimes(log, { passStartLine, passEndLine });
            passes.push_back(times.at(passEndLine) - times.at(passStartLine));
        }
        m_figures.noChange = median(passes);
        m_figures.noChangePeak = procField(service->pid(), "status", "VmHWM:");

        // The first edit after the first sync also stores every record in the key order the pass gives them (the
        // first sync stored them in the order of "Created" records); the second is what every later edit costs.
        m_figures.firstEdit = measureEdit(service->pid(), log, follower);
        m_figures.edit = measureEdit(service->pid(), log, follower);
        m_figures.steadyPeak = procField(service->pid(), "status", "VmHWM:");
    }

    Edit measureEdit(pid_t service, const fs::path& log, LogFollower& follower)
    {
        const long storageBefore = procField(service, "io", "write_bytes:");
        const long writtenBefore = procField(service, "io", "wchar:");
        appendTo(m_edited);
        raiseStatus();
        waitFor([&] { return follower.find(storedLine); }, "the edit's stored table");
        const auto times = markerTimes(log, { passStartLine, storedLine });
        return { times.at(storedLine) - times.at(passStartLine),
            procField(service, "io", "write_bytes:") - storageBefore, procField(service, "io", "wchar:") - writtenBefore };
    }

    Tree m_tree;
    fs::path m_work;
    fs::path m_edited;
    int m_passes;
    std::vector<std::string> m_environment;
    std::unique_ptr<Background> m_server;
    Figures m_figures;
};

void print(const Figures& f)
{
    const double mb = 1024.0;
    std::printf("\n== %zu items ==\n", f.items);
    std::printf("find %.3f s | git status %.3f s, peak %.1f MB | git add of one file %.3f s\n", f.find, f.gitStatus,
        f.gitPeak / mb, f.gitAdd);
    std::printf("first sync: %.3f s end to end; request round trip (server's time) %.3f s; without it %.3f s "
                "(goal <= 2.5 s at 100k)\n",
        f.firstSync, f.firstRoundTrip, f.firstSync - f.firstRoundTrip);
    std::printf("  peak %.1f MB; request body %.1f MB; peak / body %.2f (goal <= 3)\n", f.firstPeak / mb,
        f.requestBytes / (1024.0 * 1024.0), f.firstPeak * 1024.0 / static_cast<double>(std::max(1L, f.requestBytes)));
    std::printf("no-change pass %.3f s: / git status %.2f (goal <= 0.7), / find %.2f (goal <= 0.6)\n", f.noChange,
        f.noChange / f.gitStatus, f.noChange / f.find);
    for (const auto& [name, edit] : { std::pair { "first one-file edit after the first sync", f.firstEdit },
             std::pair { "next one-file edit", f.edit } }) {
        std::printf("%s, pass start to \"filde ID updayted\": %.3f s = no-change pass + %.0f ms (goal <= +100 ms)\n",
            name, edit.seconds, (edit.seconds - f.noChange) * 1000);
        std::printf("  bytes written for it: %.2f MB to storage, %.2f MB by write calls (goal <= 1 MB)\n",
            edit.storageBytes / (1024.0 * 1024.0), edit.writtenBytes / (1024.0 * 1024.0));
    }
    std::printf("peak of a freshly started service over no-change passes and the edit: %.1f MB = %.2f x git status "
                "(goal <= 2)\n",
        f.steadyPeak / mb, static_cast<double>(f.steadyPeak) / static_cast<double>(std::max(1L, f.gitPeak)));
    std::printf("  of which over the no-change passes alone: %.1f MB = %.2f x git status\n", f.noChangePeak / mb,
        static_cast<double>(f.noChangePeak) / static_cast<double>(std::max(1L, f.gitPeak)));
    std::fflush(stdout);
}

}

int main(int argc, char** argv)
{
    try {
        std::vector<std::string> arguments(argv + 1, argv + argc);
        std::vector<std::size_t> sizes { 10000, 100000, 1000000 };
        int passes = 3;
        fs::path cache = "/tmp/korbanhold-bench";
        for (std::size_t k = 0; k + 1 < arguments.size(); k += 2) {
            if (arguments[k] == "--passes")
                passes = std::stoi(arguments[k + 1]);
            else if (arguments[k] == "--cache")
                cache = arguments[k + 1];
            else if (arguments[k] == "--sizes")
                sizes = sizesOf(arguments[k + 1]);
        }
        fs::create_directories(cache);
        for (std::size_t items : sizes)
            print(Scale(cache, items, passes).measure());
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "bench_service_scale: " << failure.what() << "\n";
        return 1;
    }
}
