#pragma once

// URLConnection: connection-style HTTP requests over platform::http, standing for the framework's URL connection
// of the older systems. Two forms:
// - sendAsynchronousRequest: one request whose completion (response, data, error) runs on the given queue; the
//   legacy transport's way of sending.
// - a connection object that reports to a delegate on the main queue: the response, the whole body at once, then
//   the end of loading, or the failure.
// A connection has no session-level settings: no extra headers, no limit of connections per host, no time limit
// for the whole transfer; the request's own time-out applies.

#include "platform/HttpSession.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace rest {

class URLConnection;

// Every callback is optional; those not overridden do nothing.
class URLConnectionDelegate {
public:
    virtual ~URLConnectionDelegate() = default;
    virtual void didReceiveResponse(URLConnection&, const platform::http::Response&) { }
    virtual void didReceiveData(URLConnection&, const platform::Bytes&) { }
    virtual void didFailWithError(URLConnection&, const platform::Error&) { }
    virtual void connectionDidFinishLoading(URLConnection&) { }
};

class URLConnection : public std::enable_shared_from_this<URLConnection> {
public:
    using AsynchronousCompletion = std::function<void(const std::optional<platform::http::Response>& response,
        const std::optional<platform::Bytes>& data, const std::optional<platform::Error>& error)>;

    static void sendAsynchronousRequest(const platform::http::Request& request, std::shared_ptr<platform::Queue> queue,
        AsynchronousCompletion completionHandler);

    // A connection for `request`, started at once or when start() is called. The connection and its delegate are
    // kept alive while it loads.
    static std::shared_ptr<URLConnection> initWithRequest(
        const platform::http::Request& request, std::shared_ptr<URLConnectionDelegate> delegate, bool startImmediately);
    static std::shared_ptr<URLConnection> initWithRequest(
        const platform::http::Request& request, std::shared_ptr<URLConnectionDelegate> delegate);

    virtual ~URLConnection() = default;
    URLConnection(const URLConnection&) = delete;
    URLConnection& operator=(const URLConnection&) = delete;

    // Starts loading; does nothing to a connection that has started.
    void start();
    // Stops loading without telling the delegate.
    void cancel();

    const platform::http::Request& originalRequest() const { return m_request; }

protected:
    URLConnection(platform::http::Request request, std::shared_ptr<URLConnectionDelegate> delegate);
    // The end of every initialiser: starts the connection when asked to.
    template<typename Connection>
    static std::shared_ptr<Connection> started(std::shared_ptr<Connection> connection, bool startImmediately)
    {
        if (startImmediately)
            connection->start();
        return connection;
    }

private:
    void report(const platform::http::Result& result);

    const platform::http::Request m_request;
    const std::shared_ptr<URLConnectionDelegate> m_delegate;
    std::mutex m_mutex;
    std::shared_ptr<platform::http::Task> m_task;
};

}
