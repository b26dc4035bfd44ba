#include "devserver/CommandLine.h"

#include "common/ProgramInfo.h"
#include "devserver/Faults.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <filesystem>

namespace devserver {

std::string defaultDatabasePath()
{
    std::filesystem::path state;
    if (const char* stateHome = std::getenv("XDG_STATE_HOME"); stateHome && *stateHome)
        state = stateHome;
    else if (const char* home = std::getenv("HOME"); home && *home)
        state = std::filesystem::path(home) / ".local" / "state";
    else
        state = std::filesystem::temp_directory_path();
    return (state / "korbanhold" / "devserver.sqlite").string();
}

std::optional<CommandLine> parseCommandLine(int argc, char** argv, int& exitCode)
{
    CommandLine commandLine;
    commandLine.server.databasePath.clear();
    std::vector<std::string> faults;

    CLI::App app("korbanhold-devserver: a local reference server of the Korbanhold REST service, on 127.0.0.1",
        "korbanhold-devserver");
    tools::addVersionFlag(app);
    app.add_option("--port", commandLine.server.port, "TCP port on 127.0.0.1 (0 picks a free one)")
        ->default_val(8080)
        ->check(CLI::Range(0, 65535));
    app.add_option("--db", commandLine.server.databasePath,
        "SQLite database file (\":memory:\" for one that ends with the process); default " + defaultDatabasePath());
    app.add_option("--fault", faults,
           "a fault for the next requests, e.g. kind=delay,ms=1500,path=SyncFileChanges.svc/SyncFilesInTableAndCloud,"
           "count=2 (kinds: " + devserver::faultKindNames() + "); repeatable")
        ->take_all();
    app.add_option("--max-body-bytes", commandLine.server.maxBodyBytes, "largest request body accepted")
        ->default_val(commandLine.server.maxBodyBytes)
        ->check(CLI::PositiveNumber);
    app.add_flag("--print-schema", commandLine.printSchema, "print the database schema and exit");

    try {
        app.parse(argc, argv);
        for (const auto& fault : faults)
            commandLine.server.faults.push_back(faultFromText(fault));
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error);
        return std::nullopt;
    } catch (const FaultError& error) {
        exitCode = app.exit(CLI::ValidationError("--fault", error.what()));
        return std::nullopt;
    }
    if (commandLine.server.databasePath.empty()) {
        commandLine.server.databasePath = defaultDatabasePath();
        std::filesystem::create_directories(std::filesystem::path(commandLine.server.databasePath).parent_path());
    }
    return commandLine;
}

}
