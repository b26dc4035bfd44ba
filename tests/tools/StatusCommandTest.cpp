// `korbanhold status`, run as a real process over a temporary preferences folder and runtime folder.

#include "platform/UserDefaults.h"

#include "support/Eventually.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using platform::Value;
using testsupport::ProcessOptions;
using testsupport::ProcessResult;
using testsupport::TempDir;

namespace {

class StatusCommand : public ::testing::Test {
protected:
    StatusCommand()
    {
        std::filesystem::create_directory(runtime);
        ::chmod(runtime.c_str(), 0700);
    }

    ProcessOptions options(std::optional<std::string> server = std::nullopt) const
    {
        ProcessOptions options;
        options.environment = {
            { "KORBANHOLD_PREFERENCES_DIR", preferences.string() },
            { "KORBANHOLD_RUNTIME_DIR", runtime.string() },
            { "KORBANHOLD_STATE_DIR", state.string() },
            { "KORBANHOLD_SERVER", std::move(server) },
            { "LISTEN_FDS", std::nullopt },
            { "LISTEN_PID", std::nullopt },
        };
        return options;
    }

    ProcessResult status(std::optional<std::string> server = std::nullopt) const
    {
        return testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), { "status" }, options(server));
    }

    void store(const std::string& domain, const Value& contents) const
    {
        platform::UserDefaults("test", preferences.path()).setPersistentDomain(contents, domain);
    }

    // The service's own domain is a database, the others are JSON files (docs/preferences.md).
    std::string fileOf(const std::string& domain) const
    {
        const char* suffix = domain == "Ulmaridon.SyncFilesXpcService" ? ".sqlite" : ".json";
        return (preferences.path() / (domain + suffix)).string();
    }
    std::string socketPath() const { return (runtime / "Ulmaridon.SyncFilesXpcService.sock").string(); }

    static Value entries(int count)
    {
        platform::Array list;
        for (int index = 0; index < count; ++index)
            list.push_back(Value::dictionary({ { "FileID", Value(std::to_string(index)) } }));
        return Value::arrayOf(std::move(list));
    }

    TempDir preferences;
    TempDir root;
    std::filesystem::path runtime = root.path() / "run";
    std::filesystem::path state = root.path() / "state";
};

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}

TEST_F(StatusCommand, PrintsTheKeysTheServiceReadsAndTheSizesOfItsLists)
{
    store("Ulmaridon.FileWatcherXpcService", Value::dictionary({ { "FileWatcherStatusKey", Value("1") } }));
    store("Ulmaridon.Korbanhold",
        Value::dictionary({ { "korbanholdPathKey", Value("/home/ann") }, { "computerIdKey", Value("7") },
            { "userIdKey", Value("4") }, { "unrelatedKey", Value("not shown") } }));
    store("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", entries(1) } }));
    store("Ulmaridon.SyncFilesXpcService", Value::dictionary({ { "FileWatchedDataKey", entries(3) } }));

    const auto result = status("127.0.0.1:4321");
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardError, "");
    EXPECT_EQ(result.standardOutput,
        "Preferences folder: " + preferences.string() + "\n"
        "Ulmaridon.FileWatcherXpcService: " + fileOf("Ulmaridon.FileWatcherXpcService") + "\n"
        "  FileWatcherStatusKey: \"1\"\n"
        "Ulmaridon.Korbanhold: " + fileOf("Ulmaridon.Korbanhold") + "\n"
        "  korbanholdPathKey: \"/home/ann\"\n"
        "  computerIdKey: \"7\"\n"
        "  userIdKey: \"4\"\n"
        "Ulmaridon.SharedFilesXpcService: " + fileOf("Ulmaridon.SharedFilesXpcService") + "\n"
        "  SharedFileDataKey: 1 entry\n"
        "Ulmaridon.SyncFilesXpcService: " + fileOf("Ulmaridon.SyncFilesXpcService") + "\n"
        "  FileWatchedDataKey: 3 entries\n"
        "Socket: " + socketPath() + " (not there: the service is not listening)\n"
        "Server: http://127.0.0.1:4321/KorbanholdRestService/ (KORBANHOLD_SERVER)\n"
        "Watcher: no watcher runs (no state at " + (runtime / "korbanhold-watch.state").string()
            + "): changes wait for a raise by hand\n"
        "Synced folder: /home/ann/Korbanhold (not there)\n"
        "Status file: " + (state / "status.json").string() + " (nothing recorded yet)\n"
        "Mode: unknown (no service has recorded one)\n"
        "Retry pending: none\n"
        "Last pass: none\n"
        "Last stored report: none\n"
        "Last failed report: none\n"
        "Names skipped for illegal characters: none\n");
}

