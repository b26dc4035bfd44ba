#pragma once

// `korbanhold defaults`: reads and writes the preference domains that the service, the host application and the
// file watcher share, shaped like the macOS `defaults` tool. Values are printed and given in the JSON form of
// domain files (docs/preferences.md); the preferences folder is the one every program of the product uses.
//
//   korbanhold defaults domains                          the domain names, one per line
//   korbanhold defaults read DOMAIN [KEY]                the domain, or the value of KEY, as pretty JSON
//   korbanhold defaults write DOMAIN KEY VALUE           sets KEY to the string VALUE
//   korbanhold defaults write DOMAIN KEY --json VALUE    sets KEY to the JSON value VALUE
//   korbanhold defaults write DOMAIN --json DICTIONARY   replaces the whole domain
//   korbanhold defaults delete DOMAIN [KEY]              removes the domain, or KEY from it
//   korbanhold defaults import DOMAIN FILE|-             replaces the domain by the JSON dictionary in FILE (- for
//                                                        standard input)
//   korbanhold defaults export DOMAIN                    prints the domain as pretty JSON, as import reads it
//
// Exit status: 0 on success, 1 when the domain or key does not exist (or a write failed), 2 on a usage error.

#include <CLI/CLI.hpp>

namespace korbanhold {

void addDefaultsCommand(CLI::App& app);

}
