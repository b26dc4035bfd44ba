// Items in shared folders against a real korbanhold-devserver: which requests they cause, what those carry, and
// what the shared-files list holds and stores afterwards.

#include "ServerFixture.h"

#include "support/Eventually.h"

using namespace synctest;
using platform::Value;

namespace {

constexpr const char* insertFilePath = "SyncFileChanges.svc/InsertFile";
constexpr const char* transferPath = "SyncFileChanges.svc/InsertSharedFilesTransfer";
constexpr const char* sharedDomain = "Ulmaridon.SharedFilesXpcService";

class SharedFiles : public ServerFixture {
protected:
    SharedFiles() { makeActiveSharedFolder("Team (Shared)"); }

    // The entry of the in-memory list whose "FileName" is `relative`'s path; a test failure when there is none.
    Value entryNamed(const Value& list, const std::string& relative) const
    {
        for (const Value& entry : list.elements()) {
            if (text(entry, "FileName") == path(relative))
                return entry;
        }
        ADD_FAILURE() << "no entry for " << relative;
        return Value::dictionary();
    }

    std::size_t entriesNamed(const Value& list, const std::string& relative) const
    {
        std::size_t count = 0;
        for (const Value& entry : list.elements())
            count += text(entry, "FileName") == path(relative);
        return count;
    }

    // An entry for an item at `relative` whose file number is that of `numberOf`, made by this computer or not.
    Value itemRecord(const std::string& relative, const std::string& numberOf, const std::string& myFile) const
    {
        return record({ { "OwnerFileID", "77" }, { "UserComputerMapID", "M-9" }, { "FileName", path(relative) },
            { "IsFile", "True" }, { "MyFile", myFile }, { "Blocked", "0" }, { "FileID", fileNumber(numberOf) },
            { "SavedFileID", "" } });
    }

    // The InsertFile requests a pass sends for a new item of the shared folder whose entry has `key` = `value`.
    std::size_t insertFileRequestsWithFolderField(const std::string& key, const std::string& value)
    {
        Value folder = sharedFolderRecord("Team (Shared)");
        folder.setObject(Value(value), key);
        storeSharedList(Value::array({ folder }));
        writeFile("Team (Shared)/a.txt", "alpha");
        firstPass();
        waitForRequestsOfThePass(0);
        return bodiesOf(insertFilePath).size();
    }

    // An item at "Team (Shared)/new.txt" whose entry still names "old.txt", made by this computer or not.
    void renamedItem(const std::string& myFile)
    {
        writeFile("Team (Shared)/new.txt", "alpha");
        storeSharedList(Value::array({ sharedFolderRecord("Team (Shared)"),
            itemRecord("Team (Shared)/old.txt", "Team (Shared)/new.txt", myFile) }));
    }

    // The one shared-transfer request that a pass sends for an item this computer made and that was renamed.
    Value transferOfRenamedItem()
    {
        renamedItem("1");
        firstPass();
        EXPECT_TRUE(waitForReplies(1));
        auto bodies = bodiesOf(transferPath);
        EXPECT_EQ(bodies.size(), 1u);
        return bodies.empty() ? Value::dictionary() : bodies[0];
    }

