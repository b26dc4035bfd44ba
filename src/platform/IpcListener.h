#pragma once

// The listener of the newer serving path. For each connection it accepts, a delegate decides; an accepted connection
// exports one object through an interface, and each invocation message that arrives on it becomes a call of the
// interface's method on that object, on the connection's own serial queue (so calls of one connection run one after
// the other).
//
// An invocation message is the dictionary
//   { "selector": <the method's name, a string>, "arguments": <an array; may be absent when there are none> }
// A message that is not an invocation, or names a method the interface does not have, is dropped with a log line.

#include "platform/IpcConnection.h"
#include "platform/IpcServer.h"

#include <any>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace platform::ipc {

inline constexpr const char* invocationSelectorKey = "selector";
inline constexpr const char* invocationArgumentsKey = "arguments";

// The invocation message that calls `selector` with `arguments`.
Object makeInvocation(std::string_view selector, Array arguments = {});

// The methods an exported object offers, by name. The exported object is held in a std::any; a method of a protocol P
// finds it there as a std::shared_ptr<P>.
class Interface {
public:
    using Method = std::function<void(const std::any& exportedObject, const Array& arguments)>;

    Interface() = default;
    explicit Interface(std::string protocolName) : m_protocolName(std::move(protocolName)) { }

    // An interface of protocol P whose methods take no arguments, each a member function of P.
    template<typename Protocol>
    static Interface withProtocol(std::string protocolName, std::initializer_list<std::pair<std::string, void (Protocol::*)()>> methods)
    {
        Interface interface(std::move(protocolName));
        for (const auto& method : methods) {
            interface.addMethod(method.first, [member = method.second](const std::any& object, const Array&) {
                if (const auto* exported = std::any_cast<std::shared_ptr<Protocol>>(&object); exported && *exported)
                    ((**exported).*member)();
                else
                    throw std::invalid_argument("the exported object does not implement the interface");
            });
        }
        return interface;
    }

    void addMethod(std::string selector, Method method) { m_methods.insert_or_assign(std::move(selector), std::move(method)); }
    const std::string& protocolName() const { return m_protocolName; }
    // The method named `selector`, or null when the interface has none.
    const Method* method(std::string_view selector) const;

private:
    std::string m_protocolName;
    std::map<std::string, Method, std::less<>> m_methods;
};

// A connection accepted by a listener, with what it exports.
class ListenerConnection : public std::enable_shared_from_this<ListenerConnection> {
public:
    explicit ListenerConnection(std::shared_ptr<Connection> connection);

    void setExportedInterface(Interface interface);
    void setExportedObject(std::any object);
    // Starts delivering invocations. The connection (and the object it exports) lives until it is invalidated or its
    // peer goes away.
    void resume();
    void invalidate();

    const std::shared_ptr<Connection>& connection() const { return m_connection; }
    PeerCredentials credentials() const { return m_connection->credentials(); }

private:
    void handleEvent(const Object& event);

    const std::shared_ptr<Connection> m_connection;
    mutable std::mutex m_mutex;
    Interface m_interface;
    std::any m_exportedObject;
};

class Listener;

class ListenerDelegate {
public:
    virtual ~ListenerDelegate() = default;
    // Asked for each new connection. To accept it, set it up, resume it and answer true; a connection answered false
    // is invalidated.
    virtual bool listener(Listener& listener, const std::shared_ptr<ListenerConnection>& shouldAcceptNewConnection) = 0;
};

class Listener : public std::enable_shared_from_this<Listener> {
    struct Private { };

public:
    // The listener of this process's service named `serviceName`.
    static std::shared_ptr<Listener> serviceListener(std::string serviceName);

    Listener(Private, std::string serviceName);

    const std::string& serviceName() const { return m_serviceName; }
    void setDelegate(std::shared_ptr<ListenerDelegate> delegate);

    // Listens (listenForService) and accepts, without taking the calling thread. Raises ListenError.
    void start();
    // Listens on a socket that is already listening, as start() does on the service's own.
    void start(ServiceSocket listening);
    // Starts, then gives the calling thread to the main queue for the rest of the process. When the service cannot
    // listen, logs why in one line and exits with status 1.
    [[noreturn]] void resume();
    // Stops accepting; connections already accepted go on.
    void stop();
    // Delivers TerminationImminent to every connection accepted that is still open.
    void announceTerminationImminent();

private:
    void accept(const std::shared_ptr<Connection>& connection);

    const std::string m_serviceName;
    std::mutex m_mutex;
    std::shared_ptr<ListenerDelegate> m_delegate;
    std::shared_ptr<Server> m_server;
};

}
