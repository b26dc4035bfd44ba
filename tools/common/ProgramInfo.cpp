#include "common/ProgramInfo.h"

#include "common/BuildVersion.h"

namespace tools {

std::string versionText(std::string_view program)
{
    return std::string(program) + " " + std::string(buildVersion) + " (" + std::string(buildCommit) + ")";
}

void addVersionFlag(CLI::App& app)
{
    app.set_version_flag("--version", versionText(app.get_name()), "Print the version and the commit, then exit");
}

}
