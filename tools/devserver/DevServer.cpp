#include "devserver/DevServer.h"

#include "devserver/ClientConnection.h"
#include "devserver/MethodTable.h"
#include "platform/Json.h"

#include <httplib.h>

#include <csignal>
#include <stdexcept>

// cpp-httplib comes as a prebuilt shared library without ThreadSanitizer instrumentation, so TSan cannot see the
// synchronisation inside it (the guards of its function-local static regexes, for one) and reports its own
// accesses as races. Those reports are left out; everything of ours stays checked.
extern "C" const char* __tsan_default_suppressions()
{
    return "called_from_lib:libcpp-httplib.so\n";
}

namespace devserver {

using platform::Value;

namespace {

// Enough threads for a handful of concurrent clients plus replies held back by faults.
constexpr std::size_t requestThreads = 32;

// Names that cpp-httplib adds to a request's headers itself; they were not sent by the client.
bool isAddedByServer(const std::string& name)
{
    return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT";
}

std::string headersAsJson(const httplib::Request& request)
{
    auto headers = Value::dictionary();
    for (const auto& [name, value] : request.headers) {
        if (isAddedByServer(name))
            continue;
        // A repeated header keeps every value, comma-separated, as HTTP allows.
        const Value* earlier = headers.find(name);
        headers.setObject(Value(earlier ? earlier->string() + ", " + value : value), name);
    }
    return platform::writeJson(headers);
}

// The path a request is logged under: the method path below the service's base path, or the whole path.
std::string_view loggedPath(const httplib::Request& request)
{
    std::string_view path = request.path;
    return path.starts_with(servicePrefix) ? path.substr(servicePrefix.size()) : path;
}

Reply notFound(std::string_view path)
{
    return { 404, "text/plain", "404 Not Found: no method at " + std::string(path) + "\n" };
}

// The reply of a fault that stands in for the method's own reply.
Reply faultReply(FaultKind kind)
{
    switch (kind) {
    case FaultKind::ErrorJson:
        return errorReply(500, "server error injected by korbanhold-devserver");
    case FaultKind::UnavailableJson:
        return errorReply(503, "service unavailable (injected by korbanhold-devserver)");
    case FaultKind::ErrorHtml:
        return { 500, "text/html",
            "<!DOCTYPE html>\n<html><head><title>500 Internal Server Error</title></head>\n"
            "<body><h1>Internal Server Error</h1><p>injected by korbanhold-devserver</p></body></html>\n" };
    default:
        return { 200, "text/plain", "this reply is not JSON (injected by korbanhold-devserver)\n" };
    }
}

void send(httplib::Response& response, Reply reply)
{
    response.status = reply.status;
    response.set_content(std::move(reply.body), reply.contentType);
}

}

DevServer::DevServer(DevServerOptions options)
    : m_options(std::move(options))
    , m_store(m_options.databasePath)
    , m_admin(m_store, m_faults)
    , m_http(std::make_unique<httplib::Server>())
{
    for (const auto& fault : m_options.faults)
        m_faults.add(fault);
}

DevServer::~DevServer() { stop(); }

int DevServer::start()
{
    // A write to a connection that a fault (or the client) has closed must fail, not kill the process: cpp-httplib
    // sends without MSG_NOSIGNAL.
    std::signal(SIGPIPE, SIG_IGN);

    m_http->new_task_queue = [] { return new httplib::ThreadPool(requestThreads); };
    // cpp-httplib's default options add SO_REUSEPORT, which would let a second server share a port in use
    // instead of refusing it.
    auto listener = std::make_shared<socket_t>(INVALID_SOCKET);
    m_http->set_socket_options([listener](socket_t socket) {
        *listener = socket;
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    m_http->set_payload_max_length(m_options.maxBodyBytes);
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
        serve(request, response);
    };
    m_http->Get(".*", handler);
    m_http->Post(".*", handler);
    m_http->Delete(".*", handler);
    // Replies that cpp-httplib makes itself (body too large, a method it has no handler for, a request line it
    // cannot read) get a body that says so, and service requests among them a row in the request log.
    m_http->set_error_handler(httplib::Server::HandlerWithResponse([this](const httplib::Request& request,
                                                                     httplib::Response& response) {
        if (!response.body.empty())
            return httplib::Server::HandlerResponse::Unhandled;
        Reply reply = response.status == 413
            ? errorReply(413, "the request body is larger than the limit of " + std::to_string(m_options.maxBodyBytes)
                    + " bytes")
            : Reply { response.status, "text/plain",
                "the request was refused with HTTP status " + std::to_string(response.status) + "\n" };
        if (!std::string_view(request.path).starts_with(adminPrefix))
            record(request, reply.status, reply.body, "");
        send(response, std::move(reply));
        return httplib::Server::HandlerResponse::Handled;
    }));

    constexpr const char* host = "127.0.0.1";
    if (m_options.port == 0)
        m_port = m_http->bind_to_any_port(host);
    else
        m_port = m_http->bind_to_port(host, m_options.port) ? m_options.port : -1;
    if (m_port <= 0)
        throw std::runtime_error("cannot listen on " + std::string(host) + ":" + std::to_string(m_options.port));

    // cpp-httplib listens with a backlog of 5, compiled in: a burst of clients (the REST client's tests put a thousand
    // requests in flight at once) would overflow the accept queue, and the connections dropped from it would wait
    // out their time-outs. Listening again on the bound socket raises the backlog.
    ::listen(*listener, 4096);
    m_listener = std::thread([this] { m_http->listen_after_bind(); });
    // stop() only reaches a server that has started listening.
    while (!m_http->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return m_port;
}

void DevServer::stop()
{
    if (!m_listener.joinable())
        return;
    {
        std::lock_guard lock(m_stopMutex);
        m_stopping = true;
    }
    m_stopped.notify_all();
    m_http->stop();
    m_listener.join();
}

std::string DevServer::baseUrl() const
{
    return "http://127.0.0.1:" + std::to_string(m_port) + std::string(servicePrefix);
}

void DevServer::pause(std::chrono::milliseconds delay)
{
    std::unique_lock lock(m_stopMutex);
    m_stopped.wait_for(lock, delay, [this] { return m_stopping.load(); });
}

void DevServer::serve(const httplib::Request& request, httplib::Response& response)
{
    const std::string_view path = request.path;
    if (path.starts_with(adminPrefix)) {
        try {
            send(response, m_admin.handle(request));
        } catch (const BadRequest& error) {
            send(response, errorReply(400, error.what()));
        } catch (const std::exception& error) {
            send(response, errorReply(500, error.what()));
        }
        return;
    }
    if (request.method == "POST" && path.starts_with(servicePrefix))
        return serveMethod(request, response, path.substr(servicePrefix.size()));

    Reply reply = notFound(path);
    record(request, reply.status, reply.body, "");
    send(response, std::move(reply));
}

void DevServer::serveMethod(const httplib::Request& request, httplib::Response& response, std::string_view methodPath)
{
    const MethodHandler method = findMethod(methodPath);
    if (!method) {
        Reply reply = notFound(request.path);
        record(request, reply.status, reply.body, "");
        return send(response, std::move(reply));
    }

    const auto fault = m_faults.take(methodPath);
    const std::string faultName = fault ? fault->name() : "";
    if (fault && (fault->kind == FaultKind::Drop || fault->kind == FaultKind::Withhold)) {
        const auto connection = ClientConnection::of(request);
        if (connection) {
            // Logged first, so that the row is there by the time the client sees the connection end.
            record(request, 0, "", faultName);
            if (fault->kind == FaultKind::Withhold)
                connection->waitUntilClosedByClient(m_stopping);
            connection->shutDown();
            return;
        }
        Reply reply = errorReply(500, "the connection of this request was not found, so it could not be dropped");
        record(request, reply.status, reply.body, faultName);
        return send(response, std::move(reply));
    }
    if (fault && fault->kind != FaultKind::Delay) {
        Reply reply = faultReply(fault->kind);
        record(request, reply.status, reply.body, faultName);
        return send(response, std::move(reply));
    }
    if (fault)
        pause(fault->delay);

    Reply reply;
    try {
        reply = method(m_store, request);
    } catch (const BadRequest& error) {
        reply = errorReply(400, error.what());
    } catch (const std::exception& error) {
        reply = errorReply(500, error.what());
    }
    record(request, reply.status, reply.body, faultName);
    send(response, std::move(reply));
}

void DevServer::record(const httplib::Request& request, int httpStatus, std::string_view replyBody, std::string_view fault)
{
    const std::string headers = headersAsJson(request);
    const LoggedRequest entry { loggedPath(request), headers, request.body, httpStatus, replyBody, fault };
    try {
        m_store.transaction([&](Tables& tables) { tables.requests.record(entry); });
    } catch (const std::exception&) {
        // A request log that cannot be written must not cost the client its reply.
    }
}

}
