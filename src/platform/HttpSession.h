#pragma once

// HTTP sessions and tasks, carried out by libcurl's multi interface on one I/O thread shared by the whole process.
//
// A session holds a configuration, a delegate and the queue on which its tasks report. A task is made suspended;
// resume() starts it, and its end (success, failure, time-out or cancel) is reported exactly once: the completion
// handler runs on the session's delegate queue, then the delegate hears of the end in the same queue task. Tasks
// that are never resumed never report. Plain HTTP only.
//
// Each task uses a connection of its own and closes it when it ends, so no descriptor outlives its task: every
// request of the service runs in a session made for it, where a kept-alive connection would never be reused.
//
// The I/O thread starts with the first task and does not survive fork(): a child of a process that has used this
// layer must exec before it sends requests of its own.

#include "platform/Http.h"
#include "platform/HttpErrors.h"
#include "platform/Queue.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <variant>

namespace platform::http {

class Session;
class Task;

// A reply that asks for credentials: 401 with a "WWW-Authenticate" field, or 407 with a "Proxy-Authenticate" one.
struct AuthenticationChallenge {
    // The reply's head.
    Response response;
    bool proxy = false;
};

// The answer to a challenge. Default handling goes on without credentials (none are kept here): the task ends with
// the reply as it came. Cancelling ends it with URLErrorCancelled.
enum class ChallengeDisposition { PerformDefaultHandling, CancelAuthenticationChallenge };
using ChallengeCompletionHandler = std::function<void(ChallengeDisposition disposition)>;

// Told about a session's tasks, on the session's delegate queue.
class SessionDelegate {
public:
    virtual ~SessionDelegate() = default;
    // A task's reply challenged for credentials, and the task waits for the answer given to `completionHandler`. A
    // delegate that never calls it leaves the task waiting until its time-out, when it ends with URLErrorTimedOut.
    // By default the answer is default handling, at once.
    virtual void didReceiveChallenge(Session& session, Task& task, const AuthenticationChallenge& challenge,
        ChallengeCompletionHandler completionHandler);
    // A task has ended, after its completion handler has run; `error` is its error, if any.
    virtual void taskDidComplete(Session& session, Task& task, const std::optional<Error>& error) = 0;
};

class Task : public std::enable_shared_from_this<Task> {
public:
    enum class State { Suspended, Running, Canceling, Completed };
    enum class Kind { Data, Upload, Download };

    // Starts a suspended task; does nothing to a task that was started or has ended.
    void resume();
    // Ends the task with URLErrorCancelled, at once if it was never started, else as soon as the I/O thread
    // stops it. Does nothing to a task that has ended.
    void cancel();

    State state() const;
    std::uint64_t taskIdentifier() const { return m_identifier; }
    // The request as given; its body only until the transfer has ended (then it is released, so that a large body
    // is not kept while the reply is handled).
    const Request& originalRequest() const { return m_request; }
    // The reply's head, once the task has ended after receiving one.
    std::optional<Response> response() const;
    std::string taskDescription() const;
    void setTaskDescription(std::string description);

private:
    friend class Session;
    friend class Transfer;
    friend class Engine;
    // Where an upload's body comes from; data tasks send the request's own body.
    using UploadSource = std::variant<std::monostate, std::filesystem::path, BodyStream>;

    Task(std::shared_ptr<Session> session, Kind kind, Request request, UploadSource uploadSource,
        CompletionHandler completionHandler);
    // Ends the task with `result` unless it has ended already, and posts the report to the delegate queue.
    void finish(Result result);
    // The transfer has ended with `result`; a task that has not timed out by then would time out `waitLimit` later.
    // A reply that challenges for credentials first goes to the delegate, and the task ends when it answers or when
    // the wait limit has passed; any other result ends the task at once.
    void transferEnded(Result result, std::chrono::nanoseconds waitLimit);
    bool awaitingChallenge() const;

    const std::shared_ptr<Session> m_session;
    const Kind m_kind;
    const std::uint64_t m_identifier;
    // Changed once, by the I/O thread: the body is released when the transfer that sent it has ended.
    Request m_request;
    const UploadSource m_uploadSource;

    mutable std::mutex m_mutex;
    State m_state { State::Suspended };
    std::optional<Response> m_response;
    // Set while the delegate has a challenge of this task to answer; cancel() then ends the task itself.
    bool m_awaitingChallenge = false;
    std::string m_taskDescription;
    CompletionHandler m_completionHandler;
};

class Session : public std::enable_shared_from_this<Session> {
public:
    // The session keeps only a weak reference to its delegate: whoever made the session keeps the delegate alive
    // (typically through the completion handlers it gives its tasks, which live until the delegate has been told).
    // A null delegate queue gets a serial queue of the session's own.
    static std::shared_ptr<Session> make(Configuration configuration, std::weak_ptr<SessionDelegate> delegate,
        std::shared_ptr<Queue> delegateQueue);

    const Configuration& configuration() const { return m_configuration; }
    const std::shared_ptr<Queue>& delegateQueue() const { return m_delegateQueue; }

    // The request's body is sent as it is; the reply body arrives in Result::data.
    std::shared_ptr<Task> dataTask(Request request, CompletionHandler completionHandler);
    // The body is read from `fromFile` while the request is sent; a file that cannot be opened ends the task with
    // URLErrorFileDoesNotExist before anything is sent.
    std::shared_ptr<Task> uploadTask(Request request, std::filesystem::path fromFile,
        CompletionHandler completionHandler);
    // The body is pulled from `stream` on the I/O thread and sent in chunks.
    std::shared_ptr<Task> uploadTask(Request request, BodyStream stream, CompletionHandler completionHandler);
    // A GET of `url` whose reply body is written to a temporary file (Result::location).
    std::shared_ptr<Task> downloadTask(std::string url, CompletionHandler completionHandler);

private:
    friend class Task;
    Session(Configuration configuration, std::weak_ptr<SessionDelegate> delegate,
        std::shared_ptr<Queue> delegateQueue);
    std::shared_ptr<Task> makeTask(Task::Kind kind, Request request, Task::UploadSource uploadSource,
        CompletionHandler completionHandler);

    const Configuration m_configuration;
    const std::weak_ptr<SessionDelegate> m_delegate;
    const std::shared_ptr<Queue> m_delegateQueue;
};

namespace testhooks {

// Consulted when a task starts: an error it returns ends the task with that error, as if the transfer had failed,
// without any network traffic. An empty function (the default) lets every task through.
using ErrorInjector = std::function<std::optional<Error>(const Request& request)>;
void setErrorInjector(ErrorInjector injector);

// How many transfers the I/O thread holds (running or waiting for a connection slot), and the most it has held
// at once since the last reset.
struct TransferCounts {
    std::size_t current = 0;
    std::size_t peak = 0;
};
TransferCounts transferCounts();
void resetPeakTransferCount();

}

}
