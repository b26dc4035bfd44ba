#include "devserver/AdminInterface.h"

#include "devserver/TableRows.h"
#include "platform/Json.h"

#include <httplib.h>

#include <algorithm>
#include <array>

namespace devserver {

using platform::Value;

namespace {

// The tables the admin interface shows under /devserver/<route>, and those it also fills by a POST there.
struct TableRoute {
    std::string_view route;
    std::string_view table;
    std::string_view order;
    bool fillable;
};

constexpr std::array<TableRoute, 10> tableRoutes { {
    { "users", "users", "user_id", false },
    { "computers", "computers", "computer_id", false },
    { "uploads", "uploads", "file_upload_id", true },
    { "downloads", "downloads", "file_request_id", true },
    { "delete-requests", "delete_requests", "delete_request_id", true },
    { "shared-files", "shared_files", "shared_file_id", true },
    { "shared-transfers", "shared_transfers", "shared_file_transfer_id", true },
    { "shared-changes", "shared_changes", "id", false },
    { "streams", "received_streams", "id", false },
    { "errors", "error_log", "id", false },
} };

const TableRoute* findTableRoute(std::string_view route)
{
    const auto* found = std::find_if(
        tableRoutes.begin(), tableRoutes.end(), [&](const TableRoute& entry) { return entry.route == route; });
    return found == tableRoutes.end() ? nullptr : found;
}

// The id in "streams/<id>/content", or nothing.
std::string_view streamIdOf(std::string_view route)
{
    constexpr std::string_view prefix = "streams/";
    constexpr std::string_view suffix = "/content";
    if (route.size() <= prefix.size() + suffix.size() || !route.starts_with(prefix) || !route.ends_with(suffix))
        return {};
    return route.substr(prefix.size(), route.size() - prefix.size() - suffix.size());
}

Reply notFound(std::string_view path) { return errorReply(404, "no admin route " + std::string(path)); }

Value faultList(const std::vector<Fault>& faults)
{
    auto list = Value::array();
    for (const auto& fault : faults)
        list.append(fault.toValue());
    return list;
}

}

AdminInterface::AdminInterface(Store& store, FaultScript& faults)
    : m_store(store)
    , m_faults(faults)
{
}

Reply AdminInterface::handle(const httplib::Request& request)
{
    const std::string_view route = std::string_view(request.path).substr(adminPrefix.size());
    const bool isGet = request.method == "GET";
    const bool isPost = request.method == "POST";

    if (route == "faults")
        return faults(request);
    if (route == "reset" && isPost) {
        m_store.reset();
        m_faults.clear();
        return jsonReply(Value::dictionary({ { "reset", Value::boolean(true) } }));
    }
    if (route == "files" && isGet)
        return listFiles(request);
    if (route == "requests" && isGet)
        return listRequests(request);
    if (const auto id = streamIdOf(route); !id.empty() && isGet)
        return streamContent(id);

    const auto* table = findTableRoute(route);
    if (table && isGet) {
        return jsonReply(m_store.transaction([&](Tables& tables) {
            auto query = tables.db.prepare(
                "SELECT * FROM " + std::string(table->table) + " ORDER BY " + std::string(table->order));
            return rowsAsJson(query);
        }));
    }
    if (table && table->fillable && isPost) {
        const auto row = jsonBody(request);
        const auto id = m_store.transaction([&](Tables& tables) { return insertRow(tables.db, table->table, row); });
        return jsonReply(Value::dictionary({ { std::string(table->order), Value::integer(id) } }));
    }
    return notFound(request.path);
}

Reply AdminInterface::faults(const httplib::Request& request)
{
    if (request.method == "POST") {
        const auto body = jsonBody(request);
        try {
            // One fault or a list of them; a list is added whole or not at all.
            std::vector<Fault> added;
            if (body.isArray()) {
                for (const auto& element : body.elements())
                    added.push_back(faultFromValue(element));
            } else {
                added.push_back(faultFromValue(body));
            }
            for (auto& fault : added)
                m_faults.add(std::move(fault));
        } catch (const FaultError& error) {
            throw BadRequest(error.what());
        }
    } else if (request.method == "DELETE") {
        m_faults.clear();
    } else if (request.method != "GET") {
        return notFound(request.path);
    }
    return jsonReply(faultList(m_faults.pending()));
}

Reply AdminInterface::listFiles(const httplib::Request& request)
{
    if (!request.has_param("computer"))
        throw BadRequest("name the computer: /devserver/files?computer=ID");
    return jsonReply(m_store.transaction([&](Tables& tables) {
        auto query = tables.db.prepare("SELECT file_id, full_path, is_file, file_size, modified_date, "
                                       "base_system_file_id FROM files WHERE computer_id = ?1 ORDER BY full_path");
        query.bind(1, request.get_param_value("computer"));
        return rowsAsJson(query);
    }));
}

Reply AdminInterface::listRequests(const httplib::Request& request)
{
    const bool filtered = request.has_param("method");
    return jsonReply(m_store.transaction([&](Tables& tables) {
        auto query = tables.db.prepare(
            std::string("SELECT id, time, method_path, headers, body, http_status, reply_body, fault FROM requests")
            + (filtered ? " WHERE method_path = ?1" : "") + " ORDER BY id");
        if (filtered)
            query.bind(1, request.get_param_value("method"));
        auto rows = rowsAsJson(query);
        // The headers are stored as JSON text; they are shown as the object they are.
        for (std::size_t index = 0; index < rows.count(); ++index) {
            Value& row = rows.mutableAt(index);
            row.setObject(platform::readJson(row.find("headers")->string()), "headers");
        }
        return rows;
    }));
}

Reply AdminInterface::streamContent(std::string_view id)
{
    auto content = m_store.transaction([&](Tables& tables) -> std::optional<std::string> {
        auto query = tables.db.prepare("SELECT content FROM received_streams WHERE id = ?1");
        query.bind(1, id);
        if (!query.step())
            return std::nullopt;
        return query.text(0);
    });
    if (!content)
        return errorReply(404, "no received stream " + std::string(id));
    return { 200, "application/octet-stream", std::move(*content) };
}

}
