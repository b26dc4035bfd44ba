#include "SyncedFolder.h"

#include "SyncableItems.h"

#include <sstream>

namespace e2etest {

namespace {

namespace fs = std::filesystem;
using platform::Value;

// Compares two item lists (path -> kind) and says what differs, naming `what` for the second one.
testing::AssertionResult sameItems(const std::map<std::string, std::string>& folder,
    const std::map<std::string, std::string>& other, const std::string& what)
{
    std::ostringstream differences;
    for (const auto& [path, kind] : folder) {
        const auto found = other.find(path);
        if (found == other.end())
            differences << "\n  missing in " << what << ": " << path;
        else if (found->second != kind)
            differences << "\n  " << what << " has " << path << " as is-file " << found->second << ", the folder "
                        << kind;
    }
    for (const auto& [path, kind] : other)
        if (!folder.contains(path))
            differences << "\n  " << what << " has " << path << ", the folder does not";
    if (differences.str().empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << differences.str();
}

// The stored table's entries by path in the server's form; the first entry of a path wins, as in the service.
std::map<std::string, const Value*> tableByPath(const Value& table)
{
    std::map<std::string, const Value*> entries;
    for (const Value& entry : table.elements())
        entries.emplace(serverPath(textOf(entry.find("BaseSystemFilePathKey"))), &entry);
    return entries;
}

}

void SyncedFolder::SetUp()
{
    m_syncedFolder = m_workspace / "home" / "Korbanhold";
    fs::create_directories(m_syncedFolder);
    fs::create_directories(scratch());
    startServer();
    const std::string home = (m_workspace / "home").string();
    m_account = registerAccount(*m_server, "ann@example.test", home);
    m_defaults.replace(settingsDomain,
        Value::dictionary({ { "korbanholdPathKey", home }, { "computerIdKey", m_account.computerId },
            { "userIdKey", m_account.userId } }));
    m_defaults.replace(sharedFilesDomain, Value::dictionary({ { sharedFilesKey, Value::array() } }));
    prepare();
    startService();
}

void SyncedFolder::TearDown()
{
    if (m_service)
        m_service->stop();
    if (m_server)
        stopServer();
    // A sanitizer build of the service reports on its stderr, which is the log.
    EXPECT_EQ(m_folders.log().find("Sanitizer"), std::string::npos) << logTail();
}

void SyncedFolder::startServer()
{
    m_server = std::make_unique<testsupport::DevServerProcess>(
        std::vector<std::string> { "--db", (m_workspace / "server.sqlite").string() });
    m_records = std::make_unique<ServerRecords>(*m_server);
}

void SyncedFolder::startServerOnPort(int port)
{
    m_server = std::make_unique<testsupport::DevServerProcess>(std::vector<std::string> {
        "--db", (m_workspace / "server.sqlite").string(), "--port", std::to_string(port) });
    m_records = std::make_unique<ServerRecords>(*m_server);
}

void SyncedFolder::stopServer(int signal)
{
    m_records.reset();
    m_server->stop(signal);
    m_server.reset();
}

void SyncedFolder::startService()
{
    m_folders.setServer("127.0.0.1:" + std::to_string(m_server->port()));
    m_service = std::make_unique<ServiceProcess>(m_folders, std::nullopt);
    ASSERT_TRUE(m_service->listening()) << logTail();
    const auto passes = m_folders.logCount(passEnded);
    const auto stores = m_folders.logCount(reportStored);
    // SyncFile raises the status itself and runs the first pass.
    const auto result = m_folders.sync();
    ASSERT_EQ(result.exitCode, 0) << result.standardError;
    ASSERT_TRUE(finishStep(passes, stores));
}

void SyncedFolder::restartServerAndService()
{
    m_service->stop();
    m_service.reset();
    if (m_server)
        stopServer();
    startServer();
    startService();
}

void SyncedFolder::killAndRestartService()
{
    m_service->kill();
    m_service.reset();
    startService();
}

void SyncedFolder::restartServiceWithoutSyncFile(int signal, const std::vector<std::string>& launcher)
{
    m_service->stop(signal);
    m_service = std::make_unique<ServiceProcess>(m_folders, std::nullopt, launcher);
    ASSERT_TRUE(m_service->listening()) << logTail();
}

testing::AssertionResult SyncedFolder::run(const std::string& command) const
{
    testsupport::ProcessOptions options;
    options.workingDirectory = m_syncedFolder;
    const auto result = testsupport::runProcess("/bin/sh", { "-c", command }, options);
    if (result.exitCode == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << command << ": " << result.standardError;
}

testing::AssertionResult SyncedFolder::changeAndSync(const std::string& command)
{
    if (auto ran = run(command); !ran)
        return ran;
    if (auto synced = syncStep(); !synced)
        return synced;
    auto matches = serverMatchesFolder();
    if (!matches)
        matches << "\nafter the changes of the last report:" << lastReportDescription();
    return matches;
}

std::string SyncedFolder::lastReportDescription() const
{
    const auto bodies = m_records->requestBodies(batchReportPath);
    std::ostringstream description;
    if (!bodies.empty() && bodies.back().isArray())
        for (const Value& change : bodies.back().elements())
            description << "\n  " << textOf(change.find("ChangeType")) << " " << textOf(change.find("FullPath")) << " ("
                        << textOf(change.find("BaseSystemFileID")) << ")";
    return description.str();
}

std::string SyncedFolder::logTail() const
{
    constexpr std::size_t tailSize = 4000;
    const std::string log = m_folders.log();
    return log.size() > tailSize ? "..." + log.substr(log.size() - tailSize) : log;
}

testing::AssertionResult SyncedFolder::waitForPassEnd(std::size_t passesBefore)
{
    if (eventuallyWithinServiceTime(
            [&] { return m_folders.logCount(passEnded) > passesBefore && m_defaults.status() == "0"; }))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no pass ended; the service's log:\n" << logTail();
}

testing::AssertionResult SyncedFolder::finishStep(std::size_t passesBefore, std::size_t storesBefore)
{
    if (auto ended = waitForPassEnd(passesBefore); !ended)
        return ended;
    if (lastChangeListWasEmpty())
        return testing::AssertionSuccess();
    if (eventuallyWithinServiceTime([&] { return m_folders.logCount(reportStored) > storesBefore; }))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the report was not stored; the service's log:\n" << logTail();
}

void SyncedFolder::raiseStatus() const
{
    m_defaults.write(fileWatcherDomain, statusKey, std::string("1"));
}

testing::AssertionResult SyncedFolder::syncStep()
{
    const auto passes = m_folders.logCount(passEnded);
    const auto stores = m_folders.logCount(reportStored);
    raiseStatus();
    return finishStep(passes, stores);
}

testing::AssertionResult SyncedFolder::passStep()
{
    const auto passes = m_folders.logCount(passEnded);
    raiseStatus();
    return waitForPassEnd(passes);
}

bool SyncedFolder::lastChangeListWasEmpty() const
{
    const std::string log = m_folders.log();
    const auto last = log.rfind(passEnded);
    return last != std::string::npos && log.compare(last, std::string(passEnded).size() + 4,
                                            std::string(passEnded) + " (\n)") == 0;
}

testing::AssertionResult SyncedFolder::storedTableMatchesFolder() const
{
    const Value stored = m_defaults.storedTable();
    std::map<std::string, std::string> table;
    for (const auto& [path, entry] : tableByPath(stored))
        table[path] = textOf(entry->find("isFilekey"));
    return sameItems(syncableItems(m_syncedFolder), table, "the stored table");
}

testing::AssertionResult SyncedFolder::serverFilesMatchFolder() const
{
    std::map<std::string, std::string> server;
    for (const auto& [path, file] : m_records->files(m_account.computerId))
        server[path] = file.isFile;
    return sameItems(syncableItems(m_syncedFolder), server, "the server");
}

testing::AssertionResult SyncedFolder::serverMatchesFolder() const
{
    if (auto same = serverFilesMatchFolder(); !same)
        return same;
    if (auto same = storedTableMatchesFolder(); !same)
        return same;
    const Value table = m_defaults.storedTable();
    const auto entries = tableByPath(table);
    std::ostringstream differences;
    for (const auto& [path, file] : m_records->files(m_account.computerId)) {
        const std::string stored = textOf(entries.at(path)->find("FileIDKey"));
        if (stored != file.fileId)
            differences << "\n  " << path << ": the server's file id is " << file.fileId << ", the table's \"" << stored
                        << "\"";
    }
    if (differences.str().empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << differences.str();
}

}
