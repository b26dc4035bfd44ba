#include "SyncCommand.h"

#include "Command.h"

#include "platform/IpcClient.h"
#include "platform/IpcListener.h"
#include "platform/IpcWire.h"
#include "platform/PreferenceJson.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "service/XPCConnection.h"
#include "service/XPCParse.h"

#include <memory>

namespace korbanhold {

namespace {

using platform::ipc::Object;

struct SyncArguments {
    std::string message;
    std::string debugLog;
    CLI::Option* messageOption = nullptr;
    CLI::Option* debugLogOption = nullptr;
};

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

}

void addSyncCommand(CLI::App& app)
{
    auto arguments = std::make_shared<SyncArguments>();
    auto* command = app.add_subcommand("sync", "Ask the sync service to sync (calls SyncFile)");
    arguments->messageOption = command->add_option("--message", arguments->message,
        "Send this JSON instead (a dictionary, or any value as { \"contents\": VALUE })");
    arguments->debugLogOption = command->add_option("--debug-log", arguments->debugLog,
        "Send { \"XPCDebugLog\": TEXT }, which the service only logs");
    arguments->messageOption->excludes(arguments->debugLogOption);
    command->callback([arguments] { send(messageToSend(*arguments)); });
}

}
