#include "SyncFixture.h"

#include "platform/UserDefaults.h"

#include "platform/HttpTestServers.h"
#include "platform/Json.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace synctest {

using platform::Value;

// ---------------------------------------------------------------- RecordingService

void RecordingService::performSharedFilesRenameProcess(const std::string& path, const std::string& fileID)
{
    record({ "performSharedFilesRenameProcess", { path, fileID }, {} });
    SyncFilesXpcService::performSharedFilesRenameProcess(path, fileID);
}

void RecordingService::performSharedFilesCreationProcess(const std::string& path)
{
    record({ "performSharedFilesCreationProcess", { path }, {} });
    if (duringSharedCreation)
        std::exchange(duringSharedCreation, nullptr)();
    if (duringEverySharedCreation)
        duringEverySharedCreation();
    SyncFilesXpcService::performSharedFilesCreationProcess(path);
}

void RecordingService::SyncFilesWithTableAndCloudProcess(Value changedListArray)
{
    std::function<void()> hook;
    {
        // Reports of two passes may start at once.
        std::lock_guard lock(m_mutex);
        hook = std::exchange(duringBatchReport, nullptr);
    }
    if (hook)
        hook();
    record({ "SyncFilesWithTableAndCloudProcess", {}, changedListArray });
    if (talksToServer)
        SyncFilesXpcService::SyncFilesWithTableAndCloudProcess(changedListArray);
}

void RecordingService::logErrorMethod()
{
    record({ "logErrorMethod", {}, {} });
    if (talksToServer)
        SyncFilesXpcService::logErrorMethod();
}

void RecordingService::record(Call call)
{
    std::lock_guard lock(m_mutex);
    m_calls.push_back(std::move(call));
    m_changed.notify_all();
}

std::vector<RecordingService::Call> RecordingService::calls() const
{
    std::lock_guard lock(m_mutex);
    return m_calls;
}

std::size_t RecordingService::countOf(const std::string& operation) const
{
    std::lock_guard lock(m_mutex);
    std::size_t count = 0;
    for (const auto& call : m_calls)
        count += call.operation == operation;
    return count;
}

bool RecordingService::waitFor(const std::string& operation, std::size_t count) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(10), [&] {
        std::size_t seen = 0;
        for (const auto& call : m_calls)
            seen += call.operation == operation;
        return seen >= count;
    });
}

// ---------------------------------------------------------------- SyncFixture

SyncFixture::SyncFixture()
    : noServer("KORBANHOLD_SERVER", "127.0.0.1:" + std::to_string(httptest::closedLoopbackPort()))
{
    std::filesystem::create_directories(root.path() / "Preferences");
    m_home = root.string() + "/home";
    std::filesystem::create_directories(synced());
    writeSettings();
}

// The completions of requests still under way may hold the service; those that already came have run.
SyncFixture::~SyncFixture()
{
    testsupport::MainQueueThread::drain();
}

std::string SyncFixture::fileNumber(const std::string& relative) const
{
    struct stat info {};
    EXPECT_EQ(lstat(path(relative).c_str(), &info), 0) << relative;
    return std::to_string(info.st_ino);
}

