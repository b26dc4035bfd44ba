#include "ServerRecords.h"

#include "support/HttpClient.h"

#include "platform/Json.h"

#include <gtest/gtest.h>

namespace e2etest {

using platform::Value;

std::string textOf(const Value* value)
{
    if (!value)
        return {};
    if (const std::string* text = value->stringIf())
        return *text;
    if (const platform::Number* number = value->numberIf())
        return number->stringValue();
    return {};
}

std::map<std::string, ServerFile> ServerRecords::files(const std::string& computerId) const
{
    std::map<std::string, ServerFile> files;
    const Value table = rows("files?computer=" + computerId);
    for (const Value& row : table.elements())
        files[textOf(row.find("full_path"))] = { textOf(row.find("file_id")), textOf(row.find("is_file")),
            textOf(row.find("base_system_file_id")), textOf(row.find("modified_date")) };
    return files;
}

Value ServerRecords::requests(const std::string& methodPath) const
{
    return rows("requests?method=" + methodPath);
}

std::vector<Value> ServerRecords::requestBodies(const std::string& methodPath) const
{
    std::vector<Value> bodies;
    const Value log = requests(methodPath);
    for (const Value& request : log.elements()) {
        try {
            bodies.push_back(platform::readJson(textOf(request.find("body"))));
        } catch (const platform::JsonError&) {
            bodies.push_back(Value::null());
        }
    }
    return bodies;
}

Value ServerRecords::rows(const std::string& route) const
{
    const auto reply = testsupport::get(m_server.adminUrl(route));
    EXPECT_EQ(reply.status, 200) << route << ": " << reply.body;
    Value rows = reply.json();
    return rows.isArray() ? rows : Value::array();
}

void ServerRecords::addFault(const Value& fault) const
{
    const auto reply = testsupport::postJson(m_server.adminUrl("faults"), fault);
    EXPECT_EQ(reply.status, 200) << reply.body;
}

bool ServerRecords::faultsUsedUp() const
{
    return rows("faults").count() == 0;
}

}
