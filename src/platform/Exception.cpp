#include "platform/Exception.h"

#include "platform/Log.h"

#include <utility>

namespace platform {

Exception::Exception(std::string name, std::string reason)
    : m_name(std::move(name))
    , m_reason(std::move(reason))
{
}

void Exception::raiseInvalidArgument(std::string reason)
{
    throw Exception("NSInvalidArgumentException", std::move(reason));
}

void Exception::raiseRange(std::string reason)
{
    throw Exception("NSRangeException", std::move(reason));
}

bool guard(const std::function<void()>& body, const std::function<void(const Exception&)>& onException)
{
    try {
        body();
        return true;
    } catch (const Exception& exception) {
        onException(exception);
    } catch (const std::exception& other) {
        // Errors of the C++ library (allocation, filesystem, bad conversions) end the operation the same way.
        onException(Exception("NSGenericException", other.what()));
    }
    return false;
}

void runLoggingUncaught(const std::string& where, const std::function<void()>& body)
{
    try {
        body();
    } catch (const std::exception& exception) {
        log("Uncaught exception in %@: %@", where, exception.what());
    } catch (...) {
        log("Uncaught exception in %@", where);
    }
}

}
