#pragma once

// How the engine fills the properties of the request records it sends from the values of its records and settings,
// and how it reads a reply's status as a number.

#include "platform/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace engine {

// A request property from a record value, copied as it stands: absent for an absent value, and otherwise the value
// of whatever kind it is, so that a number travels as a JSON number and the null object as JSON null.
std::optional<platform::Value> copiedValue(const platform::Value* value);

// A local path in the server's form (ServicesUtilities::convertPathToWindows): absent stays absent; the empty
// string raises, as the conversion does; a value that is not a string raises as a string operation sent to it.
std::optional<std::string> serverFormPath(const platform::Value* value);

// The integer a reply value stands for, read as the platform reads a string's or a number's integer value: the
// leading decimal integer of a string after blanks (0 when there is none), a number truncated, 0 for an absent
// value. Any other kind (the null object included) raises.
std::int64_t integerValue(const std::optional<platform::Value>& value);

}
