#include "Command.h"

#include "platform/PreferenceJson.h"

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

std::string jsonText(const platform::Value& value, bool pretty)
{
    platform::JsonWriteOptions options;
    options.prettyPrinted = pretty;
    options.allowFragments = true;
    options.escapeSlashes = false;
    return platform::writePreferenceJson(value, options);
}

void printJson(const platform::Value& value) { std::cout << jsonText(value, true) << std::endl; }

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
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::ParseError& error) {
        printError(std::string(error.what()) + " (see --help)");
        return exitUsage;
    } catch (const std::exception& error) {
        printError(error.what());
        return exitFailure;
    }
}

}
