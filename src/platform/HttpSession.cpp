#include "platform/HttpSession.h"

#include "platform/HttpEngine.h"
#include "platform/Log.h"

#include <atomic>

namespace platform::http {

namespace {

std::atomic<std::uint64_t> nextTaskIdentifier { 1 };

struct InjectorSlot {
    std::mutex mutex;
    testhooks::ErrorInjector injector;
};

InjectorSlot& injectorSlot()
{
    static InjectorSlot slot;
    return slot;
}

std::optional<Error> injectedError(const Request& request)
{
    auto& slot = injectorSlot();
    std::lock_guard lock(slot.mutex);
    if (!slot.injector)
        return std::nullopt;
    return slot.injector(request);
}

}

Task::Task(std::shared_ptr<Session> session, Kind kind, Request request, UploadSource uploadSource,
    CompletionHandler completionHandler)
    : m_session(std::move(session))
    , m_kind(kind)
    , m_identifier(nextTaskIdentifier++)
    , m_request(std::move(request))
    , m_uploadSource(std::move(uploadSource))
    , m_completionHandler(std::move(completionHandler))
{
}

void Task::resume()
{
    {
        std::lock_guard lock(m_mutex);
        if (m_state != State::Suspended)
            return;
        m_state = State::Running;
    }
    if (auto error = injectedError(m_request)) {
        finish(Result::failure(std::move(*error)));
        return;
    }
    Engine::shared().start(shared_from_this());
}

void Task::cancel()
{
    State previous;
    {
        std::lock_guard lock(m_mutex);
        previous = m_state;
        if (m_state == State::Running)
            m_state = State::Canceling;
    }
    if (previous == State::Suspended || (previous == State::Running && awaitingChallenge()))
        finish(Result::failure(urlError(URLErrorCancelled)));
    else if (previous == State::Running)
        Engine::shared().cancel(shared_from_this());
}

Task::State Task::state() const
{
    std::lock_guard lock(m_mutex);
    return m_state;
}

std::optional<Response> Task::response() const
{
    std::lock_guard lock(m_mutex);
    return m_response;
}

std::string Task::taskDescription() const
{
    std::lock_guard lock(m_mutex);
    return m_taskDescription;
}

void Task::setTaskDescription(std::string description)
{
    std::lock_guard lock(m_mutex);
    m_taskDescription = std::move(description);
}

namespace {

