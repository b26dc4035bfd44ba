#include "util/ServicesUtilities.h"

#include "platform/Exception.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>

using testsupport::readFile;
using testsupport::ScopedEnvironment;
using testsupport::TempDir;
using testsupport::writeFile;
using util::ServicesUtilities;

namespace fs = std::filesystem;

namespace {

ScopedEnvironment releaseNumber(const char* number) { return { "KORBANHOLD_APPKIT_VERSION", std::string(number) }; }

// The names in `folder`, sorted.
std::vector<std::string> namesIn(const fs::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}

// ---------------------------------------------------------------- OS version

TEST(ServicesUtilities, ReleaseNumbersAreRoundedDownBeforeTheyAreCompared)
{
    {
        const auto release = releaseNumber("1138.9");
        EXPECT_TRUE(ServicesUtilities::is10_7());
    }
    {
        const auto release = releaseNumber("1343.0");
        EXPECT_FALSE(ServicesUtilities::isLessThan10_10());
    }
    {
        const auto release = releaseNumber("1137.5");
        EXPECT_FALSE(ServicesUtilities::is10_7());
        EXPECT_FALSE(ServicesUtilities::isLessThan10_10());
    }
}

TEST(ServicesUtilities, ReleasesFrom10_7UpToBefore10_10AreLessThan10_10)
{
    for (const char* number : { "1138", "1138.9", "1265", "1342.99" }) {
        const auto release = releaseNumber(number);
        EXPECT_TRUE(ServicesUtilities::isLessThan10_10()) << number;
    }
}

TEST(ServicesUtilities, Only1138Is10_7)
{
    for (const char* number : { "1139", "1265", "1343", "1137.99" }) {
        const auto release = releaseNumber(number);
        EXPECT_FALSE(ServicesUtilities::is10_7()) << number;
    }
}

TEST(ServicesUtilities, ACurrentReleaseIsNeither10_7NorBelow10_10)
{
    ScopedEnvironment unset("KORBANHOLD_APPKIT_VERSION", std::nullopt);
    EXPECT_FALSE(ServicesUtilities::is10_7());
    EXPECT_FALSE(ServicesUtilities::isLessThan10_10());
}

// ---------------------------------------------------------------- Path conversion

TEST(ServicesUtilities, ConvertingARelativePathToWindowsDropsItsFirstCharacterEvenWhenItIsNotASlash)
{
    EXPECT_EQ(ServicesUtilities::convertPathToWindows("a/b"), "\\b");
}

TEST(ServicesUtilities, ConvertingAnAbsolutePathToWindowsDropsTheLeadingSlashAndUsesBackslashes)
{
    EXPECT_EQ(ServicesUtilities::convertPathToWindows("/Users/a/b.txt"), "Users\\a\\b.txt");
    EXPECT_EQ(ServicesUtilities::convertPathToWindows("/"), "");
    EXPECT_EQ(ServicesUtilities::convertPathToWindows("//a//"), "\\a\\\\");
}

TEST(ServicesUtilities, ConvertingAnEmptyPathToWindowsRaises)
{
    EXPECT_THROW(ServicesUtilities::convertPathToWindows(""), platform::Exception);
}

TEST(ServicesUtilities, ConvertingToWindowsDropsAWholeMultiByteFirstCharacter)
{
    EXPECT_EQ(ServicesUtilities::convertPathToWindows("\xC3\xA9/x"), "\\x");
}

TEST(ServicesUtilities, ConvertingToMacUsesSlashesAndPutsOneInFront)
{
    EXPECT_EQ(ServicesUtilities::convertPathToMac("Users\\a\\b.txt"), "/Users/a/b.txt");
    EXPECT_EQ(ServicesUtilities::convertPathToMac(""), "/");
    EXPECT_EQ(ServicesUtilities::convertPathToMac("\\a"), "//a");
}

TEST(ServicesUtilities, TheConversionsAreInverseForAbsolutePathsWithoutBackslashes)
{
    for (const char* path : { "/Users/a/Korbanhold/b c.txt", "/x", "/a/b/" })
        EXPECT_EQ(ServicesUtilities::convertPathToMac(ServicesUtilities::convertPathToWindows(path)), path);
}

// ---------------------------------------------------------------- Duplicates

TEST(ServicesUtilities, WithTwoNumberedCopiesPresentTheNextCopyIsNumberThree)
{
    TempDir folder;
    writeFile(folder / "report.txt", "original");
    writeFile(folder / "report 1.txt", "one");
    writeFile(folder / "report 2.txt", "two");
    const std::string copy = ServicesUtilities::checkDuplicateAndCreate((folder / "report.txt").string(), folder.string());
    EXPECT_EQ(copy, (folder / "report 3.txt").string());
    EXPECT_EQ(readFile(copy), "original");
    EXPECT_EQ(readFile(folder / "report 1.txt"), "one");
}

TEST(ServicesUtilities, WithOnlyNumberTwoPresentTheCopyTakesNumberOne)
{
    TempDir folder;
    writeFile(folder / "report.txt", "original");
    writeFile(folder / "report 2.txt", "two");
    const std::string copy = ServicesUtilities::checkDuplicateAndCreate((folder / "report.txt").string(), "");
    EXPECT_EQ(copy, (folder / "report 1.txt").string());
    EXPECT_EQ(readFile(copy), "original");
    EXPECT_EQ(readFile(folder / "report 2.txt"), "two");
}

TEST(ServicesUtilities, DuplicatingAFolderDropsItsExtensionAndCopiesEverythingInIt)
{
    TempDir folder;
    writeFile(folder / "Photos.old" / "a.jpg", "a");
    writeFile(folder / "Photos.old" / "trip" / "b.jpg", "b");
    fs::create_directory(folder / "Photos.old" / "empty");
    const std::string copy = ServicesUtilities::checkDuplicateAndCreate((folder / "Photos.old").string(), "");
    EXPECT_EQ(copy, (folder / "Photos 1").string());
    EXPECT_FALSE(fs::exists(folder / "Photos 1.old"));
    EXPECT_EQ(readFile(folder / "Photos 1" / "a.jpg"), "a");
    EXPECT_EQ(readFile(folder / "Photos 1" / "trip" / "b.jpg"), "b");
    EXPECT_TRUE(fs::is_directory(folder / "Photos 1" / "empty"));
}

TEST(ServicesUtilities, DuplicatingAPathWhereNothingExistsReturnsThePathAndCreatesNothing)
{
    TempDir folder;
    const std::string missing = (folder / "missing.txt").string();
    EXPECT_EQ(ServicesUtilities::checkDuplicateAndCreate(missing, folder.string()), missing);
    EXPECT_TRUE(namesIn(folder.path()).empty());
}

TEST(ServicesUtilities, AFileWithoutExtensionGetsTheBareNumberedName)
{
    TempDir folder;
    writeFile(folder / "notes", "n");
    EXPECT_EQ(ServicesUtilities::checkDuplicateAndCreate((folder / "notes").string(), ""), (folder / "notes 1").string());
    EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string> { "notes", "notes 1" }));
}

