#pragma once

// The folder of what the programs keep between runs that is state rather than configuration (the service's status
// file; the local server's database lives beside it): $KORBANHOLD_STATE_DIR when set and not empty, else
// $XDG_STATE_HOME/korbanhold when XDG_STATE_HOME is an absolute path, else $HOME/.local/state/korbanhold.

#include <filesystem>

namespace platform {

std::filesystem::path stateFolderFor(const char* stateDir, const char* xdgStateHome, const char* home);
// The same rule over this process's environment. Raises platform::Exception when not even HOME is known.
std::filesystem::path stateFolder();

}
