#include "StatusCommand.h"

#include "Command.h"
#include "DomainFiles.h"

#include "platform/DateFormat.h"
#include "platform/IpcServiceSocket.h"
#include "platform/IpcSocket.h"
#include "rest/RestURL.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/RecordKeys.h"
#include "sync/ServiceStatus.h"
#include "watch/WatcherState.h"

#include <boost/json.hpp>

#include <cstdlib>
#include <iostream>
#include <system_error>

namespace korbanhold {

namespace {

using platform::Value;
namespace json = boost::json;

// Everything the command shows, gathered once; the text and the JSON forms both print it.
struct Status {
    json::object report;
    bool valid = true;
};

json::value jsonValue(const Value& value) { return json::parse(jsonText(value, false)); }

// One domain: its file, whether it reads, and the keys the service uses (with `counted`, the number of entries).
void addDomain(Status& status, platform::UserDefaults& store, std::string_view name,
    std::initializer_list<std::string_view> keys, bool counted = false)
{
    const DomainFile file = readDomainFile(store, name);
    json::object domain { { "file", file.path.string() },
        { "state", file.notValid() ? "not valid" : file.exists ? "there" : "no file" } };
    json::object values;
    for (const auto key : keys) {
        const Value* value = file.find(key);
        if (!value)
            values[key] = nullptr;
        else if (counted && value->isArray())
            values[key] = json::object { { "entries", value->count() } };
        else if (counted)
            values[key] = json::object { { "notAList", jsonValue(*value) } };
        else
            values[key] = jsonValue(*value);
    }
    domain["keys"] = std::move(values);
    domain["counted"] = counted;
    status.report["domains"].as_object()[name] = std::move(domain);
    status.valid &= !file.notValid();
}

// The synced folder is "<korbanholdPathKey>/Korbanhold".
void addSyncedFolder(Status& status, const DomainFile& korbanhold)
{
    const Value* parent = korbanhold.find(engine::settings::korbanholdPath);
    if (!parent || !parent->isString()) {
        status.report["syncedFolder"] = nullptr;
        return;
    }
    const std::filesystem::path folder = std::filesystem::path(parent->string()) / "Korbanhold";
    std::error_code error;
    status.report["syncedFolder"]
        = json::object { { "path", folder.string() }, { "exists", std::filesystem::is_directory(folder, error) } };
}

// Whether the service takes a connection on its socket: a file left behind by a service that died is not one.
void addSocket(Status& status)
{
    try {
        const auto path = platform::ipc::serviceSocketPath(service::syncServiceName);
        int error = 0;
        auto connection = platform::ipc::connectUnixSocket(path.string(), error);
        std::error_code fileError;
        status.report["socket"] = json::object { { "path", path.string() }, { "answers", error == 0 },
            { "exists", std::filesystem::exists(path, fileError) } };
    } catch (const platform::ipc::ListenError& error) {
        status.report["socket"] = json::object { { "path", nullptr }, { "error", error.what() } };
    }
}

// What the file watcher does, from the state file it keeps in the runtime folder.
void addWatcher(Status& status)
{
    try {
        const auto file = watch::watcherStateFile();
        json::object watcher { { "stateFile", file.string() }, { "description", watch::describeWatcher(file) } };
        if (const auto state = watch::readWatcherState(file))
            watcher["state"] = json::object { { "pid", state->pid }, { "mode", state->mode },
                { "reason", state->reason }, { "syncedFolder", state->syncedFolder },
                { "foldersWatched", state->foldersWatched }, { "foldersUnwatched", state->foldersUnwatched },
                { "started", state->started }, { "lastEvent", state->lastEvent }, { "lastRaise", state->lastRaise } };
        else
            watcher["state"] = nullptr;
        status.report["watcher"] = std::move(watcher);
    } catch (const platform::ipc::ListenError& error) {
        status.report["watcher"] = json::object { { "stateFile", nullptr },
            { "description", std::string("unknown (") + error.what() + ")" }, { "state", nullptr } };
    }
}

void addServer(Status& status)
{
    try {
        rest::configuredServer();
        const char* server = std::getenv("KORBANHOLD_SERVER");
        status.report["server"] = json::object { { "url", rest::baseURL() },
            { "source", server && *server ? "KORBANHOLD_SERVER" : "default" } };
    } catch (const rest::ServerSettingError& error) {
        status.report["server"] = json::object { { "error", error.what() } };
        status.valid = false;
    }
}

void addServiceRecords(Status& status)
{
    json::object records;
    try {
        records["file"] = engine::status::filePath().string();
    } catch (const std::exception& error) {
        records["file"] = nullptr;
    }
    const json::object recorded = engine::status::read();
    for (const auto& [key, value] : recorded)
        records[key] = value;
    status.report["service"] = std::move(records);
}

Status gatherStatus()
{
    namespace domains = engine::domains;
    namespace settings = engine::settings;
    Status status;
    auto store = preferencesStore();
    status.report["preferencesFolder"] = store.folder().string();
    status.report["domains"] = json::object();
    addDomain(status, store, domains::fileWatcher, { settings::fileWatcherStatus });
    addDomain(status, store, domains::korbanhold, { settings::korbanholdPath, settings::computerId, settings::userId });
    addDomain(status, store, domains::sharedFiles, { settings::sharedFileData }, true);
    addDomain(status, store, service::syncServiceName, { settings::fileWatchedData }, true);
    addSyncedFolder(status, readDomainFile(store, domains::korbanhold));
    addSocket(status);
    addServer(status);
    addWatcher(status);
    addServiceRecords(status);
    return status;
}

// --- The text form, for a person.

std::string describeKey(const json::value& value, bool counted)
{
    if (value.is_null())
        return "absent";
    if (counted) {
        const auto& list = value.as_object();
        if (const auto* entries = list.if_contains("entries")) {
            const auto count = entries->to_number<std::size_t>();
            return std::to_string(count) + (count == 1 ? " entry" : " entries");
        }
        return "not a list: " + json::serialize(list.at("notAList"));
    }
    return json::serialize(value);
}

void printDomains(const json::object& domains)
{
    for (const auto& [name, entry] : domains) {
        const auto& domain = entry.as_object();
        const auto& state = domain.at("state").as_string();
        std::cout << std::string_view(name) << ": " << domain.at("file").as_string().c_str()
                  << (state == "not valid" ? " (not valid, reads as absent)" : state == "no file" ? " (no file)" : "")
                  << '\n';
        for (const auto& [key, value] : domain.at("keys").as_object())
            std::cout << "  " << std::string_view(key) << ": " << describeKey(value, domain.at("counted").as_bool())
                      << '\n';
    }
}

std::string text(const json::value& value) { return value.is_string() ? std::string(value.as_string()) : ""; }

std::string when(const json::object& record)
{
    const auto* at = record.if_contains("at");
    return at && at->is_number() ? platform::formatDate(at->to_number<double>(), "yyyy-MM-dd HH:mm:ss") : "?";
}

std::string describeRecord(const json::object& service, std::string_view key)
{
    const auto* value = service.if_contains(key);
    if (!value || !value->is_object())
        return "none";
    const auto& record = value->as_object();
    std::string description = "pass " + json::serialize(record.at("pass")) + " at " + when(record);
    if (const auto* records = record.if_contains("records"))
        description += ", " + json::serialize(*records) + " records";
    if (const auto* error = record.if_contains("error"))
        description += ": " + text(*error) + " (" + text(record.at("url")) + ")";
    return description;
}

void printText(const Status& status)
{
    const auto& report = status.report;
    std::cout << "Preferences folder: " << text(report.at("preferencesFolder")) << '\n';
    printDomains(report.at("domains").as_object());

    const auto& socket = report.at("socket").as_object();
    if (socket.at("path").is_null())
        std::cout << "Socket: none (" << text(socket.at("error")) << ")\n";
    else
        std::cout << "Socket: " << text(socket.at("path"))
                  << (socket.at("answers").as_bool() ? " (the service answers)"
                          : socket.at("exists").as_bool() ? " (there, but no service answers on it)"
                                                          : " (not there: the service is not listening)")
                  << '\n';

    const auto& server = report.at("server").as_object();
    if (const auto* error = server.if_contains("error"))
        std::cout << "Server: " << text(*error) << '\n';
    else
        std::cout << "Server: " << text(server.at("url"))
                  << (text(server.at("source")) == "default" ? " (the default; KORBANHOLD_SERVER is unset)"
                                                               : " (KORBANHOLD_SERVER)")
                  << '\n';

    std::cout << "Watcher: " << text(report.at("watcher").at("description")) << '\n';

    const auto& folder = report.at("syncedFolder");
    if (folder.is_null())
        std::cout << "Synced folder: unknown (korbanholdPathKey is not set)\n";
    else
        std::cout << "Synced folder: " << text(folder.at("path"))
                  << (folder.at("exists").as_bool() ? " (there)" : " (not there)") << '\n';

    const auto& service = report.at("service").as_object();
    std::cout << "Status file: " << (service.at("file").is_null() ? "none" : text(service.at("file")))
              << (service.contains("pid") ? " (written by pid " + json::serialize(service.at("pid")) + ")"
                                          : " (nothing recorded yet)")
              << '\n';
    const auto* mode = service.if_contains("mode");
    if (!mode || !mode->is_string())
        std::cout << "Mode: unknown (no service has recorded one)\n";
    else
        std::cout << "Mode: " << text(*mode)
                  << (text(*mode) == "strict" ? " (the system exactly as designed, KORBANHOLD_STRICT=1)"
                                              : " (the safeguards of docs/safeguards.md are on)")
                  << '\n';
    const auto* retry = service.if_contains("retryPending");
    std::cout << "Retry pending: "
              << (retry && retry->is_object() ? "the status is raised again at " + when(retry->as_object()) : "none")
              << '\n';
    std::cout << "Last pass: " << describeRecord(service, "lastPass") << '\n';
    std::cout << "Last stored report: " << describeRecord(service, "lastStored") << '\n';
    std::cout << "Last failed report: " << describeRecord(service, "lastFailed") << '\n';
    const auto* skipped = service.if_contains("skippedNames");
    if (!skipped || !skipped->is_array() || skipped->as_array().empty()) {
        std::cout << "Names skipped for illegal characters: none\n";
    } else {
        std::cout << "Names skipped for illegal characters:\n";
        for (const auto& name : skipped->as_array())
            std::cout << "  " << text(name) << '\n';
    }
    std::cout.flush();
}

}

void addStatusCommand(CLI::App& app)
{
    auto asJson = std::make_shared<bool>(false);
    auto* command = app.add_subcommand("status",
        "Print the settings the service reads, its table's size, its socket, its server, its file watcher, the synced "
        "folder and what the service did last");
    command->add_flag("--json", *asJson, "Print the same as one JSON object, for scripts");
    command->callback([asJson] {
        const Status status = gatherStatus();
        if (*asJson)
            std::cout << json::serialize(status.report) << std::endl;
        else
            printText(status);
        if (!status.valid)
            throw CLI::RuntimeError(exitFailure);
    });
}

}
