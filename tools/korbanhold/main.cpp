// korbanhold: the command line of the Korbanhold sync service, for people and for the host application.

#include "Command.h"
#include "DefaultsCommand.h"
#include "StatusCommand.h"
#include "SyncCommand.h"
#include "TableCommand.h"

#include "common/ProgramInfo.h"
#include "platform/Log.h"

#include <iostream>

int main(int argc, char** argv)
{
    platform::setProgramName("korbanhold");
    // A command line speaks to a person: log lines (a domain file that is not valid, a write that failed) go to
    // stderr as the command's own messages, without the time stamp of the service's log.
    platform::setLogSink([](std::string_view text) { std::cerr << "korbanhold: " << text << std::endl; });
    CLI::App app("The command line of the Korbanhold sync service.", "korbanhold");
    app.require_subcommand(1);
    tools::addVersionFlag(app);
    korbanhold::addDefaultsCommand(app);
    korbanhold::addSyncCommand(app);
    korbanhold::addTableCommand(app);
    korbanhold::addStatusCommand(app);
    return korbanhold::runCommandLine(app, argc, argv);
}
