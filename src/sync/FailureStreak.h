#pragma once

// Counts the passes that ended by the same exception one after the other. A pass that fails the same way three
// times in a row will fail every 2 seconds for ever (a record of the stored table that cannot be read, an item that
// cannot be handled), so from then on the guarded passes work around what makes them fail.

#include <string>

namespace engine {

class FailureStreak {
public:
    static constexpr int limit = 3;

    // A pass ended by an exception described as `reason`; true when this makes `limit` in a row.
    bool failed(const std::string& reason);
    // A pass ran to its end.
    void completed();

private:
    std::string m_reason;
    int m_count = 0;
};

}
