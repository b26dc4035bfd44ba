#include "TableCommand.h"

#include "Command.h"
#include "DomainFiles.h"

#include "service/SyncFilesXpcServiceProtocol.h"
#include "sync/RecordKeys.h"

#include <iostream>

namespace korbanhold {

namespace {

void printTable()
{
    auto store = preferencesStore();
    const DomainFile file = readDomainFile(store, service::syncServiceName);
    if (file.notValid())
        failCommand(exitFailure, "The watched-files table cannot be read: " + file.path.string() + " is not valid");
    const platform::Value* table = file.find(engine::settings::fileWatchedData);
    if (table && !table->isArray())
        failCommand(exitFailure,
            std::string(engine::settings::fileWatchedData) + " in " + file.path.string() + " is not a list");
    // The pretty form of an empty list spreads over lines; a person reads "[]" better.
    if (!table || table->count() == 0)
        std::cout << "[]" << std::endl;
    else
        printJson(*table);
}

}

void addTableCommand(CLI::App& app)
{
    app.add_subcommand("table", "Print the service's watched-files table as JSON")->callback(printTable);
}

}
