#pragma once

// Captures the log messages written while the object lives, instead of writing them to stderr.

#include "platform/Log.h"

#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    // True when some captured line equals `text`.
    bool contains(const std::string& text) const;
    // How many captured lines start with `prefix`.
    std::size_t countStartingWith(const std::string& prefix) const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
    platform::LogSink m_previous;
};

}