    // The error report serves as a marker: once its reply has come, a request the pass had sent before it would
    // have had its reply too.
    void waitForRequestsOfThePass(std::size_t expectedReplies)
    {
        service->logErrorMethod();
        ASSERT_TRUE(waitForReplies(expectedReplies + 1));
    }
};

TEST_F(SharedFiles, AnItemThatTheListKnowsByPathCausesNoRequest)
{
    writeFile("Team (Shared)/a.txt", "alpha");
    Value known = record({ { "FileName", path("Team (Shared)/a.txt") }, { "FileID", "999999999" }, { "MyFile", "1" } });
    storeSharedList(Value::array({ sharedFolderRecord("Team (Shared)"), known }));
    firstPass();
    waitForRequestsOfThePass(0);

    EXPECT_EQ(service->countOf("performSharedFilesCreationProcess"), 1u);
    EXPECT_EQ(bodiesOf(insertFilePath).size(), 0u);
}

TEST_F(SharedFiles, ANewItemIsRegisteredWithItsMappingAndTheServersCompositePath)
{
    writeFile("Team (Shared)/a.txt", "alpha");
    firstPass();
    ASSERT_TRUE(waitForReplies(1));

    auto bodies = bodiesOf(insertFilePath);
    ASSERT_EQ(bodies.size(), 1u);
    EXPECT_EQ(text(bodies[0], "ComputerID"), "M-1");
    // "1", the path with the shared folder replaced by its owner identifier, the size, the time, the file flag.
    std::string fullPath = text(bodies[0], "FullPath");
    EXPECT_EQ(fullPath.rfind("1*0\\a.txt*0*", 0), 0u) << fullPath;
    EXPECT_EQ(fullPath.substr(fullPath.size() - 2), "*1") << fullPath;
}

TEST_F(SharedFiles, AnAcceptedNewItemGetsAnEntryAndTheListIsStoredAsTheWholeDomain)
{
    writeFile("Team (Shared)/a.txt", "alpha");
    firstPass();
    ASSERT_TRUE(waitForReplies(1));

    std::string serverID = text(admin("files?computer=M-1").at(0), "file_id");
    Value expected = record({ { "OwnerFileID", serverID }, { "UserComputerMapID", "M-1" },
        { "FileName", path("Team (Shared)/a.txt") }, { "IsFile", "True" }, { "MyFile", "1" }, { "Blocked", "0" },
        { "FileID", fileNumber("Team (Shared)/a.txt") }, { "SavedFileID", "" }, { "DeleteKey", "0" } });
    Value entry = entryNamed(service->sharedFilesArray(), "Team (Shared)/a.txt");
    EXPECT_EQ(entry, expected);
    EXPECT_EQ(keysOf(entry), keysOf(expected));
    auto domain = readDomain(sharedDomain);
    ASSERT_TRUE(domain);
    EXPECT_EQ(domain->keys(), std::vector<std::string> { "SharedFileDataKey" });
    EXPECT_EQ(*domain->find("SharedFileDataKey"), service->sharedFilesArray());
}

TEST_F(SharedFiles, ACreatedSharedFolderIsNotAFileOnlyWhenTheLastFieldOfItsCompositePathIsZero)
{
    makeFolder("Team (Shared)/sub");
    writeFile("Team (Shared)/a.txt", "alpha");
    firstPass();
    ASSERT_TRUE(waitForReplies(2));

    for (const Value& body : bodiesOf(insertFilePath)) {
        std::string fullPath = text(body, "FullPath");
        bool folder = fullPath.find("\\sub*") != std::string::npos;
        EXPECT_EQ(fullPath.back(), folder ? '0' : '1') << fullPath;
    }
    Value list = service->sharedFilesArray();
    EXPECT_EQ(text(entryNamed(list, "Team (Shared)/sub"), "IsFile"), "False");
    EXPECT_EQ(text(entryNamed(list, "Team (Shared)/a.txt"), "IsFile"), "True");
}

TEST_F(SharedFiles, NoRequestForAnItemInABlockedSharedFolder)
{
    EXPECT_EQ(insertFileRequestsWithFolderField("Blocked", "1"), 0u);
}

TEST_F(SharedFiles, NoRequestForAnItemInAFolderSharedByAnotherOwner)
{
    EXPECT_EQ(insertFileRequestsWithFolderField("OwnerFileID", "4711"), 0u);
}

TEST_F(SharedFiles, ANewItemTheServerRefusesGetsNoEntryAndIsTriedAgainByTheNextPass)
{
    // Without a mapping the request has no computer, which the server refuses with "ReturnStatus" "1".
    Value withoutMapping = sharedFolderRecord("Team (Shared)");
    withoutMapping.removeObjectForKey("UserComputerMapID");
    storeSharedList(Value::array({ withoutMapping }));
    writeFile("Team (Shared)/a.txt", "alpha");
    firstPass();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(service->sharedFilesArray().count(), 1u);
    EXPECT_EQ(storedSharedList(), Value::array({ withoutMapping }));

    nextPass();
    ASSERT_TRUE(waitForReplies(2));
    EXPECT_EQ(bodiesOf(insertFilePath).size(), 2u);
}

TEST_F(SharedFiles, ANewItemWhoseRequestFailsGetsNoEntry)
{
    addFault("drop", insertFilePath);
    writeFile("Team (Shared)/a.txt", "alpha");
    firstPass();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(entriesNamed(service->sharedFilesArray(), "Team (Shared)/a.txt"), 0u);
    EXPECT_EQ(entriesNamed(*storedSharedList(), "Team (Shared)/a.txt"), 0u);
}

TEST_F(SharedFiles, ARenameOfAnItemOfAnotherUserUpdatesItsEntryAndSendsNothing)
{
    renamedItem("0");
    firstPass();
    waitForRequestsOfThePass(0);

    EXPECT_EQ(bodiesOf(transferPath).size(), 0u);
    Value entry = entryNamed(service->sharedFilesArray(), "Team (Shared)/new.txt");
    EXPECT_EQ(text(entry, "FileID"), fileNumber("Team (Shared)/new.txt"));
    EXPECT_EQ(text(entry, "DeleteKey"), "0");
    EXPECT_EQ(entriesNamed(*storedSharedList(), "Team (Shared)/new.txt"), 1u);
    EXPECT_EQ(entriesNamed(*storedSharedList(), "Team (Shared)/old.txt"), 0u);
}

TEST_F(SharedFiles, ASharedRenameSendsBackslashPathsBelowTheSyncedFolderAndChangeTypeTwo)
{
    const Value sent = transferOfRenamedItem();
    EXPECT_EQ(text(sent, "OldFullPath"), "\\Team (Shared)\\old.txt");
    EXPECT_EQ(text(sent, "FullPath"), "\\Team (Shared)\\new.txt");
    EXPECT_EQ(text(sent, "ChangeType"), "2");
    EXPECT_EQ(text(sent, "FileID"), "77");
    EXPECT_EQ(text(sent, "ComputerID"), "C-7");
    EXPECT_EQ(text(sent, "UserComputerID"), "M-9");
    EXPECT_EQ(text(sent, "IsFile"), "True");
    // The folder that held the item before: the shared folder, whose owner identifier is "0".
    EXPECT_EQ(text(sent, "PrevFolderFileID"), "0");
    EXPECT_EQ(text(sent, "StrXMLFileID"), fileNumber("Team (Shared)/new.txt"));
}

TEST_F(SharedFiles, ASharedRenameSendsTheFileNumberAsAJsonNumber)
{
    const Value sent = transferOfRenamedItem();
    const Value* number = sent.find("BaseSystemFileID");
    ASSERT_NE(number, nullptr);
    ASSERT_TRUE(number->isNumber()) << number->description();
    EXPECT_EQ(std::to_string(number->number().uint64Value()), fileNumber("Team (Shared)/new.txt"));
}

TEST_F(SharedFiles, ASharedRenameSendsAnOwnerIdentifierThatIsANumberAsAJsonNumberAndNullAsNull)
{
    // As after a server answered InsertFile with a numeric "FileID": the entry holds the number.
    writeFile("Team (Shared)/new.txt", "alpha");
    Value item = itemRecord("Team (Shared)/old.txt", "Team (Shared)/new.txt", "1");
    item.setObject(Value::integer(4711), "OwnerFileID");
    item.setObject(Value::null(), "UserComputerMapID");
    storeSharedList(Value::array({ sharedFolderRecord("Team (Shared)"), item }));
    firstPass();
    ASSERT_TRUE(waitForReplies(1));
    auto bodies = bodiesOf(transferPath);
    ASSERT_EQ(bodies.size(), 1u);
    ASSERT_NE(bodies[0].find("FileID"), nullptr);
    EXPECT_EQ(*bodies[0].find("FileID"), Value::integer(4711));
    ASSERT_NE(bodies[0].find("UserComputerID"), nullptr);
    EXPECT_TRUE(bodies[0].find("UserComputerID")->isNull());
}

TEST_F(SharedFiles, ASharedRenameStoresTheListBeforeTheRequestAndAgainWhenTheServerAccepts)
{
    renamedItem("1");
    FileReplacements replacements(root.string() + "/Preferences");
    firstPass();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(replacements.count(std::string(sharedDomain) + ".json"), 2u);
    EXPECT_EQ(entriesNamed(*storedSharedList(), "Team (Shared)/new.txt"), 1u);
}

TEST_F(SharedFiles, AFailedSharedRenameRequestKeepsTheStoredRenameAndIsNotSentAgain)
{
    addFault("drop", transferPath);
    renamedItem("1");
    FileReplacements replacements(root.string() + "/Preferences");
    firstPass();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_EQ(replacements.count(std::string(sharedDomain) + ".json"), 1u);
    EXPECT_EQ(entriesNamed(*storedSharedList(), "Team (Shared)/new.txt"), 1u);

    nextPass();
    waitForRequestsOfThePass(1);
    EXPECT_EQ(bodiesOf(transferPath).size(), 1u);
}

TEST_F(SharedFiles, AfterAPassAnEntryWhoseItemVanishedIsNoLongerInTheList)
{
    Value vanished = record({ { "FileName", path("Team (Shared)/gone.txt") }, { "FileID", "999999999" }, { "MyFile", "1" } });
    storeSharedList(Value::array({ sharedFolderRecord("Team (Shared)"), vanished }));
    firstPass();

    Value list = service->sharedFilesArray();
    EXPECT_EQ(entriesNamed(list, "Team (Shared)/gone.txt"), 0u);
    EXPECT_EQ(entriesNamed(list, "Team (Shared)"), 1u);
}

}
