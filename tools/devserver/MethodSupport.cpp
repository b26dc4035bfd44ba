#include "devserver/MethodSupport.h"

namespace devserver {

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
