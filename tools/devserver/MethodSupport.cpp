#include "devserver/MethodSupport.h"

namespace devserver {

sqlite::Statement oldestEntry(Tables& tables, std::string_view table, std::string_view columns,
    std::string_view computerColumn, const Text& computer, std::string_view states)
{
    // Every queue's id is its rowid, so the oldest entry is the one with the smallest rowid.
    auto query = tables.db.prepare("SELECT " + std::string(columns) + " FROM " + std::string(table) + " WHERE "
        + std::string(computerColumn) + " = ?1 AND state IN " + std::string(states) + " ORDER BY rowid LIMIT 1");
    query.bindAll(computer.value_or(""));
    return query;
}

bool setState(Tables& tables, std::string_view table, std::string_view idColumn, const Text& id, std::string_view state)
{
    if (!isGiven(id))
        return false;
    auto update = tables.db.prepare("UPDATE " + std::string(table) + " SET state = ?1, updated = "
        + "strftime('%Y-%m-%dT%H:%M:%fZ', 'now') WHERE " + std::string(idColumn) + " = ?2");
    update.bindAll(state, *id).run();
    return tables.db.changes() > 0;
}

}
