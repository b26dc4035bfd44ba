// What the server does with a batch report: the changes are applied in order to the computer's file table.

#include "devserver/DevServerTest.h"

using namespace devservertest;
using platform::Value;
using Table = std::map<std::string, long long>;

class BatchReport : public DevServerTest { };

static std::vector<std::string> paths(const Table& table)
{
    std::vector<std::string> list;
    for (const auto& [path, id] : table)
        list.push_back(path);
    return list;
}

TEST_F(BatchReport, CreatedInsertsEachPathWithANewFileId)
{
    const auto reply = postBatch(*server, { { "Created", "h\\a" }, { "Created", "h\\a\\x.txt" } });
    ASSERT_EQ(reply.status, 200);
    const auto table = fileTable(*server, "7");
    ASSERT_EQ(paths(table), (std::vector<std::string> { "h\\a", "h\\a\\x.txt" }));
    EXPECT_NE(table.at("h\\a"), table.at("h\\a\\x.txt"));
}

TEST_F(BatchReport, ReplyHasOneTextElementPerChangeInRequestOrder)
{
    const auto reply = postBatch(*server,
        { { .type = "Created", .fullPath = "h\\b", .baseSystemFileId = "21" },
            { .type = "Created", .fullPath = "h\\a", .baseSystemFileId = "22" },
            { .type = "Deleted", .fullPath = "h\\gone", .baseSystemFileId = "23" } })
                           .json();
    ASSERT_EQ(reply.count(), 3u);
    const auto table = fileTable(*server, "7");
    const Value& first = reply.at(0);
    EXPECT_EQ(first.keys(), (std::vector<std::string> { "FileID", "ReturnStatus", "BaseSystemFileID" }));
    EXPECT_EQ(first, Value::dictionary({ { "FileID", std::to_string(table.at("h\\b")) }, { "ReturnStatus", "0" },
                         { "BaseSystemFileID", "21" } }));
    EXPECT_EQ(*reply.at(1).find("FileID"), Value(std::to_string(table.at("h\\a"))));
    EXPECT_EQ(*reply.at(1).find("BaseSystemFileID"), Value("22"));
    EXPECT_EQ(*reply.at(2).find("BaseSystemFileID"), Value("23"));
}

TEST_F(BatchReport, AnEmptyBatchGetsAnEmptyArray)
{
    const auto reply = postBatch(*server, {});
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.json(), Value::array());
}

TEST_F(BatchReport, CreatedAtAPathThatExistsKeepsItsFileIdAndTakesTheNewAttributes)
{
    postBatch(*server, { { .type = "Created", .fullPath = "h\\a.txt", .baseSystemFileId = "5" } });
    const auto before = fileTable(*server, "7").at("h\\a.txt");
    const auto reply = postBatch(*server, { { .type = "Created", .fullPath = "h\\a.txt", .baseSystemFileId = "6" } });
    EXPECT_EQ(*reply.json().at(0).find("FileID"), Value(std::to_string(before)));
    const auto rows = get(server->adminUrl("files?computer=7")).json();
    ASSERT_EQ(rows.count(), 1u);
    EXPECT_EQ(*rows.at(0).find("base_system_file_id"), Value("6"));
}

TEST_F(BatchReport, ModifiedUpdatesThePathAndKeepsItsFileId)
{
    postBatch(*server, { { "Created", "h\\a.txt" } });
    const auto before = fileTable(*server, "7").at("h\\a.txt");
    const auto reply = postBatch(*server, { { .type = "Modified", .fullPath = "h\\a.txt", .fileSize = "42" } }).json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "0" }));
    const auto rows = get(server->adminUrl("files?computer=7")).json();
    ASSERT_EQ(rows.count(), 1u);
    EXPECT_EQ(*rows.at(0).find("file_id"), Value::integer(before));
    EXPECT_EQ(*rows.at(0).find("file_size"), Value("42"));
}

TEST_F(BatchReport, ModifiedOfAPathTheTableLacksInsertsIt)
{
    const auto reply = postBatch(*server, { { "Modified", "h\\new.txt" } }).json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "0" }));
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\new.txt" }));
}

