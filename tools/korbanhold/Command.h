#pragma once

// What every `korbanhold` subcommand shares: its exit statuses, how it fails, and how the command line is run.
//
// A subcommand lives in its own file pair, XxxCommand.{h,cpp}, exposing `void addXxxCommand(CLI::App& app)`, which
// adds the subcommand and sets a callback doing the work; main.cpp calls each of them.

#include "platform/Value.h"

#include <CLI/CLI.hpp>

#include <string>

namespace korbanhold {

enum ExitStatus : int {
    exitSuccess = 0,
    // The domain or key asked for does not exist, or the operation failed.
    exitFailure = 1,
    // The arguments were wrong: unknown or missing ones, text that is not JSON, a domain name that cannot be one.
    exitUsage = 2,
};

// Ends the running subcommand: writes "korbanhold: <message>" as one line on stderr and makes runCommandLine return
// `status`.
[[noreturn]] void failCommand(ExitStatus status, const std::string& message);

// `value` as JSON in the form of domain files (any value, slashes not escaped), pretty or on one line.
std::string jsonText(const platform::Value& value, bool pretty);
// Prints `value` on stdout as pretty JSON, then a newline.
void printJson(const platform::Value& value);

// Parses the arguments and runs the chosen subcommand. Returns the exit status: 0, the status of failCommand, 2 for
// arguments that do not parse (with one line on stderr), 1 for any other error. --help prints the help and --version the version line, and returns 0.
int runCommandLine(CLI::App& app, int argc, char** argv);

}
