#pragma once

// `korbanhold status`: what the service would find if it ran a pass now, for a person to read. It prints the
// preferences folder; for each domain the service reads, its file and the keys the service uses from it
// ("FileWatcherStatusKey"; "korbanholdPathKey", "computerIdKey", "userIdKey"; the number of "SharedFileDataKey"
// entries; the number of watched-files table entries); the service's socket and whether it is there; and the REST
// server the service talks to.
//
// Exit status: 0; 1 when a domain file is there but not valid (the store's line on stderr says why; everything
// else is still printed).

#include <CLI/CLI.hpp>

namespace korbanhold {

void addStatusCommand(CLI::App& app);

}
