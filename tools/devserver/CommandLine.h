#pragma once

// The command line of korbanhold-devserver.

#include "devserver/DevServer.h"

#include <optional>
#include <string>

namespace devserver {

struct CommandLine {
    DevServerOptions server;
    bool printSchema = false;
};

// $XDG_STATE_HOME/korbanhold/devserver.sqlite, with $HOME/.local/state standing in for an unset $XDG_STATE_HOME.
std::string defaultDatabasePath();

// Reads the arguments. Gives back nothing when the program should end at once with `exitCode`: after --help, or
// after a wrong argument, which has been reported on stderr.
std::optional<CommandLine> parseCommandLine(int argc, char** argv, int& exitCode);

}