TEST_F(BatchReport, RenamedMovesThePathAndEverythingBelowItKeepingTheirIds)
{
    postBatch(*server, { { "Created", "h\\a" }, { "Created", "h\\a\\x.txt" }, { "Created", "h\\a\\s" },
                           { "Created", "h\\a\\s\\y.txt" } });
    const auto before = fileTable(*server, "7");
    const auto reply = postBatch(*server, { { .type = "Renamed", .fullPath = "h\\b", .oldFullPath = "h\\a" } }).json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "0" }));
    EXPECT_EQ(*reply.at(0).find("FileID"), Value(std::to_string(before.at("h\\a"))));
    const auto after = fileTable(*server, "7");
    EXPECT_EQ(after, (Table { { "h\\b", before.at("h\\a") }, { "h\\b\\x.txt", before.at("h\\a\\x.txt") },
                         { "h\\b\\s", before.at("h\\a\\s") }, { "h\\b\\s\\y.txt", before.at("h\\a\\s\\y.txt") } }));
}

TEST_F(BatchReport, RenamedLeavesSiblingsWhoseNamesStartWithTheSameTextAlone)
{
    // "a b", "a.txt" and "ab" sort around "a\..." but are not below it; "a]" sorts right after the range.
    postBatch(*server, { { "Created", "h\\a" }, { "Created", "h\\a\\in" }, { "Created", "h\\a b" },
                           { "Created", "h\\a.txt" }, { "Created", "h\\ab" }, { "Created", "h\\a]" } });
    postBatch(*server, { { .type = "Renamed", .fullPath = "h\\z", .oldFullPath = "h\\a" } });
    EXPECT_EQ(paths(fileTable(*server, "7")),
        (std::vector<std::string> { "h\\a b", "h\\a.txt", "h\\a]", "h\\ab", "h\\z", "h\\z\\in" }));
}

TEST_F(BatchReport, RenamedMovesPathsWithCharactersBeyondAscii)
{
    postBatch(*server, { { "Created", "h\\Ünïcødé" }, { "Created", "h\\Ünïcødé\\日本.txt" } });
    postBatch(*server, { { .type = "Renamed", .fullPath = "h\\é", .oldFullPath = "h\\Ünïcødé" } });
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\é", "h\\é\\日本.txt" }));
}

TEST_F(BatchReport, RenamedOntoAPathThatExistsReplacesItAndWhatIsBelowIt)
{
    postBatch(*server, { { "Created", "h\\a" }, { "Created", "h\\a\\x" }, { "Created", "h\\b" }, { "Created", "h\\b\\old" } });
    const auto before = fileTable(*server, "7");
    postBatch(*server, { { .type = "Renamed", .fullPath = "h\\b", .oldFullPath = "h\\a" } });
    EXPECT_EQ(fileTable(*server, "7"), (Table { { "h\\b", before.at("h\\a") }, { "h\\b\\x", before.at("h\\a\\x") } }));
}

TEST_F(BatchReport, RenamedOfAPathTheTableLacksFailsInItsOwnElementOnly)
{
    const auto reply = postBatch(*server,
        { { "Created", "h\\one" }, { .type = "Renamed", .fullPath = "h\\to", .oldFullPath = "h\\missing" },
            { "Created", "h\\two" } })
                           .json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "0", "1", "0" }));
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\one", "h\\two" }));
}

TEST_F(BatchReport, RenamedIntoItsOwnSubtreeOrOntoAFolderAboveItIsRefused)
{
    postBatch(*server, { { "Created", "h\\a" }, { "Created", "h\\a\\b" } });
    const auto reply = postBatch(*server,
        { { .type = "Renamed", .fullPath = "h\\a\\b\\c", .oldFullPath = "h\\a" },
            { .type = "Renamed", .fullPath = "h\\a", .oldFullPath = "h\\a\\b" } })
                           .json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "1", "1" }));
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\a", "h\\a\\b" }));
}

TEST_F(BatchReport, RenamedWithoutAnOldPathIsRefused)
{
    postBatch(*server, { { "Created", "h\\a" } });
    const auto reply = postBatch(*server, { { .type = "Renamed", .fullPath = "h\\b", .oldFullPath = "" } }).json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "1" }));
}

TEST_F(BatchReport, DeletedRemovesThePathAndEverythingBelowItButNotItsSiblings)
{
    postBatch(*server, { { "Created", "h\\a" }, { "Created", "h\\a\\x" }, { "Created", "h\\a\\s" },
                           { "Created", "h\\a\\s\\y" }, { "Created", "h\\a b" }, { "Created", "h\\ab" } });
    const auto removedId = fileTable(*server, "7").at("h\\a");
    const auto reply = postBatch(*server, { { "Deleted", "h\\a" } }).json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "0" }));
    EXPECT_EQ(*reply.at(0).find("FileID"), Value(std::to_string(removedId)));
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\a b", "h\\ab" }));
}

TEST_F(BatchReport, DeletedOfAPathTheTableLacksIsNotAnError)
{
    const auto reply = postBatch(*server, { { .type = "Deleted", .fullPath = "h\\never", .fileId = "77" } }).json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "0" }));
    EXPECT_EQ(*reply.at(0).find("FileID"), Value("77"));
}

