#include "devserver/TableRows.h"

#include "devserver/Exchange.h"
#include "platform/Json.h"
#include "platform/Utf8.h"

#include <set>
#include <string>

namespace devserver {

using platform::Value;

static Value cellAsJson(const sqlite::Statement& row, int column)
{
    if (row.isNull(column))
        return Value::null();
    if (row.isInteger(column))
        return Value::integer(row.integer(column));
    auto text = row.text(column);
    return platform::isValidUtf8(text) ? Value(std::move(text)) : Value::null();
}

Value rowsAsJson(sqlite::Statement& query)
{
    auto rows = Value::array();
    while (query.step()) {
        auto row = Value::dictionary();
        for (int column = 0; column < query.columnCount(); ++column)
            row.setObject(cellAsJson(query, column), query.columnName(column));
        rows.append(std::move(row));
    }
    query.reset();
    return rows;
}

static std::string cellText(const Value& value, const std::string& column)
{
    if (const auto* text = value.stringIf())
        return *text;
    if (const auto* number = value.numberIf(); number && !number->isFloatingPoint() && !number->isBoolean())
        return number->stringValue();
    if (value.isDictionary() || value.isArray())
        return platform::writeJson(value);
    throw BadRequest("the value of \"" + column + "\" must be text, a whole number, an object or an array");
}

std::int64_t insertRow(sqlite::Database& db, std::string_view table, const Value& row)
{
    if (!row.isDictionary())
        throw BadRequest("the body must be a JSON object keyed by column names");

    std::set<std::string> writable;
    std::set<std::string> required;
    auto columns = db.prepare("SELECT name, \"notnull\", dflt_value IS NULL, pk FROM pragma_table_info(?1)");
    columns.bind(1, table);
    while (columns.step()) {
        if (columns.integer(3) != 0)
            continue;
        writable.insert(columns.text(0));
        if (columns.integer(1) != 0 && columns.integer(2) != 0)
            required.insert(columns.text(0));
    }

    std::string names;
    std::string placeholders;
    for (const auto& [column, value] : row.entries()) {
        if (!writable.contains(column))
            throw BadRequest("\"" + std::string(table) + "\" has no column \"" + column + "\"");
        required.erase(column);
        names += (names.empty() ? "" : ", ") + column;
        placeholders += placeholders.empty() ? "?" : ", ?";
    }
    if (!required.empty())
        throw BadRequest("\"" + *required.begin() + "\" is required");

    auto insert = db.prepare("INSERT INTO " + std::string(table)
        + (names.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + placeholders + ")"));
    int index = 0;
    for (const auto& [column, value] : row.entries())
        insert.bind(++index, cellText(value, column));
    try {
        insert.run();
    } catch (const sqlite::Error& error) {
        throw BadRequest(error.what());
    }
    return db.lastInsertRowid();
}

}
