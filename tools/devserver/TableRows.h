#pragma once

// Rows of the database as JSON and back, for the admin interface: the table's own columns are the vocabulary, so
// nothing here repeats the schema.

#include "devserver/Sqlite.h"
#include "platform/Value.h"

#include <cstdint>
#include <string_view>

namespace devserver {

// Every row of a query as a JSON object keyed by column name: integers as numbers, NULL as null, text as text, and
// a blob as text when it is UTF-8 (as null otherwise).
platform::Value rowsAsJson(sqlite::Statement& query);

// Inserts a row into `table` from a JSON object keyed by column name (any column but the primary key). A value is
// text, a whole number, or a JSON object or array, which is stored as its JSON text. Throws BadRequest for an
// unknown column, a missing column that has no default, or a value of another kind. Returns the new row's id.
std::int64_t insertRow(sqlite::Database& db, std::string_view table, const platform::Value& row);

}
