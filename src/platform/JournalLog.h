#pragma once

// Log lines straight into the systemd journal, for a service whose stderr is the journal's stream anyway: each
// message becomes one journal entry with a priority, and without the time stamp and program prefix of the stderr
// line, which the journal records by itself. The message texts stay exactly as they are.

#include "platform/Log.h"

#include <string_view>

namespace platform {

// True when stderr is connected to the journal: $JOURNAL_STREAM ("<device>:<inode>", set by systemd for a unit's
// output) names the file that stderr is.
bool stderrIsJournal();

// The priority (LOG_DEBUG to LOG_ERR) a message is written with: the idle poll ("syncFileInTablenCloud: 0") is debug,
// failed requests and passes are errors or warnings, everything else is information.
int journalPriority(std::string_view text);

// A sink that writes each message to the journal with its priority.
LogSink journalSink();

}
