// The local lookups: whether a path lies in a shared folder, and what the shared-file records say about it.

#include "SyncFixture.h"

#include <cstdlib>
#include <regex>

using platform::Value;
using namespace synctest;

namespace {

class Lookups : public synctest::SyncFixture {
protected:
    Lookups()
    {
        firstPass();
    }
    ~Lookups() override { unsetenv("KORBANHOLD_APPKIT_VERSION"); }

    void shareRecords(std::initializer_list<Value> records) { service->setSharedFilesArray(Value::array(records)); }

    static Value sharedFolder(const std::string& name, const std::string& owner, const std::string& blocked)
    {
        return record({ { "FileName", name }, { "OwnerFileID", owner }, { "Blocked", blocked }, { "UserComputerMapID", "M-" + owner } });
    }
};

TEST_F(Lookups, TopLevelFolderNamedSharedInLowerCaseIsSharedOnlyBefore10_10)
{
    std::string item = path("Top (shared)/f.txt");
    setenv("KORBANHOLD_APPKIT_VERSION", "1265", 1); // 10.9
    EXPECT_TRUE(service->checkIfShared(item));
    setenv("KORBANHOLD_APPKIT_VERSION", "1343", 1); // 10.10
    EXPECT_FALSE(service->checkIfShared(item));
    EXPECT_TRUE(service->checkIfShared(path("Top (Shared)/f.txt")));
}

TEST_F(Lookups, TopLevelFolderWhoseNameOnlyContainsSharedIsShared)
{
    EXPECT_TRUE(service->checkIfShared(path("(Shared)x/f.txt")));
    EXPECT_TRUE(service->checkIfShared(path("my (Shared) things")));
}

TEST_F(Lookups, OnlyTheTopLevelNameCounts)
{
    EXPECT_FALSE(service->checkIfShared(path("Top/sub (Shared)/f.txt")));
    EXPECT_FALSE(service->checkIfShared(path("Top/f.txt")));
}

TEST_F(Lookups, SharedTestOfAPathOutsideTheSyncedFolderRaises)
{
    EXPECT_THROW(service->checkIfShared("/elsewhere/Top (Shared)/f.txt"), platform::Exception);
    EXPECT_THROW(service->checkIfShared(synced()), platform::Exception);
}

TEST_F(Lookups, OwnerActiveNeedsANonBlockedRecordOfThisUserForTheTopLevelFolder)
{
    std::string item = path("Top (Shared)/sub/f.txt");
    shareRecords({ sharedFolder(path("Top (Shared)"), "0", "0") });
    EXPECT_TRUE(service->checkIfOwnerActive(item));
    EXPECT_TRUE(service->checkIfSharedFolderActive(item));
}

TEST_F(Lookups, OwnerActiveIsFalseForABlockedFolderOrAnotherOwner)
{
    std::string item = path("Top (Shared)/f.txt");
    shareRecords({ sharedFolder(path("Top (Shared)"), "0", "1") });
    EXPECT_FALSE(service->checkIfOwnerActive(item));
    EXPECT_FALSE(service->checkIfSharedFolderActive(item));
    shareRecords({ sharedFolder(path("Top (Shared)"), "4711", "0") });
    EXPECT_FALSE(service->checkIfOwnerActive(item));
    EXPECT_TRUE(service->checkIfSharedFolderActive(item));
}

TEST_F(Lookups, SyncedFolderSettingEndingInASlashReachesOneLevelDeeper)
{
    std::string item = home() + "/Korbanhold/Top (Shared)/sub/f.txt";
    shareRecords({ sharedFolder(home() + "/Korbanhold/Top (Shared)/sub", "0", "0") });
    EXPECT_FALSE(service->checkIfOwnerActive(item));
    writeSettings({ { "korbanholdPathKey", Value(home() + "/") } });
    raiseStatus("0");
    service->SyncFile();
    shareRecords({ sharedFolder(home() + "/Korbanhold/Top (Shared)/sub", "0", "0") });
    EXPECT_TRUE(service->checkIfOwnerActive(item));
}

TEST_F(Lookups, TopLevelLookupsOfTheSyncedFolderItselfRaise)
{
    EXPECT_THROW(service->checkIfOwnerActive(synced()), platform::Exception);
    EXPECT_THROW(service->checkIfSharedFolderActive(synced()), platform::Exception);
    EXPECT_THROW(service->getUserComputerMapID(synced()), platform::Exception);
    EXPECT_THROW(service->getFullPath(synced()), platform::Exception);
}

TEST_F(Lookups, UserComputerMapIdComesFromTheFirstRecordOfTheParentFolder)
{
    shareRecords({ sharedFolder(path("Top (Shared)/sub"), "1", "0"), sharedFolder(path("Top (Shared)/sub"), "2", "0") });
    EXPECT_EQ(service->getUserComputerMapID(path("Top (Shared)/sub/f.txt")), Value("M-1"));
}

TEST_F(Lookups, UserComputerMapIdIsNullForAnItemWhoseParentHasNoRecord)
{
    shareRecords({ sharedFolder(path("Top (Shared)"), "1", "0") });
    EXPECT_FALSE(service->getUserComputerMapID(path("Top (Shared)/sub/f.txt")).has_value());
}

TEST_F(Lookups, FullPathHasFiveFieldsWithTheOwnerInPlaceOfTheTopLevelFolder)
{
    writeFile("Top (Shared)/f.txt", std::string(2048, 'f'));
    shareRecords({ sharedFolder(path("Top (Shared)"), "4711", "0") });
    std::string fullPath = service->getFullPath(path("Top (Shared)/f.txt"));
    EXPECT_TRUE(std::regex_match(fullPath, std::regex(R"(1\*4711\\f\.txt\*2\*\d\d-\d\d-\d{4} \d\d:\d\d:\d\d (AM|PM)\*1)")))
        << fullPath;
}

TEST_F(Lookups, FullPathOfAFolderHasTheFolderFlag)
{
    makeFolder("Top (Shared)/sub");
    shareRecords({ sharedFolder(path("Top (Shared)"), "4711", "0") });
    std::string fullPath = service->getFullPath(path("Top (Shared)/sub"));
    EXPECT_EQ(fullPath.substr(0, 11), "1*4711\\sub*");
    EXPECT_EQ(fullPath.back(), '0');
}

TEST_F(Lookups, FullPathOfAnItemThatCannotBeReadHasSizeZeroAndTheFolderFlag)
{
    shareRecords({ sharedFolder(path("Top (Shared)"), "4711", "0") });
    std::string fullPath = service->getFullPath(path("Top (Shared)/missing.txt"));
    EXPECT_EQ(fullPath.substr(0, 20), "1*4711\\missing.txt*0");
    EXPECT_EQ(fullPath.back(), '0');
}

TEST_F(Lookups, FullPathWithoutARecordForTheParentFolderRaises)
{
    writeFile("Top (Shared)/sub/f.txt", "f");
    shareRecords({ sharedFolder(path("Top (Shared)"), "4711", "0") });
    EXPECT_THROW(service->getFullPath(path("Top (Shared)/sub/f.txt")), platform::Exception);
}

}
