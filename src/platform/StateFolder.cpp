#include "platform/StateFolder.h"

#include "platform/Exception.h"

#include <cstdlib>

namespace platform {

namespace {

bool isSet(const char* value) { return value && *value; }

}

std::filesystem::path stateFolderFor(const char* stateDir, const char* xdgStateHome, const char* home)
{
    if (isSet(stateDir))
        return stateDir;
    // The XDG rules ignore a relative XDG_STATE_HOME.
    if (isSet(xdgStateHome) && xdgStateHome[0] == '/')
        return std::filesystem::path(xdgStateHome) / "korbanhold";
    if (isSet(home))
        return std::filesystem::path(home) / ".local" / "state" / "korbanhold";
    Exception::raiseInvalidArgument("No state folder: neither KORBANHOLD_STATE_DIR, XDG_STATE_HOME nor HOME is set");
}

std::filesystem::path stateFolder()
{
    return stateFolderFor(std::getenv("KORBANHOLD_STATE_DIR"), std::getenv("XDG_STATE_HOME"), std::getenv("HOME"));
}

}
