#include "devserver/Store.h"

#include "devserver/Schema.h"

#include <vector>

namespace devserver {

Tables::Tables(sqlite::Database& db)
    : db(db)
    , files(db)
    , requests(db)
{
}

static sqlite::Database& withSchema(sqlite::Database& db)
{
    applySchema(db);
    return db;
}

Store::Store(const std::string& databasePath)
    : m_db(databasePath)
    , m_tables(withSchema(m_db))
{
}

void Store::reset()
{
    transaction([](Tables& tables) {
        std::vector<std::string> names;
        auto list = tables.db.prepare("SELECT name FROM sqlite_schema WHERE type = 'table'");
        while (list.step())
            names.push_back(list.text(0));
        // sqlite_sequence holds the next id of every AUTOINCREMENT table; emptying it restarts them at 1.
        for (const auto& name : names)
            tables.db.execute("DELETE FROM \"" + name + "\"");
    });
}

}
