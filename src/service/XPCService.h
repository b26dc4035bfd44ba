#pragma once

// XPCService: the host of the older serving path (OS 10.7), where the service serves connections itself instead of
// through the listener. Every new peer connection is wrapped in an XPCConnection and announced with the process-local
// notification "XPCConnectionReceivedNotification"; the XPCService hears it on the main queue, keeps the wrapper for
// the life of the process (the list is what keeps each wrapper alive, so wrappers of peers long gone stay in it) and
// hands it to the connection handler.

#include "platform/IpcConnection.h"
#include "platform/NotificationCenter.h"
#include "service/XPCConnection.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace service {

inline constexpr const char* XPCConnectionReceivedNotification = "XPCConnectionReceivedNotification";

class XPCService : public std::enable_shared_from_this<XPCService> {
    struct Private { };

public:
    using ConnectionHandler = std::function<void(const std::shared_ptr<XPCConnection>& connection)>;

    // Serves with a new XPCService holding `handler` until the main queue is stopped (SIGTERM), then tells every
    // peer that termination is imminent and returns. Raises platform::ipc::ListenError when the service cannot
    // listen.
    static void runServiceWithConnectionHandler(ConnectionHandler handler);
    // Listens as the service, hands every new peer connection to XPCServiceConnectionHandler, and runs the main
    // queue until it is stopped; then tells every peer that termination is imminent and returns.
    static void runService();

    // A new host holding `handler`, observing "XPCConnectionReceivedNotification" (of any object) on the main queue.
    static std::shared_ptr<XPCService> initWithConnectionHandler(ConnectionHandler handler);

    XPCService(Private, ConnectionHandler handler);
    ~XPCService();
    XPCService(const XPCService&) = delete;
    XPCService& operator=(const XPCService&) = delete;

    // Keeps `connection` in `connections` and hands it to the connection handler, when there is one.
    void handleConnection(const std::shared_ptr<XPCConnection>& connection);

    ConnectionHandler connectionHandler() const;
    void setConnectionHandler(ConnectionHandler handler);
    // Absent until the first connection has been handled.
    std::optional<std::vector<std::shared_ptr<XPCConnection>>> connections() const;

private:
    mutable std::mutex m_mutex;
    ConnectionHandler m_connectionHandler;
    std::optional<std::vector<std::shared_ptr<XPCConnection>>> m_connections;
    platform::NotificationCenter::ObserverToken m_observer = 0;
};

// Called by the runtime for each new peer connection: wraps it (which gives it its own queue and resumes it) and
// posts "XPCConnectionReceivedNotification" with the wrapper as the object. Its messages wait until the observer of
// the XPCService has handed the wrapper to the connection handler.
void XPCServiceConnectionHandler(const std::shared_ptr<platform::ipc::Connection>& connection);

}
