#include "Command.h"

#include <iostream>

namespace korbanhold {

namespace {

void printError(const std::string& message) { std::cerr << "korbanhold: " << message << std::endl; }

}

void failCommand(ExitStatus status, const std::string& message)
{
    printError(message);
    // CLI11's own way of ending a callback with an exit status; runCommandLine turns it into the return value.
    throw CLI::RuntimeError(status);
}

int runCommandLine(CLI::App& app, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
        return exitSuccess;
    } catch (const CLI::RuntimeError& failure) {
        return failure.get_exit_code();
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        printError(std::string(error.what()) + " (see --help)");
        return exitUsage;
    } catch (const std::exception& error) {
        printError(error.what());
        return exitFailure;
    }
}

}
