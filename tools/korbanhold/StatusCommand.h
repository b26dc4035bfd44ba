#pragma once

// `korbanhold status`: what the service would find if it ran a pass now, and what it did last, for a person to read
// (or with --json as one JSON object, for scripts). It prints the preferences folder; for each domain the service
// reads, its file and the keys the service uses from it ("FileWatcherStatusKey"; "korbanholdPathKey",
// "computerIdKey", "userIdKey"; the number of "SharedFileDataKey" entries; the number of watched-files table
// entries); the service's socket and whether the service answers on it (a connection is tried: under systemd
// socket activation that starts the service); the REST server the service talks to; the synced folder
// ("<korbanholdPathKey>/Korbanhold") and whether it is there; and from the service's status file
// (sync/ServiceStatus.h) the last pass, the last stored report, the last failed report with its error and URL, and
// the names the folder walk skipped for illegal characters.
//
// Exit status: 0; 1 when a domain file is there but not valid (the store's line on stderr says why), or when
// KORBANHOLD_SERVER is not a server address (the Server line says why); everything else is still printed.

#include <CLI/CLI.hpp>

namespace korbanhold {

void addStatusCommand(CLI::App& app);

}
