#pragma once

// How the engine fills the text properties of the request records it sends from the values of its records and
// settings, and how it reads a reply's status as a number.

#include "platform/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace engine {

// A text property from a record value: the text of a string; absent for an absent value. A request record holds
// text only, so a value of another kind (the null object, a number) leaves the property absent as well.
std::optional<std::string> wireText(const platform::Value* value);
std::optional<std::string> wireText(const std::optional<platform::Value>& value);

// A local path in the server's form (ServicesUtilities::convertPathToWindows): absent stays absent; the empty
// string raises, as the conversion does; a value that is not a string raises as a string operation sent to it.
std::optional<std::string> serverFormPath(const platform::Value* value);

// The integer a reply value stands for, read as the platform reads a string's or a number's integer value: the
// leading decimal integer of a string after blanks (0 when there is none), a number truncated, 0 for an absent
// value. Any other kind (the null object included) raises.
std::int64_t integerValue(const std::optional<platform::Value>& value);

}
