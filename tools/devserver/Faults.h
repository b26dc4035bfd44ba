#pragma once

// Scripted faults: what the server does instead of (or before) answering the next K requests of a method path.
// A fault is written as a JSON object {"kind": ..., "path": ..., "count": ..., "ms": ...} on the admin interface
// and as the same fields "kind=...,path=...,count=...,ms=..." on the command line.

#include "platform/Value.h"

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace devserver {

enum class FaultKind {
    ErrorJson, // HTTP 500 with a JSON body
    ErrorHtml, // HTTP 500 with an HTML body
    UnavailableJson, // HTTP 503 with a JSON body
    NotJson, // HTTP 200 with a body that is not JSON
    Delay, // the normal reply, after a delay
    Drop, // the connection is closed without a reply
    Withhold, // no reply until the client gives up and closes the connection
};

// The path that makes a fault apply to every method.
inline constexpr std::string_view everyMethod = "*";

struct Fault {
    FaultKind kind = FaultKind::ErrorJson;
    // A method path below the service's base path, as the client names it, or "*".
    std::string path { everyMethod };
    // How many of the next requests of that path get the fault.
    int count = 1;
    std::chrono::milliseconds delay { 0 };

    // The kind's name, as written in scripts and in the request log ("delay" with its milliseconds: "delay:1500").
    std::string name() const;
    platform::Value toValue() const;
};

class FaultError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

// The names of the kinds, comma-separated, for help texts and error messages.
std::string faultKindNames();

// Reads a fault from its JSON object or its command-line text. Throws FaultError with the reason when the
// description is wrong (unknown kind or field, a count below 1, a delay without its milliseconds).
Fault faultFromValue(const platform::Value& description);
Fault faultFromText(std::string_view description);

// The faults still to apply, in the order they were added. Safe to use from every request thread.
class FaultScript {
public:
    void add(Fault fault);
    // The first fault that applies to a request of `methodPath`, counted as used.
    std::optional<Fault> take(std::string_view methodPath);
    std::vector<Fault> pending() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::deque<Fault> m_faults;
};

}
