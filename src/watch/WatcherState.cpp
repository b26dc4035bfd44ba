#include "watch/WatcherState.h"

#include "platform/DateFormat.h"
#include "platform/IpcServiceSocket.h"
#include "platform/Json.h"
#include "platform/PreferenceFiles.h"
#include "platform/Value.h"

#include <cerrno>
#include <chrono>
#include <csignal>

namespace watch {

using platform::Value;

namespace {

std::string text(const Value& state, std::string_view key)
{
    const Value* value = state.find(key);
    const std::string* string = value ? value->stringIf() : nullptr;
    return string ? *string : std::string();
}

std::size_t count(const Value& state, std::string_view key)
{
    const Value* value = state.find(key);
    const auto* number = value ? value->numberIf() : nullptr;
    return number ? static_cast<std::size_t>(number->uint64Value()) : 0;
}

bool processRuns(pid_t pid)
{
    return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM);
}

}

std::filesystem::path watcherStateFile()
{
    return platform::ipc::runtimeFolder() / "korbanhold-watch.state";
}

void writeWatcherState(const std::filesystem::path& file, const WatcherState& state)
{
    const Value value = Value::dictionary({
        { "pid", Value::integer(state.pid) },
        { "mode", Value(state.mode) },
        { "reason", Value(state.reason) },
        { "syncedFolder", Value(state.syncedFolder) },
        { "foldersWatched", Value::unsignedInteger(state.foldersWatched) },
        { "foldersUnwatched", Value::unsignedInteger(state.foldersUnwatched) },
        { "started", Value(state.started) },
        { "lastEvent", Value(state.lastEvent) },
        { "lastRaise", Value(state.lastRaise) },
    });
    platform::JsonWriteOptions options;
    options.escapeSlashes = false;
    platform::replaceFileAtomically(file.parent_path(), file.filename(), platform::writeJson(value, options) + "\n");
}

std::optional<WatcherState> readWatcherState(const std::filesystem::path& file)
{
    try {
        const Value state = platform::readJson(platform::readWholeFile(file).bytes);
        if (!state.isDictionary() || !state.find("pid") || !state.find("pid")->numberIf())
            return std::nullopt;
        return WatcherState { static_cast<pid_t>(state.find("pid")->numberIf()->int64Value()), text(state, "mode"),
            text(state, "reason"), text(state, "syncedFolder"), count(state, "foldersWatched"),
            count(state, "foldersUnwatched"), text(state, "started"), text(state, "lastEvent"),
            text(state, "lastRaise") };
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string stateTimeNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return platform::formatDate(std::chrono::duration<double>(now).count(), "yyyy-MM-dd HH:mm:ss");
}

std::string describeWatcher(const std::filesystem::path& file)
{
    const auto state = readWatcherState(file);
    if (!state)
        return "no watcher runs (no state at " + file.string() + "): changes wait for a raise by hand";
    if (!processRuns(state->pid))
        return "no watcher runs (PID " + std::to_string(state->pid) + ", which left " + file.string()
            + ", has ended): changes wait for a raise by hand";
    std::string text = "PID " + std::to_string(state->pid) + " since " + state->started + ", " + state->mode;
    if (!state->reason.empty())
        text += " (" + state->reason + ")";
    text += "\n  synced folder: " + (state->syncedFolder.empty() ? std::string("none") : state->syncedFolder);
    text += "\n  folders watched: " + std::to_string(state->foldersWatched);
    if (state->foldersUnwatched > 0)
        text += ", not watched: " + std::to_string(state->foldersUnwatched);
    text += "\n  last change seen: " + (state->lastEvent.empty() ? std::string("none yet") : state->lastEvent);
    text += "\n  last raise: " + (state->lastRaise.empty() ? std::string("none yet") : state->lastRaise);
    return text;
}

}
