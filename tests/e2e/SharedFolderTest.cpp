// Items in a folder shared with other users go to the server one by one through the shared-files methods, never in
// the batch report, and the shared-files list in "Ulmaridon.SharedFilesXpcService" follows them.

#include "SyncedFolder.h"

#include "platform/Json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

using e2etest::SyncedFolder;
using platform::Value;

std::string fileNumber(const std::filesystem::path& path)
{
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return std::to_string(status.st_ino);
}

class SharedFolder : public SyncedFolder {
protected:
    // "Team (Shared)" is this user's shared folder; theirs.txt in it was put there by another user.
    void prepare() override
    {
        testsupport::writeFile(team() / "theirs.txt", "from a colleague\n");
        m_defaults.replace(e2etest::sharedFilesDomain,
            Value::dictionary({ { e2etest::sharedFilesKey,
                Value::array({ entry(team(), "0", "1", "False"), entry(team() / "theirs.txt", "77", "0", "True") }) } }));
    }

    Value entry(const std::filesystem::path& path, const std::string& ownerFileId, const std::string& mine,
        const std::string& isFile) const
    {
        return Value::dictionary({ { "FileName", path.string() }, { "OwnerFileID", ownerFileId }, { "Blocked", "0" },
            { "UserComputerMapID", m_account.computerId }, { "MyFile", mine }, { "FileID", fileNumber(path) },
            { "IsFile", isFile } });
    }

    std::filesystem::path team() const { return syncedFolder() / "Team (Shared)"; }

    // The list's entry whose "FileName" is `path`, or null.
    Value listEntry(const std::filesystem::path& path) const
    {
        const Value list = m_defaults.sharedFiles();
        for (const Value& entry : list.elements())
            if (entry.isDictionary() && e2etest::textOf(entry.find("FileName")) == path.string())
                return entry;
        return Value::null();
    }

