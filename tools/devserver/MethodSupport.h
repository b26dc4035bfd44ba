#pragma once

// Small pieces shared by the answers of the service's methods.

#include "devserver/Exchange.h"
#include "devserver/Store.h"
#include "messages/Queries.h"
#include "messages/Responses.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace devserver {

using messages::ReplyValue;
using messages::Text;

inline bool isGiven(const Text& text) { return text && !text->empty(); }

// What a request value that the client copies as it stands reads as here: a string as it is, a number as its
// decimal text; absent for anything else (the null object included).
inline Text textOf(const messages::AnyValue& value)
{
    if (!value)
        return std::nullopt;
    if (const std::string* string = value->stringIf())
        return *string;
    if (value->numberIf())
        return value->description();
    return std::nullopt;
}

inline ReplyValue text(std::string_view value) { return platform::Value(value); }
inline ReplyValue text(std::int64_t number) { return platform::Value(std::to_string(number)); }

// Sets the "ReturnStatus" of a reply ("0" for success, "1" for failure, with the reason under "error" where the
// record has one). The records spell the property returnStatus or ReturnStatus.
template<typename Reply>
Reply& setStatus(Reply& reply, bool succeeded, std::string_view failure = {})
{
    if constexpr (requires { reply.returnStatus; })
        reply.returnStatus = text(succeeded ? "0" : "1");
    else
        reply.ReturnStatus = text(succeeded ? "0" : "1");
    if constexpr (requires { reply.error; }) {
        if (!succeeded)
            reply.error = errorValue(failure);
    }
    return reply;
}

template<typename Reply>
Reply statusReply(bool succeeded, std::string_view failure = {})
{
    Reply reply;
    return setStatus(reply, succeeded, failure);
}

// The oldest entry of a computer's queue among those in one of `states` (an SQL list such as "('pending')"), as a
// statement on its row with `columns`: step() tells whether there is one.
sqlite::Statement oldestEntry(Tables& tables, std::string_view table, std::string_view columns,
    std::string_view computerColumn, const Text& computer, std::string_view states);

// Moves the queue entry `id` of `table` (whose key column is `idColumn`) to `state`. False when there is no such
// entry.
bool setState(Tables& tables, std::string_view table, std::string_view idColumn, const Text& id, std::string_view state);

// The reply of a method that moves a queue entry to another state.
template<typename Reply>
Reply stateReply(Tables& tables, std::string_view table, std::string_view idColumn, const Text& id,
    std::string_view state)
{
    return statusReply<Reply>(setState(tables, table, idColumn, id, state),
        "no entry " + id.value_or("") + " in " + std::string(table));
}

}
