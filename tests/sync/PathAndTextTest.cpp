// The small text rules of records and paths.

#include "sync/FolderScan.h"
#include "sync/PathText.h"
#include "sync/RecordValues.h"

#include <gtest/gtest.h>

namespace {

using namespace engine;

TEST(RecordTexts, SizeIsKilobytesRoundedHalfAwayFromZero)
{
    EXPECT_EQ(fileSizeText(0), "0");
    EXPECT_EQ(fileSizeText(511), "0");
    EXPECT_EQ(fileSizeText(512), "1");
    EXPECT_EQ(fileSizeText(1536), "2");
    EXPECT_EQ(fileSizeText(1535), "1");
    EXPECT_EQ(fileSizeText(4096), "4");
}

TEST(RecordTexts, SizeIsTruncatedToThirtyTwoBits)
{
    EXPECT_EQ(fileSizeText(2147483647ull * 1024), "2147483647");
    EXPECT_EQ(fileSizeText(2147483648ull * 1024), "-2147483648");
}

TEST(RecordTexts, OnlyAFolderIsNotAFile)
{
    EXPECT_EQ(isFileText(true), "0");
    EXPECT_EQ(isFileText(false), "1");
}

TEST(RecordTexts, ServerIdentifierCleaning)
{
    platform::Value null, empty(""), id("F-1"), number = platform::Value::integer(3);
    EXPECT_EQ(cleanedFileID(nullptr), platform::Value(""));
    EXPECT_EQ(cleanedFileID(&null), platform::Value(""));
    EXPECT_EQ(cleanedFileID(&empty), platform::Value(""));
    EXPECT_EQ(cleanedFileID(&id), platform::Value("F-1"));
    EXPECT_EQ(cleanedFileID(&number), number);
}

TEST(RecordTexts, DateTextOfOneSecondIsFormattedOnceAndIgnoresFractions)
{
    ModifiedDateTexts dates;
    const std::string& first = dates.text(1700000000.25);
    EXPECT_EQ(&dates.text(1700000000.75), &first);
    EXPECT_EQ(first.size(), 19u);
    EXPECT_NE(dates.text(1700000001.0), first);
}

TEST(NameCharacters, TheAllowedLiteralIsKeptLetterForLetter)
{
    EXPECT_EQ(allowedNameCharacters,
        "+_-'/,%$@!`^&={}[];.()abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLKMNOPQRSTUVWXYZ0123456789 ");
    EXPECT_FALSE(hasIllegalCharacters("Top (Shared)/a b/c-d_e+f,g%h$i@j!k`l^m&n=o{p}q[r];s.t'u"));
    EXPECT_TRUE(hasIllegalCharacters("a#b"));
    EXPECT_TRUE(hasIllegalCharacters("a\tb"));
    EXPECT_TRUE(hasIllegalCharacters("caf\xc3\xa9"));
    EXPECT_TRUE(hasIllegalCharacters("a~b"));
    EXPECT_TRUE(hasIllegalCharacters("a:b"));
}

TEST(FileNumberTexts, OnlyTheWalksDecimalFormStandsForAFileNumber)
{
    EXPECT_EQ(parseFileNumberText("12345"), 12345u);
    EXPECT_EQ(parseFileNumberText("0"), 0u);
    EXPECT_EQ(parseFileNumberText("18446744073709551615"), 18446744073709551615ull);
    EXPECT_FALSE(parseFileNumberText("012"));
    EXPECT_FALSE(parseFileNumberText("+12"));
    EXPECT_FALSE(parseFileNumberText("-12"));
    EXPECT_FALSE(parseFileNumberText("12a"));
    EXPECT_FALSE(parseFileNumberText(""));
    EXPECT_FALSE(parseFileNumberText("18446744073709551616"));
}

TEST(PathText, LastComponentAndParentFollowThePathRules)
{
    EXPECT_EQ(lastPathComponent("/tmp/scratch.tiff"), "scratch.tiff");
    EXPECT_EQ(lastPathComponent("/tmp/lock/"), "lock");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(lastPathComponent("scratch"), "scratch");
    EXPECT_EQ(deletingLastPathComponent("/tmp/scratch.tiff"), "/tmp");
    EXPECT_EQ(deletingLastPathComponent("/tmp/lock/"), "/tmp");
    EXPECT_EQ(deletingLastPathComponent("/tmp"), "/");
    EXPECT_EQ(deletingLastPathComponent("scratch.tiff"), "");
    EXPECT_EQ(deletingLastPathComponent("/a//b"), "/a");
}

TEST(PathText, TopLevelItemPathTakesAsManyPartsAsTheSyncedFolderHas)
{
    EXPECT_EQ(topLevelItemPath("/Users/u/Korbanhold", "/Users/u/Korbanhold/Top/sub/f.txt"), "/Users/u/Korbanhold/Top");
    EXPECT_EQ(topLevelItemPath("/Users/u//Korbanhold", "/Users/u/Korbanhold/Top/sub/f.txt"), "/Users/u/Korbanhold/Top/sub");
    EXPECT_THROW(topLevelItemPath("/Users/u/Korbanhold", "/Users/u/Korbanhold"), platform::Exception);
}

}

namespace {

TEST(FolderWalk, ItemWithoutAttributesRaisesAsStoringItsAbsentFileNumberDoes)
{
    std::vector<platform::DirectoryItem> items {
        { "a.txt", platform::FileAttributes { 11, platform::FileType::Regular, 1, 0 } },
        { "b.txt", std::nullopt },
    };
    try {
        engine::FolderScan::fromItems("/base", std::move(items));
        FAIL() << "no exception";
    } catch (const platform::Exception& exception) {
        EXPECT_EQ(exception.reason(), "*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: BaseSystemFileIDKey)");
    }
}

TEST(FolderWalk, SkippedNamesNeedNoAttributes)
{
    std::vector<platform::DirectoryItem> items {
        { "a#.txt", std::nullopt },
        { ".DS_Store", std::nullopt },
        { "x/.DS_Store", std::nullopt },
        { "b.txt", platform::FileAttributes { 12, platform::FileType::Regular, 1, 0 } },
    };
    auto scan = engine::FolderScan::fromItems("/base", std::move(items));
    ASSERT_EQ(scan.count(), 1u);
    EXPECT_EQ(scan.pathAt(0), "/base/b.txt");
}

TEST(FolderWalk, ItemsSharingAFileNumberPointToTheFirst)
{
    std::vector<platform::DirectoryItem> items {
        { "a", platform::FileAttributes { 7, platform::FileType::Regular, 1, 0 } },
        { "b", platform::FileAttributes { 8, platform::FileType::Directory, 1, 0 } },
        { "c", platform::FileAttributes { 7, platform::FileType::Regular, 1, 0 } },
    };
    auto scan = engine::FolderScan::fromItems("/base", std::move(items));
    EXPECT_EQ(scan.firstIndexAt(2), 0u);
    EXPECT_EQ(scan.firstIndexAt(1), 1u);
    EXPECT_EQ(*scan.firstIndexOf(7), 0u);
}

}
