#include "rest/URLConnection.h"

#include <limits>

namespace rest {

using namespace platform::http;

namespace {

std::shared_ptr<Session> connectionSession(const Request& request, std::shared_ptr<platform::Queue> queue)
{
    Configuration configuration = Configuration::defaultConfiguration();
    configuration.timeoutIntervalForRequest = request.timeoutInterval;
    configuration.httpMaximumConnectionsPerHost = std::numeric_limits<std::size_t>::max();
    return Session::make(std::move(configuration), {}, std::move(queue));
}

}

void URLConnection::sendAsynchronousRequest(
    const Request& request, std::shared_ptr<platform::Queue> queue, AsynchronousCompletion completionHandler)
{
    connectionSession(request, std::move(queue))
        ->dataTask(request,
            [completionHandler = std::move(completionHandler)](
                const Result& result) { completionHandler(result.response, result.data, result.error); })
        ->resume();
}

URLConnection::URLConnection(Request request, std::shared_ptr<URLConnectionDelegate> delegate)
    : m_request(std::move(request))
    , m_delegate(std::move(delegate))
{
}

std::shared_ptr<URLConnection> URLConnection::initWithRequest(
    const Request& request, std::shared_ptr<URLConnectionDelegate> delegate, bool startImmediately)
{
    return started(std::shared_ptr<URLConnection>(new URLConnection(request, std::move(delegate))), startImmediately);
}

std::shared_ptr<URLConnection> URLConnection::initWithRequest(
    const Request& request, std::shared_ptr<URLConnectionDelegate> delegate)
{
    return initWithRequest(request, std::move(delegate), true);
}

void URLConnection::start()
{
    std::shared_ptr<Task> task;
    {
        std::lock_guard lock(m_mutex);
        if (m_task)
            return;
        // The task's completion holds the connection (and so its delegate) until it has reported.
        m_task = connectionSession(m_request, platform::Queue::main())
                     ->dataTask(m_request, [self = shared_from_this()](const Result& result) { self->report(result); });
        task = m_task;
    }
    task->resume();
}

void URLConnection::cancel()
{
    std::shared_ptr<Task> task;
    {
        std::lock_guard lock(m_mutex);
        task = m_task;
    }
    if (task)
        task->cancel();
}

void URLConnection::report(const Result& result)
{
    if (!m_delegate)
        return;
    // A cancelled connection says nothing more.
    if (result.error && result.error->code == URLErrorCancelled)
        return;
    if (result.error) {
        m_delegate->didFailWithError(*this, *result.error);
        return;
    }
    m_delegate->didReceiveResponse(*this, *result.response);
    m_delegate->didReceiveData(*this, result.data.value_or(platform::Bytes()));
    m_delegate->connectionDidFinishLoading(*this);
}

}