TEST_F(StatusCommand, ShowsWhatTheRunningWatcherDoes)
{
    testsupport::writeFile(runtime / "korbanhold-watch.state",
        "{\"pid\":" + std::to_string(::getpid()) + ",\"mode\":\"polling\",\"reason\":\"the inotify watch limit is "
        "reached\",\"syncedFolder\":\"/home/ann/Korbanhold\",\"foldersWatched\":10,\"foldersUnwatched\":5,"
        "\"started\":\"2026-11-24 15:00:00\",\"lastEvent\":\"2026-11-24 15:01:00\",\"lastRaise\":\"\"}\n");
    const auto result = status();
    EXPECT_TRUE(contains(result.standardOutput,
        "Watcher: PID " + std::to_string(::getpid()) + " since 2026-11-24 15:00:00, polling (the inotify watch limit "
        "is reached)\n  synced folder: /home/ann/Korbanhold\n  folders watched: 10, not watched: 5\n"
        "  last change seen: 2026-11-24 15:01:00\n  last raise: none yet\n")) << result.standardOutput;
}

TEST_F(StatusCommand, SaysThatNoWatcherRunsWhenTheOneThatLeftItsStateHasEnded)
{
    // A process that has ended: a child reaped at once.
    const pid_t gone = ::fork();
    if (gone == 0)
        ::_exit(0);
    ::waitpid(gone, nullptr, 0);
    testsupport::writeFile(runtime / "korbanhold-watch.state", "{\"pid\":" + std::to_string(gone) + "}");
    const auto result = status();
    EXPECT_TRUE(contains(result.standardOutput, "Watcher: no watcher runs (PID " + std::to_string(gone)))
        << result.standardOutput;
}

TEST_F(StatusCommand, AbsentDomainsAndKeysAreShownAsAbsentAndAreNoError)
{
    store("Ulmaridon.Korbanhold", Value::dictionary({ { "computerIdKey", Value("7") } }));

    const auto result = status();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_EQ(result.standardError, "");
    const auto& out = result.standardOutput;
    EXPECT_TRUE(contains(out, "Ulmaridon.FileWatcherXpcService: " + fileOf("Ulmaridon.FileWatcherXpcService")
        + " (no file)\n  FileWatcherStatusKey: absent\n")) << out;
    EXPECT_TRUE(contains(out, "  korbanholdPathKey: absent\n  computerIdKey: \"7\"\n  userIdKey: absent\n")) << out;
    EXPECT_TRUE(contains(out, " (no file)\n  SharedFileDataKey: absent\n")) << out;
    EXPECT_TRUE(contains(out, " (no file)\n  FileWatchedDataKey: absent\n")) << out;
}

TEST_F(StatusCommand, ValuesThatAreNotTextAreShownAsJson)
{
    store("Ulmaridon.FileWatcherXpcService", Value::dictionary({ { "FileWatcherStatusKey", Value::integer(1) } }));
    store("Ulmaridon.SharedFilesXpcService", Value::dictionary({ { "SharedFileDataKey", Value("x") } }));

    const auto result = status();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_TRUE(contains(result.standardOutput, "  FileWatcherStatusKey: 1\n")) << result.standardOutput;
    EXPECT_TRUE(contains(result.standardOutput, "  SharedFileDataKey: not a list: \"x\"\n")) << result.standardOutput;
}

TEST_F(StatusCommand, ACorruptDomainFileIsNamedTheRestIsPrintedAndTheStatusIsOne)
{
    store("Ulmaridon.Korbanhold", Value::dictionary({ { "computerIdKey", Value("7") } }));
    testsupport::writeFile(fileOf("Ulmaridon.FileWatcherXpcService"), "not json");

    const auto result = status();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(contains(result.standardOutput, "Ulmaridon.FileWatcherXpcService: "
        + fileOf("Ulmaridon.FileWatcherXpcService") + " (not valid, reads as absent)\n")) << result.standardOutput;
    EXPECT_TRUE(contains(result.standardOutput, "  computerIdKey: \"7\"\n")) << result.standardOutput;
    EXPECT_TRUE(contains(result.standardOutput, "Server: ")) << result.standardOutput;
    EXPECT_TRUE(contains(result.standardError, fileOf("Ulmaridon.FileWatcherXpcService"))) << result.standardError;
}

TEST_F(StatusCommand, NamesTheDefaultServerWhenNoneIsChosen)
{
    const auto result = status();
    EXPECT_TRUE(contains(result.standardOutput,
        "Server: http://localhost:8080/KorbanholdRestService/ (the default; KORBANHOLD_SERVER is unset)\n"))
        << result.standardOutput;
}

