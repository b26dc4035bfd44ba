#include "support/ScopedEnvironment.h"

#include <cstdlib>

namespace testsupport {

static void apply(const std::string& name, const std::optional<std::string>& value)
{
    if (value)
        setenv(name.c_str(), value->c_str(), 1);
    else
        unsetenv(name.c_str());
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string>& value)
    : m_name(std::move(name))
{
    if (const char* previous = std::getenv(m_name.c_str()))
        m_previous = previous;
    apply(m_name, value);
}

ScopedEnvironment::~ScopedEnvironment() { apply(m_name, m_previous); }

}
