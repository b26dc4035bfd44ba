// Measures the file watcher with the real programs: korbanhold-devserver, korbanhold-sync-service and
// korbanhold-watch as processes over one synced folder, nobody raising the status by hand.
//
//   bench_watcher [--items 5000] [--repeats 3] [--burst 10000] [--tree 100000] [--idle 30] [--folder DIR]
//
// 1. Latency: over a synced folder of `items` items, the time from a file operation (create, append, rename, move,
//    delete, a deep folder made at once) to the service's log line of the server's reply to the batch report that
//    carries it; `repeats` times each; median and worst. Between operations everything is left to settle.
// 2. Burst: `tar -x` of an archive of `burst` files in folders of 100: the raises the watcher made, the time until
//    the server's file table holds as many entries as the folder, and whether it does.
// 3. Idle: the watcher's processor time and memory over `idle` seconds with nothing changing, and the raises and
//    passes meanwhile.
// 4. Setting up: the time to put watches on a tree of `tree` items (a tenth of them folders), in this process, and
//    the watcher's memory over that tree; beside it `find`, `git add -A` and `git status` on the same tree.
// Prints figures; asserts nothing.

#include "BenchSupport.h"

#include "platform/UserDefaults.h"
#include "platform/Value.h"
#include "watch/WatchTree.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <sstream>
#include <cstdio>
#include <map>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using namespace bench;
using platform::Value;

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

std::size_t occurrences(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Runs a shell command; its standard output.
std::string shellOutput(const std::string& command)
{
    std::string output;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[4096];
        while (const auto size = std::fread(buffer, 1, sizeof buffer, pipe))
            output.append(buffer, size);
        ::pclose(pipe);
    }
    return output;
}

double timeOf(const std::string& command)
{
    const auto start = Clock::now();
    shellOutput(command + " >/dev/null 2>&1");
    return seconds(Clock::now() - start);
}

// A field of /proc/<pid>/status in kB ("VmRSS" ...).
long statusKilobytes(pid_t pid, const std::string& field)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind(field + ":", 0) == 0)
            return std::stol(line.substr(field.size() + 1));
    return -1;
}

