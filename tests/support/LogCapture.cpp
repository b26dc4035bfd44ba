#include "support/LogCapture.h"

#include <algorithm>

namespace testsupport {

LogCapture::LogCapture()
{
    m_previous = platform::setLogSink([this](std::string_view text) {
        std::lock_guard lock(m_mutex);
        m_lines.emplace_back(text);
    });
}

LogCapture::~LogCapture() { platform::setLogSink(std::move(m_previous)); }

std::vector<std::string> LogCapture::lines() const
{
    std::lock_guard lock(m_mutex);
    return m_lines;
}

bool LogCapture::contains(const std::string& text) const
{
    std::lock_guard lock(m_mutex);
    return std::find(m_lines.begin(), m_lines.end(), text) != m_lines.end();
}

std::size_t LogCapture::countStartingWith(const std::string& prefix) const
{
    std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(std::count_if(m_lines.begin(), m_lines.end(),
        [&](const std::string& line) { return line.rfind(prefix, 0) == 0; }));
}

void LogCapture::clear()
{
    std::lock_guard lock(m_mutex);
    m_lines.clear();
}

}
