#include "service/XPCConnection.h"

#include "platform/Log.h"
#include "platform/Utf8.h"
#include "service/XPCParse.h"

namespace service {

using platform::ipc::PeerCredentials;

std::shared_ptr<XPCConnection> XPCConnection::initWithServiceName(const std::string& name)
{
    return initWithConnection(platform::ipc::Connection::createToService(name));
}

std::shared_ptr<XPCConnection> XPCConnection::initWithConnection(const std::shared_ptr<platform::ipc::Connection>& connection)
{
    if (!connection)
        return nullptr;
    auto wrapper = std::make_shared<XPCConnection>(Private {}, connection);
    wrapper->receiveConnection(connection);
    wrapper->setDispatchQueue(platform::Queue::makeSerial(connection->name().value_or("")));
    connection->resume();
    return wrapper;
}

XPCConnection::XPCConnection(Private, std::shared_ptr<platform::ipc::Connection> connection)
    : m_connection(std::move(connection))
{
}

XPCConnection::~XPCConnection()
{
    if (m_connection)
        m_connection->cancel();
}

void XPCConnection::setDispatchQueue(std::shared_ptr<platform::Queue> queue)
{
    {
        std::lock_guard lock(m_mutex);
        m_dispatchQueue = queue;
    }
    m_connection->setTargetQueue(std::move(queue));
}

void XPCConnection::receiveConnection(const std::shared_ptr<platform::ipc::Connection>& connection)
{
    connection->setEventHandler([self = shared_from_this()](const platform::ipc::Object& event) { self->handleEvent(event); });
}

void XPCConnection::handleEvent(const platform::ipc::Object& event)
{
    if (event.errorEventIf()) {
        if (errorHandler())
            invokeErrorHandlerWithObject(event, shared_from_this());
        return;
    }
    const auto message = XPCParse::objectWithXPCObject(event);
    if (!message)
        return;
    if (const Object* text = message->find(debugLogKey)) {
        platform::log("LOG: %@", text->description());
        return;
    }
    if (const auto handler = eventHandler())
        handler(*message, shared_from_this());
}

void XPCConnection::sendMessage(const Object& message)
{
    dispatchQueue()->async([self = shared_from_this(), message] {
        const Object dictionary = message.dictionaryIf() ? message : Object::dictionary({ { contentsKey, message } });
        if (auto converted = XPCParse::newXPCObject(dictionary))
            self->m_connection->sendMessage(*converted);
    });
}

void XPCConnection::invokeErrorHandlerWithObject(const platform::ipc::Object& event, const std::shared_ptr<XPCConnection>& connection)
{
    std::optional<std::string> description;
    if (const std::string* text = event.stringForKey(platform::ipc::errorDescriptionKey); text && platform::isValidUtf8(*text))
        description = *text;
    if (const auto handler = errorHandler())
        handler(event, description, connection);
}

std::optional<std::string> XPCConnection::connectionName() const
{
    std::optional<std::string> name;
    dispatchQueue()->sync([&] { name = m_connection->name(); });
    return name;
}

template<typename Field>
platform::Number XPCConnection::credential(Field field) const
{
    std::uint32_t value = 0;
    dispatchQueue()->sync([&] { value = static_cast<std::uint32_t>(m_connection->credentials().*field); });
    return platform::Number::fromLongLong(value);
}

platform::Number XPCConnection::connectionEUID() const { return credential(&PeerCredentials::euid); }
platform::Number XPCConnection::connectionEGID() const { return credential(&PeerCredentials::egid); }
platform::Number XPCConnection::connectionProcessID() const { return credential(&PeerCredentials::pid); }
platform::Number XPCConnection::connectionAuditSessionID() const { return credential(&PeerCredentials::auditSessionId); }

void XPCConnection::suspend()
{
    dispatchQueue()->async([connection = m_connection] { connection->suspend(); });
}

void XPCConnection::resume()
{
    dispatchQueue()->async([connection = m_connection] { connection->resume(); });
}

void XPCConnection::_sendLog(const std::string& text)
{
    sendMessage(Object::dictionary({ { debugLogKey, platform::Value(text) } }));
}

XPCConnection::EventHandler XPCConnection::eventHandler() const
{
    std::lock_guard lock(m_mutex);
    return m_eventHandler;
}

void XPCConnection::setEventHandler(EventHandler handler)
{
    std::lock_guard lock(m_mutex);
    m_eventHandler = std::move(handler);
}

XPCConnection::ErrorHandler XPCConnection::errorHandler() const
{
    std::lock_guard lock(m_mutex);
    return m_errorHandler;
}

void XPCConnection::setErrorHandler(ErrorHandler handler)
{
    std::lock_guard lock(m_mutex);
    m_errorHandler = std::move(handler);
}

std::shared_ptr<platform::Queue> XPCConnection::dispatchQueue() const
{
    std::lock_guard lock(m_mutex);
    return m_dispatchQueue;
}

}
