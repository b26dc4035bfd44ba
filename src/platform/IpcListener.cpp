#include "platform/IpcListener.h"

#include "platform/IpcServiceSocket.h"
#include "platform/Log.h"

namespace platform::ipc {

Object makeInvocation(std::string_view selector, Array arguments)
{
    return Object::dictionary({ { invocationSelectorKey, Object::string(selector) },
        { invocationArgumentsKey, Object::array(std::move(arguments)) } });
}

const Interface::Method* Interface::method(std::string_view selector) const
{
    const auto found = m_methods.find(selector);
    return found == m_methods.end() ? nullptr : &found->second;
}

ListenerConnection::ListenerConnection(std::shared_ptr<Connection> connection)
    : m_connection(std::move(connection))
{
}

void ListenerConnection::setExportedInterface(Interface interface)
{
    std::lock_guard lock(m_mutex);
    m_interface = std::move(interface);
}

void ListenerConnection::setExportedObject(std::any object)
{
    std::lock_guard lock(m_mutex);
    m_exportedObject = std::move(object);
}

void ListenerConnection::resume()
{
    // The handler holds this object, so that it and its exported object live as long as the connection.
    m_connection->setEventHandler([self = shared_from_this()](const Object& event) { self->handleEvent(event); });
    m_connection->resume();
}

void ListenerConnection::invalidate() { m_connection->cancel(); }

void ListenerConnection::handleEvent(const Object& event)
{
    if (event.type() == Type::Error)
        return;
    const std::string* selector = event.stringForKey(invocationSelectorKey);
    const Object* arguments = event.find(invocationArgumentsKey);
    if (!selector || (arguments && arguments->type() != Type::Array)) {
        log("IPC: dropped a message that is not an invocation on the connection from process %@", credentials().pid);
        return;
    }
    Interface::Method method;
    std::any object;
    {
        std::lock_guard lock(m_mutex);
        if (const auto* found = m_interface.method(*selector))
            method = *found;
        object = m_exportedObject;
    }
    if (!method) {
        log("IPC: dropped an invocation of %@, which the exported interface does not have", *selector);
        return;
    }
    method(object, arguments ? *arguments->arrayIf() : Array());
}

std::shared_ptr<Listener> Listener::serviceListener(std::string serviceName)
{
    return std::make_shared<Listener>(Private {}, std::move(serviceName));
}

Listener::Listener(Private, std::string serviceName)
    : m_serviceName(std::move(serviceName))
{
}

void Listener::setDelegate(std::shared_ptr<ListenerDelegate> delegate)
{
    std::lock_guard lock(m_mutex);
    m_delegate = std::move(delegate);
}

void Listener::start() { start(listenForService(m_serviceName)); }

void Listener::start(ServiceSocket listening)
{
    auto server = Server::start(std::move(listening),
        [self = shared_from_this()](const std::shared_ptr<Connection>& connection) { self->accept(connection); });
    std::lock_guard lock(m_mutex);
    m_server = std::move(server);
}

void Listener::resume()
{
    runService([this] { start(); });
}

void Listener::stop()
{
    std::shared_ptr<Server> server;
    {
        std::lock_guard lock(m_mutex);
        server = std::move(m_server);
    }
    if (server)
        server->stop();
}

void Listener::announceTerminationImminent()
{
    std::shared_ptr<Server> server;
    {
        std::lock_guard lock(m_mutex);
        server = m_server;
    }
    if (server)
        server->announceTerminationImminent();
}

void Listener::accept(const std::shared_ptr<Connection>& connection)
{
    auto accepted = std::make_shared<ListenerConnection>(connection);
    std::shared_ptr<ListenerDelegate> delegate;
    {
        std::lock_guard lock(m_mutex);
        delegate = m_delegate;
    }
    if (!delegate || !delegate->listener(*this, accepted))
        accepted->invalidate();
}

}
