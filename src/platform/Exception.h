#pragma once

// The exception raised wherever a framework operation of the original platform would raise (a missing value
// inserted into a collection, an index out of range, a string operation on the null object, a malformed record),
// and caught once at the level of a whole operation such as a sync pass.

#include <exception>
#include <functional>
#include <string>

namespace platform {

class Exception : public std::exception {
public:
    Exception(std::string name, std::string reason);

    // The exception's kind, e.g. "NSInvalidArgumentException" or "NSRangeException".
    const std::string& name() const { return m_name; }
    // The human-readable reason; this is also what a "%@" of the exception prints.
    const std::string& reason() const { return m_reason; }
    const char* what() const noexcept override { return m_reason.c_str(); }

    [[noreturn]] static void raiseInvalidArgument(std::string reason);
    [[noreturn]] static void raiseRange(std::string reason);

private:
    std::string m_name;
    std::string m_reason;
};

// Runs `body`; a platform::Exception (or any std::exception) that escapes it is handed to `onException` instead of
// propagating. Returns true when the body ran to its end.
bool guard(const std::function<void()>& body, const std::function<void(const Exception&)>& onException);

// Runs `body`; any exception that escapes it ends there, logged as "Uncaught exception in <where>: <reason>". For
// code that must go on whatever the code it calls does (a queue's next task, the rest of a report).
void runLoggingUncaught(const std::string& where, const std::function<void()>& body);

}
