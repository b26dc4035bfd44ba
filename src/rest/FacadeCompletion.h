#pragma once

// What the façade's callers receive, and the completion step that produces it from a transport's outcome.
//
// A façade callback is called once with (object, transport status). With status 0 the object is the response
// record that the operation's decoder made from the reply; with any other status it is what the transport handed
// over, unchanged: an error (statuses 2, 4, 5) or nothing (status 1).

#include "messages/Responses.h"
#include "rest/TransportStatus.h"

#include <functional>
#include <utility>
#include <variant>

namespace rest {

template<typename Record>
using Outcome = std::variant<std::monostate, Record, platform::Error>;

template<typename Record>
using CompletionHandler = std::function<void(const Outcome<Record>& object, TransportStatus status)>;

// The completion step of an operation: with status 0 the reply (the parsed JSON, or nothing for a stream upload
// whose reply was not JSON) goes through `decoder` and the record to `handler`; any other outcome goes to
// `handler` as it came. A decoder that raises ends the step there: `handler` is not called. The reply is let go
// once decoded, so that a large one (a first sync's) is not kept beside its record while `handler` runs.
template<typename Record>
Finished completionStep(Record (*decoder)(const messages::ReplyValue&), CompletionHandler<Record> handler)
{
    return [decoder, handler = std::move(handler)](TransportObject object, TransportStatus status) {
        if (status != TransportSucceeded) {
            if (const auto* error = std::get_if<platform::Error>(&object))
                handler(*error, status);
            else
                handler(std::monostate(), status);
            return;
        }
        auto* reply = std::get_if<platform::Value>(&object);
        Outcome<Record> record = decoder(reply ? messages::ReplyValue(std::move(*reply)) : std::nullopt);
        object = std::monostate();
        handler(record, status);
    };
}

}