TEST_F(StatusCommand, SaysThatTheServiceAnswersWhileItListens)
{
    testsupport::Process service(testsupport::builtProgram("tools/korbanhold-sync-service"), {}, options());
    ASSERT_TRUE(testsupport::eventually(
        [&] { return contains(status().standardOutput, "Socket: " + socketPath() + " (the service answers)\n"); },
        std::chrono::seconds(60), std::chrono::milliseconds(50)));
    EXPECT_EQ(status().exitCode, 0);
}

TEST_F(StatusCommand, ASocketFileThatNoServiceListensOnIsNotTakenForTheService)
{
    // What a service killed without its clean stop leaves behind: the socket file, bound but listened on by nobody.
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath().c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(socket);

    const auto result = status();
    EXPECT_TRUE(contains(result.standardOutput, "Socket: " + socketPath() + " (there, but no service answers on it)\n"))
        << result.standardOutput;
}

TEST_F(StatusCommand, AWrongServerIsNamedAndTheStatusIsOne)
{
    const auto result = status("http://127.0.0.1:4321/KorbanholdRestService/");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(contains(result.standardOutput, "Server: KORBANHOLD_SERVER must be host[:port] or http://host[:port]/, "
                                                "not \"http://127.0.0.1:4321/KorbanholdRestService/\"\n"))
        << result.standardOutput;
}

TEST_F(StatusCommand, ShowsTheSyncedFolderAndWhatTheServiceRecorded)
{
    std::filesystem::create_directories(root.path() / "Korbanhold");
    store("Ulmaridon.Korbanhold", Value::dictionary({ { "korbanholdPathKey", Value(root.path().string()) } }));
    testsupport::writeFile(state / "status.json",
        R"({"pid":42,"mode":"strict","retryPending":{"at":0},"lastPass":{"pid":42,"pass":3,"at":0,"records":2},)"
        R"("lastStored":{"pid":42,"pass":2,"at":0,"records":1},)"
        R"("lastFailed":{"pid":42,"pass":3,"at":0,"error":"could not connect","url":"http://h:1/KorbanholdRestService/x"},)"
        R"("skippedNames":["/home/ann/Korbanhold/a#b"]})");

    auto result = status();
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    const auto& out = result.standardOutput;
    EXPECT_TRUE(contains(out, "Synced folder: " + (root.path() / "Korbanhold").string() + " (there)\n")) << out;
    EXPECT_TRUE(contains(out, "(written by pid 42)\n")) << out;
    EXPECT_TRUE(contains(out, "Mode: strict (the system exactly as designed, KORBANHOLD_STRICT=1)\n")) << out;
    EXPECT_TRUE(contains(out, "Retry pending: the status is raised again at ")) << out;
    EXPECT_TRUE(contains(out, "Last pass: pass 3 at ")) << out;
    EXPECT_TRUE(contains(out, ", 2 records\nLast stored report: pass 2 at ")) << out;
    EXPECT_TRUE(contains(out, ": could not connect (http://h:1/KorbanholdRestService/x)\n")) << out;
    EXPECT_TRUE(contains(out, "Names skipped for illegal characters:\n  /home/ann/Korbanhold/a#b\n")) << out;

    result = testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), { "status", "--json" }, options());
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    const auto report = boost::json::parse(result.standardOutput).as_object();
    EXPECT_EQ(report.at("syncedFolder").at("exists"), true);
    EXPECT_EQ(report.at("socket").at("answers"), false);
    EXPECT_EQ(report.at("service").at("lastFailed").at("url"), "http://h:1/KorbanholdRestService/x");
    EXPECT_EQ(report.at("service").at("mode"), "strict");
    EXPECT_EQ(report.at("domains").at("Ulmaridon.Korbanhold").at("keys").at("korbanholdPathKey"), boost::json::value(root.path().string()));
}

TEST_F(StatusCommand, SaysWhyThereIsNoSocketWithoutARuntimeFolder)
{
    auto options = this->options();
    for (auto& [name, value] : options.environment) {
        if (name == "KORBANHOLD_RUNTIME_DIR")
            value.reset();
    }
    options.environment.push_back({ "XDG_RUNTIME_DIR", std::nullopt });
    const auto result = testsupport::runProcess(testsupport::builtProgram("tools/korbanhold"), { "status" }, options);
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    EXPECT_TRUE(contains(result.standardOutput, "Socket: none (neither KORBANHOLD_RUNTIME_DIR nor XDG_RUNTIME_DIR"))
        << result.standardOutput;
}
