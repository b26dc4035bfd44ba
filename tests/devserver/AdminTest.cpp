// The admin interface under /devserver/.

#include "devserver/DevServerTest.h"
#include "platform/Json.h"

using namespace devservertest;
using platform::Value;

class AdminInterface : public DevServerTest { };

TEST_F(AdminInterface, ShowsTheFileTableOfAComputerInPathOrder)
{
    postBatch(*server, { { .type = "Created", .fullPath = "h\\b", .isFile = "1", .baseSystemFileId = "9" },
                           { .type = "Created", .fullPath = "h\\a", .isFile = "0" } });
    const auto rows = get(server->adminUrl("files?computer=7")).json();
    ASSERT_EQ(rows.count(), 2u);
    EXPECT_EQ(*rows.at(0).find("full_path"), Value("h\\a"));
    const auto& second = rows.at(1);
    EXPECT_EQ(second.keys(), (std::vector<std::string> { "file_id", "full_path", "is_file", "file_size", "modified_date",
                                 "base_system_file_id" }));
    EXPECT_EQ(*second.find("is_file"), Value("1"));
    EXPECT_EQ(*second.find("file_size"), Value("1"));
    EXPECT_EQ(*second.find("modified_date"), Value("2024-05-01 10:00:00"));
    EXPECT_EQ(*second.find("base_system_file_id"), Value("9"));
}

TEST_F(AdminInterface, TheFileTableNeedsAComputer)
{
    EXPECT_EQ(get(server->adminUrl("files")).status, 400);
}

TEST_F(AdminInterface, TheRequestLogHoldsEachRequestWithItsReplyAndCanBeFilteredByMethod)
{
    postBatch(*server, { { "Created", "h\\a" } });
    post(server->methodUrl("MAC/Nothing.svc/Here"), "{}");
    const auto all = get(server->adminUrl("requests")).json();
    ASSERT_EQ(all.count(), 2u);
    const auto& first = all.at(0);
    EXPECT_EQ(*first.find("method_path"), Value(batchMethod));
    EXPECT_EQ(*first.find("http_status"), Value::integer(200));
    EXPECT_EQ(platform::readJson(first.find("body")->string()), batch({ { "Created", "h\\a" } }));
    EXPECT_EQ(returnStatuses(platform::readJson(first.find("reply_body")->string())), (std::vector<std::string> { "0" }));
    EXPECT_EQ(*first.find("headers")->find("Content-Type"), Value("application/json"));
    EXPECT_FALSE(first.find("time")->string().empty());

    const auto filtered = get(server->adminUrl("requests?method=" + std::string(batchMethod))).json();
    ASSERT_EQ(filtered.count(), 1u);
    EXPECT_EQ(*filtered.at(0).find("id"), *first.find("id"));
}

TEST_F(AdminInterface, RequestsToTheAdminInterfaceAreNotLogged)
{
    get(server->adminUrl("files?computer=7"));
    get(server->adminUrl("nothing-here"));
    EXPECT_EQ(get(server->adminUrl("requests")).json(), Value::array());
}

TEST_F(AdminInterface, FillsAQueueAndShowsIt)
{
    const auto added = postJson(server->adminUrl("uploads"),
        Value::dictionary({ { "to_computer_id", "7" }, { "file_name", "a.txt" }, { "content", "bytes" } }));
    ASSERT_EQ(added.status, 200);
    const auto id = *added.json().find("file_upload_id");
    const auto rows = get(server->adminUrl("uploads")).json();
    ASSERT_EQ(rows.count(), 1u);
    EXPECT_EQ(*rows.at(0).find("file_upload_id"), id);
    EXPECT_EQ(*rows.at(0).find("file_name"), Value("a.txt"));
    EXPECT_EQ(*rows.at(0).find("state"), Value("pending"));
}

TEST_F(AdminInterface, EveryQueueCanBeFilled)
{
    const std::vector<std::pair<std::string, Value>> queues {
        { "uploads", Value::dictionary({ { "to_computer_id", "7" } }) },
        { "downloads", Value::dictionary({ { "from_computer_id", "7" }, { "file_path", "h\\a" } }) },
        { "delete-requests", Value::dictionary({ { "from_computer_id", "7" }, { "file_path", "h\\a" } }) },
        { "shared-files", Value::dictionary({ { "user_id", "1" }, { "owner_user_id", "2" }, { "file_id", "5" } }) },
        { "shared-transfers",
            Value::dictionary({ { "kind", "FileToTransfer" }, { "user_id", "1" }, { "computer_id", "7" },
                { "record", Value::dictionary({ { "FullPath", "h\\a" } }) } }) },
    };
    for (const auto& [route, row] : queues) {
        EXPECT_EQ(postJson(server->adminUrl(route), row).status, 200) << route;
        EXPECT_EQ(get(server->adminUrl(route)).json().count(), 1u) << route;
    }
}

TEST_F(AdminInterface, RefusesAnUnknownColumnAMissingOneOrAValueTheTableDoesNotAllow)
{
    const auto unknown = postJson(server->adminUrl("uploads"), Value::dictionary({ { "to_computer_id", "7" }, { "colour", "red" } }));
    EXPECT_EQ(unknown.status, 400);
    EXPECT_NE(unknown.body.find("no column \\\"colour\\\""), std::string::npos) << unknown.body;
    const auto missing = postJson(server->adminUrl("uploads"), Value::dictionary({ { "file_name", "a" } }));
    EXPECT_EQ(missing.status, 400);
    EXPECT_NE(missing.body.find("to_computer_id"), std::string::npos) << missing.body;
    const auto refusedByTheTable = postJson(server->adminUrl("shared-transfers"),
        Value::dictionary({ { "kind", "Elsewhere" }, { "user_id", "1" }, { "computer_id", "7" }, { "record", "{}" } }));
    EXPECT_EQ(refusedByTheTable.status, 400);
    EXPECT_NE(refusedByTheTable.body.find("CHECK constraint failed"), std::string::npos) << refusedByTheTable.body;
}

TEST_F(AdminInterface, ResetEmptiesEveryTableRestartsTheIdsAndClearsTheFaults)
{
    postBatch(*server, { { "Created", "h\\a" } });
    postJson(server->adminUrl("faults"), Value::dictionary({ { "kind", "drop" }, { "path", "MAC/ErrorLog.svc/LogError" } }));
    ASSERT_EQ(post(server->adminUrl("reset"), "").status, 200);
    EXPECT_TRUE(fileTable(*server, "7").empty());
    EXPECT_EQ(get(server->adminUrl("requests")).json(), Value::array());
    EXPECT_EQ(get(server->adminUrl("faults")).json(), Value::array());
    postBatch(*server, { { "Created", "h\\b" } });
    EXPECT_EQ(fileTable(*server, "7").at("h\\b"), 1);
}

TEST_F(AdminInterface, AnUnknownRouteGetsHttp404)
{
    EXPECT_EQ(get(server->adminUrl("nothing-here")).status, 404);
    EXPECT_EQ(post(server->adminUrl("users"), "{}").status, 404);
}