    // Creates new.txt in the shared folder and waits until the server's answer has put it in the list.
    testing::AssertionResult createSharedFile()
    {
        if (auto ran = run("printf 'shared\\n' > 'Team (Shared)/new.txt'"); !ran)
            return ran;
        if (auto ended = passStep(); !ended)
            return ended;
        if (e2etest::eventuallyWithinServiceTime([&] { return !listEntry(team() / "new.txt").isNull(); }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "new.txt never joined the shared-files list:\n" << logTail();
    }

    // Renames the listed new.txt to renamed.txt and waits until the server has had the transfer request.
    testing::AssertionResult renameSharedFile()
    {
        if (auto ran = run("mv 'Team (Shared)/new.txt' 'Team (Shared)/renamed.txt'"); !ran)
            return ran;
        if (auto ended = passStep(); !ended)
            return ended;
        if (e2etest::eventuallyWithinServiceTime(
                [&] { return m_records->requestCount(e2etest::sharedTransferPath) >= 1; }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "no transfer request came:\n" << logTail();
    }
};

TEST_F(SharedFolder, ANewFileSendsOneInsertFileAndJoinsTheListWithTheReturnedOwnerFileId)
{
    ASSERT_TRUE(createSharedFile());
    const auto requests = m_records->requests(e2etest::insertFilePath);
    ASSERT_EQ(requests.count(), 1u);
    const Value reply = platform::readJson(e2etest::textOf(requests.at(0).find("reply_body")));
    const Value entry = listEntry(team() / "new.txt");
    EXPECT_EQ(e2etest::textOf(entry.find("OwnerFileID")), e2etest::textOf(reply.find("FileID")));
    EXPECT_EQ(e2etest::textOf(entry.find("FileID")), fileNumber(team() / "new.txt"));
    EXPECT_EQ(e2etest::textOf(entry.find("MyFile")), "1");
    EXPECT_EQ(e2etest::textOf(entry.find("IsFile")), "True");
    EXPECT_EQ(e2etest::textOf(entry.find("UserComputerMapID")), m_account.computerId);
    // The request named the item by the owner's id of its shared folder ("0") and its path below it.
    const Value body = m_records->requestBodies(e2etest::insertFilePath).at(0);
    EXPECT_THAT(e2etest::textOf(body.find("FullPath")), testing::StartsWith("1*0\\new.txt*"));
    EXPECT_EQ(e2etest::textOf(body.find("ComputerID")), m_account.computerId);
    // Shared items never go into the batch report, and once listed the file is not sent again.
    ASSERT_TRUE(syncStep());
    EXPECT_EQ(m_records->requestCount(e2etest::insertFilePath), 1u);
    EXPECT_EQ(m_records->requestCount(e2etest::batchReportPath), 0u);
}

TEST_F(SharedFolder, ARenameInsideSendsOneSharedTransferWithBackslashPathsAndChangeTypeTwo)
{
    ASSERT_TRUE(createSharedFile());
    const std::string ownerFileId = e2etest::textOf(listEntry(team() / "new.txt").find("OwnerFileID"));
    const std::string number = fileNumber(team() / "new.txt");
    ASSERT_TRUE(renameSharedFile());
    EXPECT_FALSE(listEntry(team() / "renamed.txt").isNull());
    const auto bodies = m_records->requestBodies(e2etest::sharedTransferPath);
    ASSERT_EQ(bodies.size(), 1u);
    const Value& body = bodies[0];
    EXPECT_EQ(e2etest::textOf(body.find("OldFullPath")), "\\Team (Shared)\\new.txt");
    EXPECT_EQ(e2etest::textOf(body.find("FullPath")), "\\Team (Shared)\\renamed.txt");
    EXPECT_EQ(e2etest::textOf(body.find("ChangeType")), "2");
    EXPECT_EQ(e2etest::textOf(body.find("FileID")), ownerFileId);
    EXPECT_EQ(e2etest::textOf(body.find("ComputerID")), m_account.computerId);
    EXPECT_EQ(e2etest::textOf(body.find("StrXMLFileID")), number);
    EXPECT_EQ(e2etest::textOf(body.find("BaseSystemFileID")), number);
    // The next pass finds the entry by its new path: nothing is sent again.
    ASSERT_TRUE(syncStep());
    EXPECT_EQ(m_records->requestCount(e2etest::sharedTransferPath), 1u);
}

TEST_F(SharedFolder, ARenameInsideSendsTheFileNumberAsAJsonNumberUnlikeEveryOtherField)
{
    ASSERT_TRUE(createSharedFile());
    ASSERT_TRUE(renameSharedFile());
    const Value body = m_records->requestBodies(e2etest::sharedTransferPath).at(0);
    ASSERT_NE(body.find("BaseSystemFileID"), nullptr);
    EXPECT_TRUE(body.find("BaseSystemFileID")->isNumber()) << body.find("BaseSystemFileID")->description();
}

// The one request field that is not text must not keep the rename out of the server's shared changes.
TEST_F(SharedFolder, TheServerKeepsTheSharedRenameItIsSent)
{
    ASSERT_TRUE(createSharedFile());
    ASSERT_TRUE(renameSharedFile());
    EXPECT_EQ(e2etest::textOf(m_records->requests(e2etest::sharedTransferPath).at(0).find("http_status")), "200");
    EXPECT_EQ(m_records->rows("shared-changes").count(), 1u);
}

TEST_F(SharedFolder, AnItemOfAnotherOwnerIsRenamedInTheListOnly)
{
    ASSERT_TRUE(run("mv 'Team (Shared)/theirs.txt' 'Team (Shared)/theirs, renamed.txt'"));
    ASSERT_TRUE(passStep());
    const Value entry = listEntry(team() / "theirs, renamed.txt");
    ASSERT_FALSE(entry.isNull()) << m_defaults.sharedFiles().description();
    EXPECT_EQ(e2etest::textOf(entry.find("OwnerFileID")), "77");
    EXPECT_TRUE(listEntry(team() / "theirs.txt").isNull());
    // A request from that pass would be on the server by the end of the next one.
    ASSERT_TRUE(syncStep());
    EXPECT_EQ(m_records->requestCount(e2etest::sharedTransferPath), 0u);
    EXPECT_EQ(m_records->requestCount(e2etest::insertFilePath), 0u);
    EXPECT_EQ(m_records->requestCount(e2etest::batchReportPath), 0u);
}

}
