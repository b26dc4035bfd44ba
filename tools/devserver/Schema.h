#pragma once

// The server's database schema: the SQL text (printed by `korbanhold-devserver --print-schema` and quoted in
// docs/devserver.md) and the step that brings a database file up to it.

#include "devserver/Sqlite.h"

#include <string_view>

namespace devserver {

// Every table, index and setting, as statements that may run again on an existing database.
std::string_view schemaSql();

// Sets WAL mode and creates what is missing. Refuses a database written by another schema version.
void applySchema(sqlite::Database& db);

}
