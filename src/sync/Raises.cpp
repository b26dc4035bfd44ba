#include "sync/Raises.h"

#include <optional>
#include <string>

namespace engine {

void raiseMissingValue(std::string_view key)
{
    platform::Value::dictionary().setObject(std::optional<platform::Value>(), key);
    throw platform::Exception("NSInvalidArgumentException", "absent value for " + std::string(key));
}

void raiseIndexBeyondBounds(std::size_t index, std::size_t count)
{
    std::string bounds = count == 0 ? "for empty array" : "[0 .. " + std::to_string(count - 1) + "]";
    platform::Exception::raiseRange(
        "*** -[__NSArrayM objectAtIndex:]: index " + std::to_string(index) + " beyond bounds " + bounds);
}

void raiseUnrecognizedSelector(const platform::Value& receiver, std::string_view selector)
{
    platform::Exception::raiseInvalidArgument(
        "-[" + std::string(receiver.className()) + " " + std::string(selector) + "]: unrecognized selector sent to instance");
}

}
