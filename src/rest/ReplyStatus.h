#pragma once

// The HTTP status of the reply whose completion runs on the calling thread.
//
// The JSON transports hand their completions the parsed body and a transport status only, and a JSON body counts as
// a success whatever its HTTP status, so a completion cannot tell a JSON error page sent with status 500 from an
// answer. A caller that must (the batch report, when it checks the server's replies) asks here from inside its
// completion: the transports set the status for exactly the duration of the completion call.

#include <optional>

namespace rest {

// The reply's HTTP status while a JSON transport's completion runs on this thread; absent elsewhere, and when no
// reply head arrived.
std::optional<long> httpStatusOfReplyInCompletion();

// Sets the status for the lifetime of the scope, on this thread.
class ReplyStatusScope {
public:
    explicit ReplyStatusScope(std::optional<long> statusCode);
    ~ReplyStatusScope();
    ReplyStatusScope(const ReplyStatusScope&) = delete;
    ReplyStatusScope& operator=(const ReplyStatusScope&) = delete;

private:
    std::optional<long> m_outer;
};

}
