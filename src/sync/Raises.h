#pragma once

// The exceptions the engine raises where an operation on a plain list or dictionary would raise, with the same
// names and reasons, so that what ends a pass reads the same in the log.

#include "platform/Value.h"

#include <cstddef>
#include <string_view>

namespace engine {

// The index a search returns when it finds nothing.
inline constexpr std::size_t notFound = 0x7fffffffffffffff;

// An absent value inserted into a dictionary under `key`.
[[noreturn]] void raiseMissingValue(std::string_view key);
// A list of `count` elements read at `index`.
[[noreturn]] void raiseIndexBeyondBounds(std::size_t index, std::size_t count);
// A message that `receiver`'s kind does not understand, such as a string comparison sent to the null object.
[[noreturn]] void raiseUnrecognizedSelector(const platform::Value& receiver, std::string_view selector);

}
