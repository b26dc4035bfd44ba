#pragma once

// What every program of the project says about itself with --version: its name, the project's version and the
// commit it was built from (or that it was built outside a git checkout).

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>

namespace tools {

// "<program> <version> (commit <hash>)", one line.
std::string versionText(std::string_view program);

// Adds --version to `app`: it prints versionText(app's name) on stdout and ends the program with status 0, before
// anything else on the command line is checked. Pass the ParseError to app.exit(), as for --help.
void addVersionFlag(CLI::App& app);

}
