#include "service/XPCService.h"

#include "platform/IpcServer.h"
#include "platform/IpcServiceSocket.h"
#include "platform/Queue.h"
#include "platform/ServiceReadiness.h"
#include "service/SyncFilesXpcServiceProtocol.h"

namespace service {

void XPCService::runServiceWithConnectionHandler(ConnectionHandler handler)
{
    auto service = initWithConnectionHandler(std::move(handler));
    runService();
}

void XPCService::runService()
{
    auto server = platform::ipc::Server::start(platform::ipc::listenForService(syncServiceName),
        XPCServiceConnectionHandler);
    platform::notifyServiceReady();
    platform::runMainQueue();
    server->announceTerminationImminent();
    server->stop();
}

std::shared_ptr<XPCService> XPCService::initWithConnectionHandler(ConnectionHandler handler)
{
    auto service = std::make_shared<XPCService>(Private {}, std::move(handler));
    service->m_observer = platform::NotificationCenter::defaultCenter().addObserver(XPCConnectionReceivedNotification,
        platform::Queue::main(), [weak = std::weak_ptr<XPCService>(service)](const platform::Notification& notification) {
            const auto* connection = std::any_cast<std::shared_ptr<XPCConnection>>(&notification.object);
            if (auto self = weak.lock(); self && connection) {
                self->handleConnection(*connection);
                // Lifts the hold that XPCServiceConnectionHandler put on the connection, now that it has a handler.
                (*connection)->resume();
            }
        });
    return service;
}

XPCService::XPCService(Private, ConnectionHandler handler)
    : m_connectionHandler(std::move(handler))
{
}

XPCService::~XPCService()
{
    platform::NotificationCenter::defaultCenter().removeObserver(m_observer);
}

void XPCService::handleConnection(const std::shared_ptr<XPCConnection>& connection)
{
    ConnectionHandler handler;
    {
        std::lock_guard lock(m_mutex);
        if (!m_connections)
            m_connections.emplace();
        m_connections->push_back(connection);
        handler = m_connectionHandler;
    }
    if (handler)
        handler(connection);
}

XPCService::ConnectionHandler XPCService::connectionHandler() const
{
    std::lock_guard lock(m_mutex);
    return m_connectionHandler;
}

void XPCService::setConnectionHandler(ConnectionHandler handler)
{
    std::lock_guard lock(m_mutex);
    m_connectionHandler = std::move(handler);
}

std::optional<std::vector<std::shared_ptr<XPCConnection>>> XPCService::connections() const
{
    std::lock_guard lock(m_mutex);
    return m_connections;
}

void XPCServiceConnectionHandler(const std::shared_ptr<platform::ipc::Connection>& connection)
{
    // The wrapper resumes the connection at once, but its event handler is only set when the notification has
    // reached the main queue: until then the connection is held (suspend and resume nest), so that a message the
    // peer sent right away waits for the handler instead of arriving at a wrapper that has none.
    connection->suspend();
    platform::NotificationCenter::defaultCenter().post(XPCConnectionReceivedNotification,
        XPCConnection::initWithConnection(connection));
}

}
