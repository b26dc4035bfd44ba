#include "StatusCommand.h"

#include "Command.h"
#include "DomainFiles.h"

#include "platform/IpcServiceSocket.h"
#include "rest/RestURL.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/RecordKeys.h"
#include "watch/WatcherState.h"

#include <cstdlib>
#include <iostream>
#include <system_error>

namespace korbanhold {

namespace {

using platform::Value;

std::string describeFile(const DomainFile& file)
{
    if (file.notValid())
        return file.path.string() + " (not valid, reads as absent)";
    if (!file.exists)
        return file.path.string() + " (no file)";
    return file.path.string();
}

std::string describeValue(const Value* value)
{
    return value ? jsonText(*value, false) : "absent";
}

// How many entries a list holds, as a person reads it.
std::string describeCount(const Value* list)
{
    if (!list)
        return "absent";
    if (!list->isArray())
        return "not a list: " + jsonText(*list, false);
    return std::to_string(list->count()) + (list->count() == 1 ? " entry" : " entries");
}

// Prints the heading line of one domain, then one line per key: the value, or with `counted` the number of entries.
bool printDomain(platform::UserDefaults& store, std::string_view name,
    std::initializer_list<std::string_view> keys, bool counted = false)
{
    const DomainFile file = readDomainFile(store, name);
    std::cout << name << ": " << describeFile(file) << '\n';
    for (const auto key : keys)
        std::cout << "  " << key << ": " << (counted ? describeCount(file.find(key)) : describeValue(file.find(key)))
                  << '\n';
    return !file.notValid();
}

std::string describeSocket()
{
    try {
        const auto path = platform::ipc::serviceSocketPath(service::syncServiceName);
        std::error_code error;
        const bool there = std::filesystem::is_socket(path, error);
        return path.string() + (there ? " (there)" : " (not there: the service is not listening)");
    } catch (const platform::ipc::ListenError& error) {
        return std::string("none (") + error.what() + ")";
    }
}

// What the file watcher does, from the state file it keeps in the runtime folder.
std::string describeWatcher()
{
    try {
        return watch::describeWatcher(watch::watcherStateFile());
    } catch (const platform::ipc::ListenError& error) {
        return std::string("unknown (") + error.what() + ")";
    }
}

std::string describeServer()
{
    const char* server = std::getenv("KORBANHOLD_SERVER");
    const bool chosen = server && *server;
    return rest::baseURL() + (chosen ? " (KORBANHOLD_SERVER)" : " (the default; KORBANHOLD_SERVER is unset)");
}

void printStatus()
{
    namespace domains = engine::domains;
    namespace settings = engine::settings;
    auto store = preferencesStore();
    std::cout << "Preferences folder: " << store.folder().string() << '\n';
    bool valid = printDomain(store, domains::fileWatcher, { settings::fileWatcherStatus });
    valid &= printDomain(
        store, domains::korbanhold, { settings::korbanholdPath, settings::computerId, settings::userId });
    valid &= printDomain(store, domains::sharedFiles, { settings::sharedFileData }, true);
    valid &= printDomain(store, service::syncServiceName, { settings::fileWatchedData }, true);
    std::cout << "Socket: " << describeSocket() << '\n';
    std::cout << "Server: " << describeServer() << '\n';
    std::cout << "Watcher: " << describeWatcher() << std::endl;
    if (!valid)
        throw CLI::RuntimeError(exitFailure);
}

}

void addStatusCommand(CLI::App& app)
{
    app.add_subcommand("status", "Print the settings the service reads, its table's size, its socket, its server and its file watcher")
        ->callback(printStatus);
}

}