    std::optional<AuthenticationChallenge> challengeIn(const Result& result)
    {
        if (result.error || !result.response)
            return std::nullopt;
        const Response& response = *result.response;
        if (response.statusCode == 401 && findHeader(response.allHeaderFields, "WWW-Authenticate"))
            return AuthenticationChallenge { response, false };
        if (response.statusCode == 407 && findHeader(response.allHeaderFields, "Proxy-Authenticate"))
            return AuthenticationChallenge { response, true };
        return std::nullopt;
    }

}

void SessionDelegate::didReceiveChallenge(
    Session&, Task&, const AuthenticationChallenge&, ChallengeCompletionHandler completionHandler)
{
    completionHandler(ChallengeDisposition::PerformDefaultHandling);
}

bool Task::awaitingChallenge() const
{
    std::lock_guard lock(m_mutex);
    return m_awaitingChallenge;
}

void Task::transferEnded(Result result, std::chrono::nanoseconds waitLimit)
{
    // The transfer that read the body is gone; a first sync's request body would otherwise live as long as its
    // reply is handled.
    std::string().swap(m_request.httpBody);
    auto challenge = challengeIn(result);
    auto delegate = m_session->m_delegate.lock();
    if (!challenge || !delegate) {
        finish(std::move(result));
        return;
    }
    {
        std::lock_guard lock(m_mutex);
        m_awaitingChallenge = true;
    }
    auto self = shared_from_this();
    // Whichever comes first ends the task: the delegate's answer, the time-out, or cancel().
    Queue::globalBackground()->after(waitLimit, [self] { self->finish(Result::failure(urlError(URLErrorTimedOut))); });
    m_session->m_delegateQueue->async([self, delegate = std::move(delegate), challenge = std::move(*challenge),
                                          result = std::move(result)]() mutable {
        auto answer = [self, result = std::move(result)](ChallengeDisposition disposition) {
            self->finish(disposition == ChallengeDisposition::CancelAuthenticationChallenge
                    ? Result::failure(urlError(URLErrorCancelled))
                    : result);
        };
        runLoggingUncaught(format("the challenge report of HTTP task %@", self->taskIdentifier()),
            [&] { delegate->didReceiveChallenge(*self->m_session, *self, challenge, std::move(answer)); });
    });
}

void Task::finish(Result result)
{
    CompletionHandler handler;
    {
        std::lock_guard lock(m_mutex);
        if (m_state == State::Completed)
            return;
        m_state = State::Completed;
        m_response = result.response;
        handler = std::move(m_completionHandler);
    }
    // The handler travels with the report and is released after the delegate has been told, so that whatever it
    // holds (the delegate itself, often) lives until then. Each step of the report runs whatever the one before it
    // raised: a handler that raises still leaves the delegate its report and no downloaded file behind.
    m_session->m_delegateQueue->async(
        [task = shared_from_this(), handler = std::move(handler), result = std::move(result)] {
            const std::string taskName = format("HTTP task %@", task->taskIdentifier());
            if (handler)
                runLoggingUncaught("the completion handler of " + taskName, [&] { handler(result); });
            if (auto delegate = task->m_session->m_delegate.lock()) {
                runLoggingUncaught("the delegate report of " + taskName, [&] {
                    delegate->taskDidComplete(*task->m_session, *task, result.error);
                });
            }
            if (result.location) {
                std::error_code ignored;
                std::filesystem::remove(*result.location, ignored);
            }
        });
}

Session::Session(Configuration configuration, std::weak_ptr<SessionDelegate> delegate,
    std::shared_ptr<Queue> delegateQueue)
    : m_configuration(std::move(configuration))
    , m_delegate(std::move(delegate))
    , m_delegateQueue(delegateQueue ? std::move(delegateQueue) : Queue::makeSerial("platform.http.session"))
{
}

std::shared_ptr<Session> Session::make(Configuration configuration, std::weak_ptr<SessionDelegate> delegate,
    std::shared_ptr<Queue> delegateQueue)
{
    return std::shared_ptr<Session>(new Session(std::move(configuration), std::move(delegate),
        std::move(delegateQueue)));
}

std::shared_ptr<Task> Session::makeTask(Task::Kind kind, Request request, Task::UploadSource uploadSource,
    CompletionHandler completionHandler)
{
    return std::shared_ptr<Task>(new Task(shared_from_this(), kind, std::move(request), std::move(uploadSource),
        std::move(completionHandler)));
}

std::shared_ptr<Task> Session::dataTask(Request request, CompletionHandler completionHandler)
{
    return makeTask(Task::Kind::Data, std::move(request), {}, std::move(completionHandler));
}

std::shared_ptr<Task> Session::uploadTask(Request request, std::filesystem::path fromFile,
    CompletionHandler completionHandler)
{
    return makeTask(Task::Kind::Upload, std::move(request), std::move(fromFile), std::move(completionHandler));
}

std::shared_ptr<Task> Session::uploadTask(Request request, BodyStream stream, CompletionHandler completionHandler)
{
    return makeTask(Task::Kind::Upload, std::move(request), std::move(stream), std::move(completionHandler));
}

std::shared_ptr<Task> Session::downloadTask(std::string url, CompletionHandler completionHandler)
{
    Request request;
    request.url = std::move(url);
    request.timeoutInterval = m_configuration.timeoutIntervalForRequest;
    return makeTask(Task::Kind::Download, std::move(request), {}, std::move(completionHandler));
}

namespace testhooks {

void setErrorInjector(ErrorInjector injector)
{
    auto& slot = injectorSlot();
    std::lock_guard lock(slot.mutex);
    slot.injector = std::move(injector);
}

TransferCounts transferCounts()
{
    return Engine::shared().transferCounts();
}

void resetPeakTransferCount()
{
    Engine::shared().resetPeakTransferCount();
}

}

}
