#pragma once

// `korbanhold table`: prints the service's watched-files table, "FileWatchedDataKey" of its standard defaults (the
// domain "Ulmaridon.SyncFilesXpcService"), as pretty JSON; `[]` when it is empty or not stored yet.
//
// Exit status: 0 when the table is printed; 1 when the domain file is not valid (the store's line on stderr says
// why) or the key holds something other than a list.

#include <CLI/CLI.hpp>

namespace korbanhold {

void addTableCommand(CLI::App& app);

}