TEST_F(BatchReport, AnUnknownChangeTypeOrAChangeWithoutPathOrComputerFailsInItsOwnElement)
{
    const auto reply = postBatch(*server,
        { { "Moved", "h\\a" }, { "Created", "" }, { .type = "Created", .fullPath = "h\\b", .computerId = "" },
            { "Created", "h\\ok" } })
                           .json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "1", "1", "1", "0" }));
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\ok" }));
}

TEST_F(BatchReport, ChangesAreAppliedInRequestOrder)
{
    const auto reply = postBatch(*server,
        { { "Created", "h\\a" }, { "Deleted", "h\\a" }, { "Created", "h\\b" },
            { .type = "Renamed", .fullPath = "h\\c", .oldFullPath = "h\\b" } })
                           .json();
    EXPECT_EQ(returnStatuses(reply), (std::vector<std::string> { "0", "0", "0", "0" }));
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\c" }));
}

TEST_F(BatchReport, EachComputerHasATableOfItsOwn)
{
    postBatch(*server, { { .type = "Created", .fullPath = "h\\a", .computerId = "1" },
                           { .type = "Created", .fullPath = "h\\a", .computerId = "2" } });
    postBatch(*server, { { .type = "Deleted", .fullPath = "h\\a", .computerId = "1" } });
    EXPECT_TRUE(fileTable(*server, "1").empty());
    EXPECT_EQ(paths(fileTable(*server, "2")), (std::vector<std::string> { "h\\a" }));
}

TEST_F(BatchReport, AFileIdIsNeverGivenAgainAfterItsPathWasDeleted)
{
    postBatch(*server, { { "Created", "h\\a" } });
    const auto first = fileTable(*server, "7").at("h\\a");
    postBatch(*server, { { "Deleted", "h\\a" } });
    postBatch(*server, { { "Created", "h\\a" } });
    EXPECT_GT(fileTable(*server, "7").at("h\\a"), first);
}

// The client reports a folder renamed in place as a "Renamed" record for the folder, followed, for every item
// below it (in walk order), by a "Deleted" record of its old path and a "Created" record of its new one.
TEST_F(BatchReport, AFolderRenameFollowedByItsChildrensDeletedAndCreatedRecordsLeavesTheFolderAsItIsOnDisk)
{
    postBatch(*server, { { "Created", "h\\A" }, { "Created", "h\\A\\f1.txt" }, { "Created", "h\\A\\S" },
                           { "Created", "h\\A\\S\\f2.txt" }, { "Created", "h\\other.txt" } });
    const auto before = fileTable(*server, "7");

    const auto reply = postBatch(*server,
        { { .type = "Renamed", .fullPath = "h\\B", .oldFullPath = "h\\A" }, { "Deleted", "h\\A\\f1.txt" },
            { "Created", "h\\B\\f1.txt" }, { "Deleted", "h\\A\\S" }, { "Created", "h\\B\\S" },
            { "Deleted", "h\\A\\S\\f2.txt" }, { "Created", "h\\B\\S\\f2.txt" } })
                           .json();

    EXPECT_EQ(returnStatuses(reply), std::vector<std::string>(7, "0"));
    EXPECT_EQ(fileTable(*server, "7"),
        (Table { { "h\\B", before.at("h\\A") }, { "h\\B\\S", before.at("h\\A\\S") },
            { "h\\B\\S\\f2.txt", before.at("h\\A\\S\\f2.txt") }, { "h\\B\\f1.txt", before.at("h\\A\\f1.txt") },
            { "h\\other.txt", before.at("h\\other.txt") } }));
}

// A folder moved to another folder is reported as "Deleted" of its old path and "Created" of its new one, and
// so is every item below it.
TEST_F(BatchReport, AFolderMoveReportedAsDeletedAndCreatedRecordsLeavesTheFolderAsItIsOnDisk)
{
    postBatch(*server, { { "Created", "h\\x" }, { "Created", "h\\y" }, { "Created", "h\\x\\F" },
                           { "Created", "h\\x\\F\\f.txt" } });
    postBatch(*server, { { "Deleted", "h\\x\\F" }, { "Created", "h\\y\\F" }, { "Deleted", "h\\x\\F\\f.txt" },
                           { "Created", "h\\y\\F\\f.txt" } });
    EXPECT_EQ(paths(fileTable(*server, "7")), (std::vector<std::string> { "h\\x", "h\\y", "h\\y\\F", "h\\y\\F\\f.txt" }));
}