std::string SyncFixture::modifiedDate(const std::string& relative) const
{
    struct stat info {};
    EXPECT_EQ(lstat(path(relative).c_str(), &info), 0) << relative;
    std::tm parts {};
    localtime_r(&info.st_mtim.tv_sec, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %I:%M:%S", &parts);
    return text;
}

void SyncFixture::sh(const std::string& command) const
{
    std::string line = "cd '" + synced() + "' && " + command;
    ASSERT_EQ(std::system(line.c_str()), 0) << line;
}

void SyncFixture::writeFile(const std::string& relative, const std::string& contents) const
{
    testsupport::writeFile(path(relative), contents);
}

void SyncFixture::makeFolder(const std::string& relative) const
{
    std::filesystem::create_directories(path(relative));
}

void SyncFixture::writeDomain(const std::string& name, const Value& domain) const
{
    // The service's own domain is a database: written through a store of its own, as `korbanhold defaults` writes it.
    if (platform::UserDefaults::isDatabaseDomain(name)) {
        platform::UserDefaults("korbanhold", root.path() / "Preferences").setPersistentDomain(domain, name);
        return;
    }
    std::string file = root.string() + "/Preferences/" + name + ".json";
    {
        std::ofstream out(file + ".new", std::ios::trunc);
        out << platform::writeJson(domain);
    }
    std::filesystem::rename(file + ".new", file);
}

std::optional<Value> SyncFixture::readDomain(const std::string& name) const
{
    if (platform::UserDefaults::isDatabaseDomain(name))
        return platform::UserDefaults("korbanhold", root.path() / "Preferences").persistentDomainForName(name);
    std::ifstream in(root.string() + "/Preferences/" + name + ".json");
    if (!in)
        return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    return platform::readJson(text.str());
}

void SyncFixture::writeSettings(std::initializer_list<platform::Entry> extra) const
{
    Value settings = Value::dictionary({
        { "korbanholdPathKey", Value(m_home) },
        { "computerIdKey", Value("C-7") },
        { "userIdKey", Value("U-3") },
    });
    for (const auto& [key, value] : extra)
        settings.setObject(value, key);
    writeDomain("Ulmaridon.Korbanhold", settings);
}

void SyncFixture::raiseStatus(const std::string& status) const
{
    writeDomain("Ulmaridon.FileWatcherXpcService", Value::dictionary({ { "FileWatcherStatusKey", Value(status) } }));
}

std::optional<Value> SyncFixture::status() const
{
    auto domain = readDomain("Ulmaridon.FileWatcherXpcService");
    return domain ? domain->objectForKey("FileWatcherStatusKey") : std::nullopt;
}

void SyncFixture::storeTable(const Value& table) const
{
    auto defaults = readDomain("Ulmaridon.SyncFilesXpcService").value_or(Value::dictionary());
    defaults.setObject(table, "FileWatchedDataKey");
    writeDomain("Ulmaridon.SyncFilesXpcService", defaults);
}

std::optional<Value> SyncFixture::storedTable() const
{
    auto defaults = readDomain("Ulmaridon.SyncFilesXpcService");
    return defaults ? defaults->objectForKey("FileWatchedDataKey") : std::nullopt;
}

void SyncFixture::firstPass()
{
    service->SyncFile();
}

void SyncFixture::nextPass()
{
    raiseStatus();
    service->syncFileInTablenCloud();
}

void SyncFixture::acceptReport()
{
    Value accepted = table();
    for (std::size_t index = 0; index < accepted.count(); ++index) {
        Value& entry = accepted.mutableAt(index);
        if (text(entry, "FileIDKey").empty())
            entry.setObject(Value("S" + text(entry, "BaseSystemFileIDKey")), "FileIDKey");
    }
    storeTable(accepted);
}

std::vector<std::string> SyncFixture::summary(const Value& records) const
{
    auto below = [&](const std::string& full) {
        std::string prefix = synced() + "/";
        return full.rfind(prefix, 0) == 0 ? full.substr(prefix.size()) : full;
    };
    std::vector<std::string> lines;
    for (const auto& entry : records.elements()) {
        std::string type = text(entry, "changeTypeKey");
        std::string line = type + " ";
        if (type == "Renamed")
            line += below(text(entry, "oldPathKey")) + " -> ";
        lines.push_back(line + below(text(entry, "BaseSystemFilePathKey")));
    }
    return lines;
}

// ---------------------------------------------------------------- records

Value record(std::initializer_list<std::pair<std::string, std::string>> fields)
{
    Value result = Value::dictionary();
    for (const auto& [key, value] : fields)
        result.setObject(Value(value), key);
    return result;
}

Value tableRecord(const std::string& fileNumber, const std::string& path, const std::string& fileID)
{
    return record({ { "FileIDKey", fileID }, { "BaseSystemFileIDKey", fileNumber }, { "BaseSystemFilePathKey", path },
        { "removeKey", "0" }, { "changeTypeKey", "Created" }, { "oldPathKey", "" }, { "isFilekey", "1" },
        { "fileSizeKey", "4" }, { "computerIDKey", "C-7" }, { "filemodifiedDateKey", "2023-01-02 03:04:05" } });
}

std::vector<std::string> keysOf(const Value& record)
{
    return record.keys();
}

std::string text(const Value& record, const std::string& key)
{
    const Value* value = record.find(key);
    if (!value)
        return "<absent>";
    return value->isString() ? value->string() : value->description();
}

Value entryWithPath(const Value& records, const std::string& path)
{
    for (const auto& entry : records.elements()) {
        if (text(entry, "BaseSystemFilePathKey") == path)
            return entry;
    }
    ADD_FAILURE() << "no entry with path " << path;
    return Value::dictionary();
}

}
