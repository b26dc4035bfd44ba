#include "sync/ServiceStatus.h"

#include "platform/Log.h"
#include "platform/PreferenceFiles.h"
#include "platform/StateFolder.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <unistd.h>

namespace engine::status {

namespace {

constexpr const char* fileName = "status.json";

struct Recorder {
    std::mutex mutex;
    std::optional<std::filesystem::path> file;
    bool failureLogged = false;
    boost::json::object contents;
    std::int64_t passes = 0;
    std::int64_t lastReportedPass = 0;
};

// Never destroyed: the polling loop runs for the life of the process and may be ending a pass on its own thread
// while the process exits and runs the destructors of statics.
Recorder& recorder()
{
    static Recorder& instance = *new Recorder;
    return instance;
}

double now()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::int64_t pid() { return ::getpid(); }

enum class Write { now, withTheNextRecord };

// Applies `change` to the contents and writes them to the file, when there is one.
template<typename Change>
void record(Change change, Write write = Write::now)
{
    Recorder& state = recorder();
    std::lock_guard lock(state.mutex);
    state.contents["pid"] = pid();
    change(state);
    if (!state.file || write == Write::withTheNextRecord)
        return;
    try {
        platform::replaceFileAtomically(
            state.file->parent_path(), state.file->filename().string(), boost::json::serialize(state.contents));
    } catch (const std::exception& error) {
        if (!state.failureLogged)
            platform::log("The status file cannot be written: %@", std::string_view(error.what()));
        state.failureLogged = true;
    }
}

}

std::filesystem::path filePath() { return platform::stateFolder() / fileName; }

void recordTo(std::filesystem::path file)
{
    Recorder& state = recorder();
    std::lock_guard lock(state.mutex);
    state.contents = read(file);
    state.file = std::move(file);
}

void modeChosen(std::string_view mode)
{
    record([mode](Recorder& state) { state.contents["mode"] = mode; });
}

void retryScheduled(double delaySeconds)
{
    record([delaySeconds](Recorder& state) {
        state.contents["retryPending"] = boost::json::object { { "at", now() + delaySeconds } };
    });
}

void retryCleared()
{
    record([](Recorder& state) { state.contents.erase("retryPending"); });
}

void passEnded(std::size_t records)
{
    record([records](Recorder& state) {
        ++state.passes;
        if (records > 0)
            state.lastReportedPass = state.passes;
        state.contents["lastPass"] = boost::json::object {
            { "pid", pid() }, { "pass", state.passes }, { "at", now() }, { "records", records } };
    });
}

void reportStored(std::size_t records)
{
    record([records](Recorder& state) {
        state.contents["lastStored"] = boost::json::object {
            { "pid", pid() }, { "pass", state.lastReportedPass }, { "at", now() }, { "records", records } };
    });
}

void reportFailed(std::string_view error, std::string_view url)
{
    record([error, url](Recorder& state) {
        state.contents["lastFailed"] = boost::json::object {
            { "pid", pid() }, { "pass", state.lastReportedPass }, { "at", now() }, { "error", error },
            { "url", url } };
    });
}

void nameSkipped(std::string_view path)
{
    record([path](Recorder& state) {
        auto* names = state.contents.if_contains("skippedNames");
        if (!names || !names->is_array())
            names = &(state.contents["skippedNames"] = boost::json::array());
        auto& list = names->as_array();
        // Each name once, at its latest place, and only the latest ones.
        auto same = std::find(list.begin(), list.end(), boost::json::value(path));
        if (same != list.end())
            list.erase(same);
        list.emplace_back(path);
        if (list.size() > skippedNamesKept)
            list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(list.size() - skippedNamesKept));
    },
        // The walk skips the same names on every pass: they reach the file with the pass's end, in one write.
        Write::withTheNextRecord);
}

boost::json::object read()
{
    try {
        return read(filePath());
    } catch (const std::exception&) {
        // No state folder: nothing recorded.
        return {};
    }
}

boost::json::object read(const std::filesystem::path& file)
{
    try {
        const auto contents = platform::readWholeFile(file);
        boost::system::error_code error;
        auto value = boost::json::parse(contents.bytes, error);
        if (!error && value.is_object())
            return std::move(value.as_object());
    } catch (const std::exception&) {
        // No file yet: nothing recorded.
    }
    return {};
}

}