TEST(ServicesUtilities, ACopyOfAPathWithDoubledSlashesLandsInTheSameFolder)
{
    TempDir folder;
    writeFile(folder / "notes.txt", "n");
    const std::string doubled = folder.string() + "//notes.txt";
    EXPECT_EQ(ServicesUtilities::checkDuplicateAndCreate(doubled, ""), folder.string() + "/notes 1.txt");
    EXPECT_EQ(readFile(folder / "notes 1.txt"), "n");
}

TEST(ServicesUtilities, OnlyTheLastExtensionIsKeptApart)
{
    TempDir folder;
    writeFile(folder / "archive.tar.gz", "z");
    EXPECT_EQ(ServicesUtilities::checkDuplicateAndCreate((folder / "archive.tar.gz").string(), ""),
        (folder / "archive.tar 1.gz").string());
}

TEST(ServicesUtilities, ALeadingDotDoesNotStartAnExtension)
{
    TempDir folder;
    writeFile(folder / ".hidden", "h");
    EXPECT_EQ(ServicesUtilities::checkDuplicateAndCreate((folder / ".hidden").string(), ""),
        (folder / ".hidden 1").string());
}

TEST(ServicesUtilities, AFolderThatTakesTheNextNameIsSkippedLikeAFile)
{
    TempDir folder;
    writeFile(folder / "report.txt", "original");
    fs::create_directory(folder / "report 1.txt");
    EXPECT_EQ(ServicesUtilities::checkDuplicateAndCreate((folder / "report.txt").string(), ""),
        (folder / "report 2.txt").string());
}

TEST(ServicesUtilities, ACopyThatFailsTriesTheNextNumber)
{
    TempDir folder;
    writeFile(folder / "report.txt", "original");
    // "report 1.txt" cannot be made: a dangling link stands there, which the existence test does not see but the
    // copy cannot replace.
    fs::create_symlink(folder / "nowhere", folder / "report 1.txt");
    EXPECT_EQ(ServicesUtilities::checkDuplicateAndCreate((folder / "report.txt").string(), ""),
        (folder / "report 2.txt").string());
    EXPECT_EQ(readFile(folder / "report 2.txt"), "original");
}
