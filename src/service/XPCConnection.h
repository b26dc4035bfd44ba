#pragma once

// XPCConnection: one IPC connection of the older serving path, wrapped. It gives the connection its own serial queue,
// turns every incoming message into framework objects and hands them to its event handler (a message carrying
// "XPCDebugLog" is only written to the log, as "LOG: <text>"), hands the connection's error events to its error
// handler, sends framework objects as messages, and reads the credentials of the process at the other end.
//
// The connection's event handler holds the wrapper, so a wrapper lives as long as its connection delivers events;
// when the wrapper goes, it cancels the connection.

#include "platform/IpcConnection.h"
#include "platform/Queue.h"
#include "platform/Value.h"
#include "service/Object.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace service {

class XPCConnection : public std::enable_shared_from_this<XPCConnection> {
    struct Private { };

public:
    using EventHandler = std::function<void(const Object& message, const std::shared_ptr<XPCConnection>& connection)>;
    using ErrorHandler = std::function<void(const platform::ipc::Object& event, const std::optional<std::string>& description,
        const std::shared_ptr<XPCConnection>& connection)>;

    // The key whose message is only logged, and the key under which a message that is not a dictionary is sent.
    static constexpr const char* debugLogKey = "XPCDebugLog";
    static constexpr const char* contentsKey = "contents";

    // A wrapper of a new connection to the service named `name`.
    static std::shared_ptr<XPCConnection> initWithServiceName(const std::string& name);
    // A wrapper of `connection`, with a serial queue of its own (named after the connection), resumed; null when
    // `connection` is null.
    static std::shared_ptr<XPCConnection> initWithConnection(const std::shared_ptr<platform::ipc::Connection>& connection);

    XPCConnection(Private, std::shared_ptr<platform::ipc::Connection> connection);
    ~XPCConnection();
    XPCConnection(const XPCConnection&) = delete;
    XPCConnection& operator=(const XPCConnection&) = delete;

    // Makes `queue` the one on which the connection's events and all of this wrapper's work run.
    void setDispatchQueue(std::shared_ptr<platform::Queue> queue);
    // Installs the event handler of `connection`; it holds this wrapper.
    void receiveConnection(const std::shared_ptr<platform::ipc::Connection>& connection);
    // Sends `message` on the dispatch queue: a dictionary as it is, anything else as { "contents": message }.
    void sendMessage(const Object& message);
    // Hands `event` with its description text (absent when it has none) to the error handler.
    void invokeErrorHandlerWithObject(const platform::ipc::Object& event, const std::shared_ptr<XPCConnection>& connection);

    // Read on the dispatch queue, waiting for it: must not be called from a task of that queue. The numbers hold the
    // unsigned 32-bit values of the credentials.
    std::optional<std::string> connectionName() const;
    platform::Number connectionEUID() const;
    platform::Number connectionEGID() const;
    platform::Number connectionProcessID() const;
    platform::Number connectionAuditSessionID() const;

    // Each submitted to the dispatch queue.
    void suspend();
    void resume();

    // Sends { "XPCDebugLog": text }.
    void _sendLog(const std::string& text);

    EventHandler eventHandler() const;
    void setEventHandler(EventHandler handler);
    ErrorHandler errorHandler() const;
    void setErrorHandler(ErrorHandler handler);
    std::shared_ptr<platform::Queue> dispatchQueue() const;
    const std::shared_ptr<platform::ipc::Connection>& connection() const { return m_connection; }

private:
    void handleEvent(const platform::ipc::Object& event);
    // Reads one credential of the connection on the dispatch queue, as a number.
    template<typename Field>
    platform::Number credential(Field field) const;

    const std::shared_ptr<platform::ipc::Connection> m_connection;
    mutable std::mutex m_mutex;
    std::shared_ptr<platform::Queue> m_dispatchQueue;
    EventHandler m_eventHandler;
    ErrorHandler m_errorHandler;
};

}
