#include "platform/JournalLog.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>
#include <utility>

namespace platform {

bool stderrIsJournal()
{
    const char* stream = std::getenv("JOURNAL_STREAM");
    if (!stream)
        return false;
    unsigned long long device = 0;
    unsigned long long inode = 0;
    if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2)
        return false;
    struct stat status {};
    return ::fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

int journalPriority(std::string_view text)
{
    if (text == "syncFileInTablenCloud: 0")
        return LOG_DEBUG;
    // The lines that say something went wrong, by how they begin.
    static constexpr std::array<std::pair<std::string_view, int>, 7> troubles { {
        { "The service cannot start", LOG_ERR },
        { "Error occured", LOG_ERR },
        { "*** Assertion failure", LOG_ERR },
        { "error code", LOG_WARNING },
        { "The request to ", LOG_WARNING },
        { "network error", LOG_WARNING },
        { "This string contains illegal characters", LOG_WARNING },
    } };
    for (const auto& [beginning, priority] : troubles)
        if (text.starts_with(beginning))
            return priority;
    return LOG_INFO;
}

LogSink journalSink()
{
    return [](std::string_view text) {
        sd_journal_send("MESSAGE=%.*s", static_cast<int>(text.size()), text.data(), "PRIORITY=%i",
            journalPriority(text), nullptr);
    };
}

}
