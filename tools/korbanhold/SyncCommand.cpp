#include "SyncCommand.h"

#include "Command.h"

#include "platform/IpcClient.h"
#include "platform/IpcListener.h"
#include "platform/IpcWire.h"
#include "platform/PreferenceJson.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "service/XPCConnection.h"
#include "service/XPCParse.h"
#include "sync/RootGuard.h"
#include "sync/ServiceStatus.h"

#include <boost/json.hpp>

#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>

namespace korbanhold {

namespace {

using platform::ipc::Object;

struct SyncArguments {
    std::string message;
    std::string debugLog;
    bool confirmDeleteAll = false;
    bool wait = false;
    double timeoutSeconds = 120;
    CLI::Option* messageOption = nullptr;
    CLI::Option* debugLogOption = nullptr;
};

// Leaves the confirmation that the service's next pass may delete every item of its table when it finds the synced
// folder empty (RootGuard.h); the SyncFile sent next makes that pass run.
void confirmDeleteAll()
{
    auto path = engine::deleteAllConfirmationPath();
    if (!path)
        failCommand(exitFailure, "The confirmation cannot be left: there is no runtime folder");
    std::ofstream file(*path);
    file << "confirmed\n";
    if (!file.flush())
        failCommand(exitFailure, "The confirmation cannot be written to " + *path);
}

Object messageFromJson(const std::string& text)
{
    platform::JsonReadOptions options;
    options.allowFragments = true;
    std::optional<Object> message;
    try {
        message = service::XPCParse::newXPCObject(service::Object(platform::readPreferenceJson(text, options)));
    } catch (const platform::JsonError& error) {
        failCommand(exitUsage, "Not valid JSON: " + error.reason());
    }
    if (!message)
        failCommand(exitUsage, "The message cannot be sent: null is no message");
    if (message->type() == platform::ipc::Type::Dictionary)
        return std::move(*message);
    Object wrapped = Object::dictionary();
    wrapped.set(service::XPCConnection::contentsKey, std::move(*message));
    return wrapped;
}

Object messageToSend(const SyncArguments& arguments)
{
    if (arguments.messageOption->count() > 0)
        return messageFromJson(arguments.message);
    if (arguments.debugLogOption->count() > 0) {
        Object message = Object::dictionary();
        message.set(service::XPCConnection::debugLogKey, Object::string(arguments.debugLog));
        return message;
    }
    return platform::ipc::makeInvocation("SyncFile");
}

void send(const Object& message)
{
    platform::ipc::SendResult result;
    try {
        result = platform::ipc::sendMessage(service::syncServiceName, message);
    } catch (const platform::ipc::WireError& error) {
        failCommand(exitUsage, std::string("The message cannot be sent: ") + error.what());
    }
    if (!result && result.where.empty())
        failCommand(exitFailure, "The sync service cannot be reached: " + result.reason);
    if (!result)
        failCommand(exitFailure, "The sync service cannot be reached at " + result.where + ": " + result.reason);
}

namespace json = boost::json;

// The record `key` of the status file, when the process `pid` wrote it.
const json::object* recordOf(const json::object& status, std::string_view key, const json::value& pid)
{
    const auto* record = status.if_contains(key);
    const auto* writer = record && record->is_object() ? record->as_object().if_contains("pid") : nullptr;
    return writer && *writer == pid ? &record->as_object() : nullptr;
}

std::int64_t passOf(const json::object& record)
{
    const auto* pass = record.if_contains("pass");
    return pass && pass->is_int64() ? pass->as_int64() : 0;
}

// The status file until `done` finds in it what it waits for, or the time is up.
template<typename Done>
std::optional<json::object> waitForStatus(std::chrono::steady_clock::time_point deadline, Done done)
{
    for (;;) {
        json::object status = engine::status::read();
        if (done(status))
            return status;
        if (std::chrono::steady_clock::now() >= deadline)
            return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

[[noreturn]] void timedOut(double seconds, const std::string& what)
{
    std::ostringstream limit;
    limit << seconds;
    failCommand(exitFailure, "No " + what + " within " + limit.str() + " s (see korbanhold status)");
}

// After a SyncFile: waits for the pass that it started (the first pass to end after `before`, the status file as it
// was before sending), then for that pass's report, and says what happened.
void waitForOutcome(const json::object& before, double timeoutSeconds)
{
    const auto deadline = std::chrono::steady_clock::now()
        + std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(timeoutSeconds));
    const auto* beforePass = before.if_contains("lastPass");
    const json::value previousPass = beforePass ? *beforePass : json::value();
    // Every pass records its own time, so any other record is a later pass.
    const auto passEnded = waitForStatus(deadline, [&](const json::object& status) {
        const auto* pass = status.if_contains("lastPass");
        return pass && pass->is_object() && *pass != previousPass;
    });
    if (!passEnded)
        timedOut(timeoutSeconds, "pass ended");
    const json::object& pass = passEnded->at("lastPass").as_object();
    const json::value pid = pass.at("pid");
    const auto records = pass.at("records").to_number<std::int64_t>();
    if (records == 0) {
        std::cout << "The pass found no change: nothing to report." << std::endl;
        return;
    }
    std::cout << "The pass found " << records << (records == 1 ? " change" : " changes") << "; reporting them."
              << std::endl;
    const std::int64_t number = passOf(pass);
    const auto outcome = waitForStatus(deadline, [&](const json::object& status) {
        const auto* stored = recordOf(status, "lastStored", pid);
        const auto* failed = recordOf(status, "lastFailed", pid);
        return (stored && passOf(*stored) >= number) || (failed && passOf(*failed) >= number);
    });
    if (!outcome)
        timedOut(timeoutSeconds, "report ended");
    const auto* stored = recordOf(*outcome, "lastStored", pid);
    if (stored && passOf(*stored) >= number) {
        std::cout << "The server accepted the report of " << json::serialize(stored->at("records"))
                  << " records; the table is stored." << std::endl;
        return;
    }
    const auto& failed = *recordOf(*outcome, "lastFailed", pid);
    failCommand(exitFailure,
        "The report failed: " + std::string(failed.at("error").as_string()) + " (server URL "
            + std::string(failed.at("url").as_string()) + ")");
}

}

void addSyncCommand(CLI::App& app)
{
    auto arguments = std::make_shared<SyncArguments>();
    auto* command = app.add_subcommand("sync", "Ask the sync service to sync (calls SyncFile)");
    arguments->messageOption = command->add_option("--message", arguments->message,
        "Send this JSON instead (a dictionary, or any value as { \"contents\": VALUE })");
    arguments->debugLogOption = command->add_option("--debug-log", arguments->debugLog,
        "Send { \"XPCDebugLog\": TEXT }, which the service only logs");
    auto* confirmOption = command->add_flag("--confirm-delete-all", arguments->confirmDeleteAll,
        "Let the next pass delete every item on the server when it finds the synced folder empty");
    arguments->messageOption->excludes(arguments->debugLogOption);
    confirmOption->excludes(arguments->messageOption)->excludes(arguments->debugLogOption);
    auto* wait = command->add_flag("--wait", arguments->wait,
        "Wait until the pass this starts and its report have ended, say what happened, and exit 0 only when the "
        "table was stored or there was nothing to report");
    // A debug-log message starts no pass: there would be nothing to wait for.
    wait->excludes(arguments->debugLogOption);
    command->add_option("--timeout", arguments->timeoutSeconds, "With --wait, give up after this many seconds")
        ->default_val(arguments->timeoutSeconds)
        ->check(CLI::PositiveNumber)
        ->needs(wait);
    command->callback([arguments] {
        const json::object before = engine::status::read();
        if (arguments->confirmDeleteAll)
            confirmDeleteAll();
        send(messageToSend(*arguments));
        if (arguments->wait)
            waitForOutcome(before, arguments->timeoutSeconds);
    });
}

}