// User plus system processor time of a process, in seconds.
double processorSeconds(pid_t pid)
{
    const std::string stat = readAll("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    unsigned long long user = 0, system = 0;
    for (int index = 3; index <= 15 && fields >> field; ++index) {
        if (index == 14)
            user = std::stoull(field);
        if (index == 15)
            system = std::stoull(field);
    }
    return static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// Items below `root`, files and folders.
std::size_t itemCount(const fs::path& root)
{
    std::size_t count = 0;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it)
        ++count;
    return count;
}

// `files` files in folders of `perFolder`, below `root`/`name`; folders two levels deep.
void makeTree(const fs::path& root, std::size_t files, std::size_t perFolder)
{
    for (std::size_t made = 0; made < files; ++made) {
        const fs::path folder = root / ("group-" + std::to_string(made / (perFolder * 100)))
            / ("folder-" + std::to_string(made / perFolder));
        if (made % perFolder == 0)
            fs::create_directories(folder);
        std::ofstream(folder / ("item-" + std::to_string(made % perFolder) + ".txt")) << "content " << made << '\n';
    }
}

class Product {
public:
    explicit Product(fs::path folder) : m_folder(std::move(folder)) { }

    fs::path synced() const { return m_folder / "Korbanhold"; }
    fs::path serviceLog() const { return m_folder / "service.log"; }
    fs::path watcherLog() const { return m_folder / "watcher.log"; }
    pid_t watcherPid() const { return m_watcher->pid(); }

    void start()
    {
        const fs::path preferences = m_folder / "Preferences";
        const fs::path runtime = m_folder / "run";
        fs::create_directories(preferences);
        fs::create_directories(runtime);
        ::chmod(runtime.c_str(), 0700);
        platform::UserDefaults store("bench_watcher", preferences);
        store.setPersistentDomain(Value::dictionary({ { "korbanholdPathKey", Value(m_folder.string()) },
                                      { "computerIdKey", Value("1") }, { "userIdKey", Value("1") } }),
            "Ulmaridon.Korbanhold");
        store.setPersistentDomain(Value::dictionary({ { "SharedFileDataKey", Value::array() } }),
            "Ulmaridon.SharedFilesXpcService");
        m_server = std::make_unique<Background>(toolsFolder() / "korbanhold-devserver",
            std::vector<std::string> { "--port", "0", "--db", (m_folder / "server.sqlite").string() },
            std::vector<std::string> {}, m_folder / "server.out", m_folder / "server.err");
        waitFor([&] { return readAll(m_folder / "server.out").find('\n') != std::string::npos; }, "the devserver");
        const std::string line = readAll(m_folder / "server.out");
        const auto colon = line.rfind(':');
        m_port = line.substr(colon + 1, line.find('/', colon) - colon - 1);
        m_environment = { "KORBANHOLD_PREFERENCES_DIR=" + preferences.string(),
            "KORBANHOLD_RUNTIME_DIR=" + runtime.string(), "KORBANHOLD_SERVER=127.0.0.1:" + m_port };
        m_service = std::make_unique<Background>(toolsFolder() / "korbanhold-sync-service",
            std::vector<std::string> {}, m_environment, m_folder / "service.out", serviceLog());
        waitFor([&] { return fs::exists(runtime / "Ulmaridon.SyncFilesXpcService.sock"); }, "the service's socket");
        // The host application's SyncFile starts the service's loop and its first pass.
        LogFollower follower(serviceLog());
        Background sync(toolsFolder() / "korbanhold", { "sync" }, m_environment, "/dev/null", m_folder / "sync.err");
        sync.wait();
        waitFor([&] { return follower.find("filde ID updayted"); }, "the first sync");
        m_watcher = std::make_unique<Background>(toolsFolder() / "korbanhold-watch", std::vector<std::string> {},
            m_environment, m_folder / "watcher.out", watcherLog());
        settle();
    }

    // Waits until the status has been "0" for three seconds on end: every raise taken up, every pass done.
    void settle() const
    {
        auto quietSince = Clock::now();
        waitFor(
            [&] {
                if (status() != "0" || occurrences(readAll(serviceLog()), "syncFileInTablenCloud: 1") != m_passes) {
                    m_passes = occurrences(readAll(serviceLog()), "syncFileInTablenCloud: 1");
                    quietSince = Clock::now();
                }
                return Clock::now() - quietSince > std::chrono::seconds(3);
            },
            "the product to settle");
    }

    std::string status() const
    {
        const std::string domain = readAll(m_folder / "Preferences" / "Ulmaridon.FileWatcherXpcService.json");
        return domain.find("\"1\"") != std::string::npos ? "1" : "0";
    }

    std::size_t serverFiles() const
    {
        const auto count = shellOutput("curl -s 'http://127.0.0.1:" + m_port + "/devserver/files?computer=1' | jq length");
        return count.empty() ? 0 : std::stoul(count);
    }

    std::size_t raises() const { return occurrences(readAll(watcherLog()), "Raised "); }
    std::size_t passes() const { return occurrences(readAll(serviceLog()), "syncFileInTablenCloud: 1"); }

private:
    fs::path m_folder;
    std::string m_port;
    std::vector<std::string> m_environment;
    std::unique_ptr<Background> m_server;
    std::unique_ptr<Background> m_service;
    std::unique_ptr<Background> m_watcher;
    mutable std::size_t m_passes = 0;
};

void measureLatency(Product& product, int repeats)
{
    const fs::path synced = product.synced();
    fs::create_directories(synced / "target");
    product.settle();
    std::map<std::string, std::function<void(int)>> operations {
        { "create", [&](int k) { std::ofstream(synced / ("new-" + std::to_string(k) + ".txt")) << "new\n"; } },
        // Sizes are reported in kilobytes, and a change is one of size and date: append whole kilobytes.
        { "append",
            [&](int k) {
                std::ofstream(synced / "group-0" / "folder-0" / "item-1.txt", std::ios::app)
                    << std::string(2048, static_cast<char>('a' + k));
            } },
        { "rename",
            [&](int k) {
                fs::rename(synced / "group-0" / "folder-1" / ("item-" + std::to_string(k) + ".txt"),
                    synced / "group-0" / "folder-1" / ("renamed-" + std::to_string(k) + ".txt"));
            } },
        { "move",
            [&](int k) {
                fs::rename(synced / "group-0" / "folder-2" / ("item-" + std::to_string(k) + ".txt"),
                    synced / "target" / ("moved-" + std::to_string(k) + ".txt"));
            } },
        { "delete", [&](int k) { fs::remove(synced / "group-0" / "folder-3" / ("item-" + std::to_string(k) + ".txt")); } },
        { "deep folder",
            [&](int k) {
                const fs::path deep = synced / ("deep-" + std::to_string(k)) / "a" / "b" / "c" / "d";
                fs::create_directories(deep);
                std::ofstream(deep / "inside.txt") << "deep\n";
            } },
    };
    std::vector<double> all;
    std::printf("Latency from the operation to the server's reply to its batch report (%zu items):\n",
        itemCount(synced));
    for (auto& [name, operation] : operations) {
        std::vector<double> samples;
        for (int k = 0; k < repeats; ++k) {
            LogFollower follower(product.serviceLog());
            follower.skipToEnd();
            const auto start = Clock::now();
            operation(k);
            waitFor([&] { return follower.find("response "); }, "the report of " + name);
            samples.push_back(seconds(Clock::now() - start));
            product.settle();
        }
        all.insert(all.end(), samples.begin(), samples.end());
        std::printf("  %-12s median %.2f s  worst %.2f s\n", name.c_str(), median(samples),
            *std::max_element(samples.begin(), samples.end()));
    }
    std::printf("  all %zu       median %.2f s  worst %.2f s\n", all.size(), median(all),
        *std::max_element(all.begin(), all.end()));
}

void measureBurst(Product& product, const fs::path& scratch, std::size_t files)
{
    fs::remove_all(scratch / "burst");
    makeTree(scratch / "burst", files, 100);
    shellOutput("tar -C '" + scratch.string() + "' -cf '" + (scratch / "burst.tar").string() + "' burst");
    const auto raisesBefore = product.raises();
    const auto passesBefore = product.passes();
    const auto start = Clock::now();
    shellOutput("tar -C '" + product.synced().string() + "' -xf '" + (scratch / "burst.tar").string() + "'");
    const double extracted = seconds(Clock::now() - start);
    const std::size_t items = itemCount(product.synced());
    waitFor([&] { return product.serverFiles() == items; }, "the server to hold the burst");
    const double converged = seconds(Clock::now() - start);
    product.settle();
    std::printf("Burst: tar -x of %zu files took %.2f s; the server held all %zu items after %.2f s; "
                "%zu raises, %zu passes (until settled); server equal: %s\n",
        files, extracted, items, converged, product.raises() - raisesBefore, product.passes() - passesBefore,
        product.serverFiles() == items ? "yes" : "no");
}

void measureIdle(Product& product, int idleSeconds)
{
    product.settle();
    const auto raises = product.raises();
    const auto passes = product.passes();
    const double before = processorSeconds(product.watcherPid());
    std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
    const double used = processorSeconds(product.watcherPid()) - before;
    std::printf("Idle for %d s: watcher processor time %.3f s (%.4f %%), resident memory %ld kB (peak %ld kB); "
                "%zu raises, %zu passes\n",
        idleSeconds, used, 100 * used / idleSeconds, statusKilobytes(product.watcherPid(), "VmRSS"),
        statusKilobytes(product.watcherPid(), "VmHWM"), product.raises() - raises, product.passes() - passes);
}

void measureSetUp(const fs::path& folder, std::size_t items)
{
    const fs::path home = folder / "tree-home";
    const fs::path tree = home / "Korbanhold";
    fs::remove_all(home);
    // Nine files to a folder: a tenth of the items are folders.
    makeTree(tree, items * 9 / 10, 9);
    const std::size_t folders = [&] {
        std::size_t count = 0;
        for (auto it = fs::recursive_directory_iterator(tree); it != fs::recursive_directory_iterator(); ++it)
            count += it->is_directory();
        return count + 1;
    }();
    std::vector<double> times;
    for (int run = 0; run < 3; ++run) {
        watch::WatchTree watches;
        const auto start = Clock::now();
        watches.watch(tree);
        times.push_back(seconds(Clock::now() - start));
        if (watches.watchedFolders() != folders)
            std::printf("  (watched %zu of %zu folders)\n", watches.watchedFolders(), folders);
    }
    std::printf("Setting up watches on %zu items (%zu folders): median %.3f s of 3\n", itemCount(tree), folders,
        median(times));

    // The watcher's memory over that tree.
    const fs::path preferences = home / "Preferences";
    fs::create_directories(home / "run");
    ::chmod((home / "run").c_str(), 0700);
    platform::UserDefaults("bench_watcher", preferences)
        .setPersistentDomain(Value::dictionary({ { "korbanholdPathKey", Value(home.string()) } }), "Ulmaridon.Korbanhold");
    const std::vector<std::string> environment { "KORBANHOLD_PREFERENCES_DIR=" + preferences.string(),
        "KORBANHOLD_RUNTIME_DIR=" + (home / "run").string() };
    const auto started = Clock::now();
    Background watcher(toolsFolder() / "korbanhold-watch", {}, environment, home / "watcher.out", home / "watcher.log");
    waitFor([&] { return readAll(home / "watcher.log").find("Watching ") != std::string::npos; }, "the watches");
    const double ready = seconds(Clock::now() - started);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    std::printf("korbanhold-watch over it: watching after %.2f s from its start; resident memory %ld kB, peak %ld kB\n",
        ready, statusKilobytes(watcher.pid(), "VmRSS"), statusKilobytes(watcher.pid(), "VmHWM"));

    const std::string at = "cd '" + tree.string() + "' && ";
    std::printf("Beside it on the same tree: find %.2f s, git init + git add -A %.2f s, git status %.2f s\n",
        timeOf(at + "find . | wc -l"), timeOf(at + "git init -q && git add -A"), timeOf(at + "git status --porcelain"));
}

}

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::size_t items = 5000, burst = 10000, tree = 100000;
    int repeats = 3, idle = 30;
    fs::path folder = "/tmp/korbanhold-bench-watcher";
    for (int index = 1; index + 1 < argc; index += 2) {
        const std::string option = argv[index];
        const std::string value = argv[index + 1];
        if (option == "--items")
            items = std::stoul(value);
        else if (option == "--repeats")
            repeats = std::stoi(value);
        else if (option == "--burst")
            burst = std::stoul(value);
        else if (option == "--tree")
            tree = std::stoul(value);
        else if (option == "--idle")
            idle = std::stoi(value);
        else if (option == "--folder")
            folder = value;
    }
    fs::remove_all(folder);
    fs::create_directories(folder / "scratch");
    {
        Product product(folder);
        makeTree(product.synced(), items * 50 / 51, 50);
        product.start();
        measureLatency(product, repeats);
        measureIdle(product, idle);
        measureBurst(product, folder / "scratch", burst);
    }
    measureSetUp(folder, tree);
    fs::remove_all(folder);
    return 0;
}
