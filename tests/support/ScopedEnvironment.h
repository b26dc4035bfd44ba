#pragma once

// Sets (or unsets) an environment variable for the object's lifetime and restores the earlier state afterwards.
// Tests that change TZ or KORBANHOLD_APPKIT_VERSION use it, so that no test leaks its setting into the next.

#include <optional>
#include <string>

namespace testsupport {

class ScopedEnvironment {
public:
    // Absent `value` unsets the variable.
    ScopedEnvironment(std::string name, const std::optional<std::string>& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_previous;
};

}
