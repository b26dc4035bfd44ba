#include "platform/FileManager.h"

#include "support/LogCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using platform::DirectoryItem;
using platform::FileManager;
using platform::FileType;
using testsupport::TempDir;
using testsupport::writeFile;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> pathsOf(const std::vector<DirectoryItem>& items)
{
    std::vector<std::string> paths;
    for (const auto& item : items)
        paths.push_back(item.path);
    return paths;
}

std::vector<std::string> walk(const fs::path& base)
{
    return pathsOf(FileManager::subpathsAtPath(base.string()));
}

// An independent statement of the order: pre-order, each folder's names sorted as byte strings, links not entered.
void referenceWalk(const fs::path& folder, const std::string& prefix, std::vector<std::string>& out)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    for (const auto& name : names) {
        const std::string path = prefix.empty() ? name : prefix + "/" + name;
        out.push_back(path);
        if (fs::is_directory(fs::symlink_status(folder / name)))
            referenceWalk(folder / name, path, out);
    }
}

void makeFolder(const fs::path& path)
{
    fs::create_directories(path);
}

void setModificationTime(const fs::path& path, time_t seconds, long nanoseconds)
{
    const struct timespec times[2] = { { seconds, nanoseconds }, { seconds, nanoseconds } };
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

struct stat lstatOf(const fs::path& path)
{
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

// Creates a Unix domain socket at `path` (a socket file nobody listens on).
void bindSocket(const fs::path& path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.string().size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, path.c_str());
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
}

// As root, who may read every folder, hands `tree` to the user "nobody" and becomes that user.
void dropRootFor(const fs::path& tree)
{
    if (::geteuid() != 0)
        return;
    constexpr uid_t nobody = 65534;
    for (const auto& entry : fs::recursive_directory_iterator(tree))
        (void)::lchown(entry.path().c_str(), nobody, nobody);
    (void)::lchown(tree.c_str(), nobody, nobody);
    if (::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
        std::perror("cannot become nobody");
        std::exit(2);
    }
}

// Runs `check` in a child process that permission bits really bind, also when the tests run as root. `check`
// returns what went wrong, or "" when all is well; the child prints it and removes `tree`.
void expectUnprivileged(const fs::path& tree, const std::function<std::string()>& check)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            dropRootFor(tree);
            const std::string failures = check();
            std::fprintf(stderr, "%s\n", failures.c_str());
            std::error_code ignored;
            fs::remove_all(tree, ignored);
            std::exit(failures.empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}

TEST(FileManagerWalk, AFolderComesRightBeforeItsContentsAndEachFoldersItemsAreInByteOrder)
{
    TempDir dir;
    writeFile(dir / "b.txt", "b");
    writeFile(dir / "a/z.txt", "z");
    writeFile(dir / "a/b/c.txt", "c");
    makeFolder(dir / "a/b/empty");
    // "a.txt" sorts between "a" and "a/..." as a whole path ('.' < '/'), but the folder's contents come first.
    writeFile(dir / "a.txt", "a");
    writeFile(dir / "a-b", "dash");

    EXPECT_EQ(walk(dir.path()),
        (std::vector<std::string> { "a", "a/b", "a/b/c.txt", "a/b/empty", "a/z.txt", "a-b", "a.txt", "b.txt" }));
}

TEST(FileManagerWalk, NamesAreOrderedByTheirBytesNotByTheLocale)
{
    TempDir dir;
    for (const char* name : { "e", "B", "\xC3\xA4", "a", "_x", "Z", "\xC3\x89t\xC3\xA9", "10", "9", "A" })
        writeFile(dir / name, "");
    // A locale would put a, ä, B, e, Été together; bytes put upper case first and UTF-8 letters last.
    EXPECT_EQ(walk(dir.path()),
        (std::vector<std::string> { "10", "9", "A", "B", "Z", "_x", "a", "e", "\xC3\x89t\xC3\xA9", "\xC3\xA4" }));
}

TEST(FileManagerWalk, HiddenItemsAreIncludedAtAnyDepth)
{
    TempDir dir;
    writeFile(dir / ".DS_Store", "");
    writeFile(dir / "folder/.hidden", "");
    writeFile(dir / ".git/config", "");
    writeFile(dir / "visible", "");
    EXPECT_EQ(walk(dir.path()),
        (std::vector<std::string> { ".DS_Store", ".git", ".git/config", "folder", "folder/.hidden", "visible" }));
}

TEST(FileManagerWalk, SymbolicLinksAreListedButNeverFollowed)
{
    TempDir dir;
    TempDir outside;
    writeFile(outside / "secret.txt", "x");
    writeFile(dir / "inner/file.txt", "x");
    fs::create_directory_symlink(outside.path(), dir / "link-to-outside");
    fs::create_directory_symlink("inner", dir / "link-to-inner");
    fs::create_symlink("inner/file.txt", dir / "link-to-file");
    fs::create_symlink("nowhere", dir / "broken-link");

    const auto items = FileManager::subpathsAtPath(dir.string());
    EXPECT_EQ(pathsOf(items),
        (std::vector<std::string> {
            "broken-link", "inner", "inner/file.txt", "link-to-file", "link-to-inner", "link-to-outside" }));
    for (const auto& item : items) {
        ASSERT_TRUE(item.attributes) << item.path;
        if (item.path.starts_with("link") || item.path == "broken-link") {
            EXPECT_EQ(item.attributes->type, FileType::SymbolicLink) << item.path;
        }
    }
}

TEST(FileManagerWalk, ASymbolicLinkAsTheBaseIsFollowed)
{
    TempDir dir;
    writeFile(dir / "real/file.txt", "x");
    fs::create_directory_symlink(dir / "real", dir / "base");
    EXPECT_EQ(walk(dir / "base"), (std::vector<std::string> { "file.txt" }));
}

TEST(FileManagerWalk, AnUnreadableFolderIsListedButNotEnteredWithOneLogLine)
{
    TempDir dir;
    writeFile(dir / "a.txt", "");
    writeFile(dir / "locked/inside.txt", "");
    writeFile(dir / "locked/deeper/more.txt", "");
    writeFile(dir / "z.txt", "");
    const fs::path base = dir.path();
    expectUnprivileged(base, [&] {
            fs::permissions(base / "locked", fs::perms::none);
            testsupport::LogCapture logs;
            const auto items = FileManager::subpathsAtPath(base.string());
            fs::permissions(base / "locked", fs::perms::owner_all);
            std::string failures;
            if (pathsOf(items) != std::vector<std::string> { "a.txt", "locked", "z.txt" })
                failures += "wrong items; ";
            if (items.size() == 3 && (!items[1].attributes || items[1].attributes->type != FileType::Directory))
                failures += "the locked folder lacks its attributes; ";
            if (logs.lines().size() != 1 || logs.countStartingWith("Cannot enter folder " + base.string() + "/locked: ") != 1)
                failures += "expected exactly one log line about the locked folder; ";
            return failures;
        });
}

TEST(FileManagerWalk, ItemsOfAFolderThatCanBeListedButNotSearchedComeWithoutAttributes)
{
    TempDir dir;
    writeFile(dir / "listed/one.txt", "");
    writeFile(dir / "listed/two.txt", "");
    const fs::path base = dir.path();
    expectUnprivileged(base, [&] {
            fs::permissions(base / "listed", fs::perms::owner_read);
            const auto items = FileManager::subpathsAtPath(base.string());
            fs::permissions(base / "listed", fs::perms::owner_all);
            std::string failures;
            if (pathsOf(items) != std::vector<std::string> { "listed", "listed/one.txt", "listed/two.txt" })
                failures += "wrong items; ";
            for (const auto& item : items) {
                if (item.path != "listed" && item.attributes)
                    failures += item.path + " has attributes; ";
            }
            return failures;
        });
}

TEST(FileManagerWalk, ABaseThatDoesNotExistOrIsNoFolderGivesNoItemsAndNoLogLine)
{
    TempDir dir;
    writeFile(dir / "file", "x");
    testsupport::LogCapture logs;
    EXPECT_TRUE(FileManager::subpathsAtPath((dir / "missing").string()).empty());
    EXPECT_TRUE(FileManager::subpathsAtPath((dir / "missing/Korbanhold").string()).empty());
    EXPECT_TRUE(FileManager::subpathsAtPath((dir / "file").string()).empty());
    EXPECT_TRUE(FileManager::subpathsAtPath("").empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST(FileManagerWalk, AnEmptyFolderGivesNoItems)
{
    TempDir dir;
    EXPECT_TRUE(FileManager::subpathsAtPath(dir.string()).empty());
}

TEST(FileManagerWalk, EachItemComesWithTheAttributesThatAReadOfItsPathGives)
{
    TempDir dir;
    writeFile(dir / "folder/file.txt", std::string(1536, 'x'));
    writeFile(dir / "folder/sub/empty", "");
    fs::create_symlink("file.txt", dir / "folder/link");
    setModificationTime(dir / "folder/file.txt", 1'700'000'000, 123'456'789);

    const auto items = FileManager::subpathsAtPath(dir.string());
    ASSERT_EQ(items.size(), 5u);
    for (const auto& item : items) {
        const auto read = FileManager::attributesOfItemAtPath((dir / item.path).string());
        ASSERT_TRUE(item.attributes) << item.path;
        ASSERT_TRUE(read) << item.path;
        EXPECT_EQ(*item.attributes, *read) << item.path;
        EXPECT_EQ(item.attributes->fileNumber, lstatOf(dir / item.path).st_ino) << item.path;
    }
    EXPECT_EQ(items[1].path, "folder/file.txt");
    EXPECT_EQ(items[1].attributes->size, 1536u);
    EXPECT_NEAR(items[1].attributes->modificationDate, 1'700'000'000.123456789, 1e-6);
}

TEST(FileManagerWalk, AFolderLargerThanOneReadBufferIsListedWholeAndInOrder)
{
    TempDir dir;
    std::vector<std::string> expected;
    for (int i = 0; i < 3000; ++i) {
        const std::string name = "a-rather-long-file-name-to-fill-the-buffer-" + std::to_string(i * 7919 % 3000);
        writeFile(dir / name, "");
        expected.push_back(name);
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(walk(dir.path()), expected);
}

TEST(FileManagerWalk, ARandomTreeIsWalkedInTheSameOrderEveryTime)
{
    const unsigned seed = std::random_device {}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    TempDir dir;
    std::vector<fs::path> folders { dir.path() };
    for (int i = 0; i < 400; ++i) {
        const fs::path& parent = folders[random() % folders.size()];
        const std::string name = std::string(1, "aAbB._-~zZ"[random() % 10]) + std::to_string(random() % 50);
        if (fs::exists(fs::symlink_status(parent / name)))
            continue;
        switch (random() % 4) {
        case 0:
            makeFolder(parent / name);
            folders.push_back(parent / name);
            break;
        case 1: fs::create_symlink("..", parent / name); break;
        default: writeFile(parent / name, std::string(random() % 100, 'x')); break;
        }
    }
    std::vector<std::string> expected;
    referenceWalk(dir.path(), "", expected);
    for (int run = 0; run < 5; ++run)
        EXPECT_EQ(walk(dir.path()), expected);
}

TEST(FileManagerAttributes, TypeNamesAreTheFrameworksNames)
{
    EXPECT_EQ(platform::fileTypeName(FileType::Directory), "NSFileTypeDirectory");
    EXPECT_EQ(platform::fileTypeName(FileType::Regular), "NSFileTypeRegular");
    EXPECT_EQ(platform::fileTypeName(FileType::SymbolicLink), "NSFileTypeSymbolicLink");
    EXPECT_EQ(platform::fileTypeName(FileType::Socket), "NSFileTypeSocket");
    EXPECT_EQ(platform::fileTypeName(FileType::CharacterSpecial), "NSFileTypeCharacterSpecial");
    EXPECT_EQ(platform::fileTypeName(FileType::BlockSpecial), "NSFileTypeBlockSpecial");
    EXPECT_EQ(platform::fileTypeName(FileType::Unknown), "NSFileTypeUnknown");
}

TEST(FileManagerAttributes, ARegularFileHasItsInodeSizeInBytesAndNanosecondDate)
{
    TempDir dir;
    writeFile(dir / "file.bin", std::string(511, 'x'));
    setModificationTime(dir / "file.bin", 1'600'000'000, 987'654'321);
    const auto attributes = FileManager::attributesOfItemAtPath((dir / "file.bin").string());
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->type, FileType::Regular);
    EXPECT_EQ(attributes->typeName(), "NSFileTypeRegular");
    EXPECT_EQ(attributes->size, 511u);
    EXPECT_EQ(attributes->fileNumber, lstatOf(dir / "file.bin").st_ino);
    EXPECT_NEAR(attributes->modificationDate, 1'600'000'000.987654321, 1e-6);
    EXPECT_NE(attributes->modificationDate, 1'600'000'000.0);
}

TEST(FileManagerAttributes, AFolderHasTheSizeTheFileSystemReports)
{
    TempDir dir;
    makeFolder(dir / "folder");
    const auto attributes = FileManager::attributesOfItemAtPath((dir / "folder").string());
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->typeName(), "NSFileTypeDirectory");
    EXPECT_EQ(attributes->size, std::uint64_t(lstatOf(dir / "folder").st_size));
}

TEST(FileManagerAttributes, ASymbolicLinkIsDescribedItselfNotItsTarget)
{
    TempDir dir;
    writeFile(dir / "target.txt", std::string(5000, 'x'));
    fs::create_symlink("target.txt", dir / "link");
    fs::create_symlink("missing-target", dir / "broken");
    const auto link = FileManager::attributesOfItemAtPath((dir / "link").string());
    ASSERT_TRUE(link);
    EXPECT_EQ(link->typeName(), "NSFileTypeSymbolicLink");
    EXPECT_EQ(link->size, std::string("target.txt").size());
    EXPECT_EQ(link->fileNumber, lstatOf(dir / "link").st_ino);
    const auto broken = FileManager::attributesOfItemAtPath((dir / "broken").string());
    ASSERT_TRUE(broken);
    EXPECT_EQ(broken->typeName(), "NSFileTypeSymbolicLink");
}

TEST(FileManagerAttributes, SocketsPipesAndDevicesHaveTheirTypeNames)
{
    TempDir dir;
    const fs::path socketPath = dir / "socket";
    bindSocket(socketPath);
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);

    auto typeNameAt = [](const fs::path& path) {
        const auto attributes = FileManager::attributesOfItemAtPath(path.string());
        return attributes ? std::string(attributes->typeName()) : "(absent)";
    };
    EXPECT_EQ(typeNameAt(socketPath), "NSFileTypeSocket");
    EXPECT_EQ(typeNameAt(dir / "pipe"), "NSFileTypeUnknown");
    EXPECT_EQ(typeNameAt("/dev/null"), "NSFileTypeCharacterSpecial");

    std::optional<fs::path> blockDevice;
    for (const auto& entry : fs::directory_iterator("/dev")) {
        if (entry.is_block_file() && !entry.is_symlink()) {
            blockDevice = entry.path();
            break;
        }
    }
    if (!blockDevice)
        GTEST_SKIP() << "no block device under /dev to read the type of";
    EXPECT_EQ(typeNameAt(*blockDevice), "NSFileTypeBlockSpecial");
}

TEST(FileManagerAttributes, AnItemRemovedAfterItWasListedHasNoAttributes)
{
    TempDir dir;
    writeFile(dir / "vanishing.txt", "x");
    const auto items = FileManager::subpathsAtPath(dir.string());
    ASSERT_EQ(pathsOf(items), std::vector<std::string> { "vanishing.txt" });
    fs::remove(dir / "vanishing.txt");
    EXPECT_FALSE(FileManager::attributesOfItemAtPath((dir / items[0].path).string()));
}

TEST(FileManagerExistence, FilesFoldersAndWorkingLinksExistButABrokenLinkDoesNot)
{
    TempDir dir;
    writeFile(dir / "file", "x");
    makeFolder(dir / "folder");
    fs::create_symlink("file", dir / "link-to-file");
    fs::create_directory_symlink("folder", dir / "link-to-folder");
    fs::create_symlink("missing", dir / "broken-link");
    EXPECT_TRUE(FileManager::fileExistsAtPath((dir / "file").string()));
    EXPECT_TRUE(FileManager::fileExistsAtPath((dir / "folder").string()));
    EXPECT_TRUE(FileManager::fileExistsAtPath((dir / "link-to-file").string()));
    EXPECT_TRUE(FileManager::fileExistsAtPath((dir / "link-to-folder").string()));
    EXPECT_FALSE(FileManager::fileExistsAtPath((dir / "broken-link").string()));
    EXPECT_FALSE(FileManager::fileExistsAtPath((dir / "missing").string()));
    EXPECT_FALSE(FileManager::fileExistsAtPath(""));
    // The broken link itself is still an item with attributes.
    EXPECT_TRUE(FileManager::attributesOfItemAtPath((dir / "broken-link").string()));
}

TEST(FileManagerCopy, AFileIsCopiedWithItsContentsPermissionsAndDate)
{
    TempDir dir;
    writeFile(dir / "source.txt", "contents of the file");
    fs::permissions(dir / "source.txt", fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    setModificationTime(dir / "source.txt", 1'500'000'000, 250'000'000);

    ASSERT_TRUE(FileManager::copyItemAtPath((dir / "source.txt").string(), (dir / "copy.txt").string()));
    EXPECT_EQ(testsupport::readFile(dir / "copy.txt"), "contents of the file");
    const auto source = lstatOf(dir / "source.txt");
    const auto copy = lstatOf(dir / "copy.txt");
    EXPECT_EQ(copy.st_mode, source.st_mode);
    EXPECT_NE(copy.st_ino, source.st_ino);
    EXPECT_EQ(copy.st_mtim.tv_sec, 1'500'000'000);
    EXPECT_EQ(copy.st_mtim.tv_nsec, 250'000'000);
}

TEST(FileManagerCopy, AFolderIsCopiedWholeWithHiddenItemsAndLinksAsLinks)
{
    TempDir dir;
    writeFile(dir / "source/a.txt", "a");
    writeFile(dir / "source/.hidden", "h");
    writeFile(dir / "source/sub/deeper/b.txt", "b");
    makeFolder(dir / "source/empty");
    fs::create_symlink("../a.txt", dir / "source/sub/link");
    ASSERT_EQ(::mkfifo((dir / "source/pipe").c_str(), 0600), 0);

    ASSERT_TRUE(FileManager::copyItemAtPath((dir / "source").string(), (dir / "copy").string()));
    EXPECT_EQ(walk(dir / "copy"), walk(dir / "source"));
    EXPECT_EQ(testsupport::readFile(dir / "copy/sub/deeper/b.txt"), "b");
    EXPECT_EQ(testsupport::readFile(dir / "copy/.hidden"), "h");
    EXPECT_TRUE(fs::is_symlink(dir / "copy/sub/link"));
    EXPECT_EQ(fs::read_symlink(dir / "copy/sub/link"), "../a.txt");
    EXPECT_EQ(FileManager::attributesOfItemAtPath((dir / "copy/pipe").string())->type, FileType::Unknown);
}

TEST(FileManagerCopy, CopyingOntoAnExistingItemFailsAndLeavesItAlone)
{
    TempDir dir;
    writeFile(dir / "source.txt", "new");
    writeFile(dir / "existing.txt", "old");
    fs::create_symlink("missing", dir / "broken-link");
    writeFile(dir / "folder/kept.txt", "kept");

    platform::Error error;
    EXPECT_FALSE(FileManager::copyItemAtPath((dir / "source.txt").string(), (dir / "existing.txt").string(), &error));
    EXPECT_EQ(error.code, EEXIST);
    EXPECT_EQ(testsupport::readFile(dir / "existing.txt"), "old");
    EXPECT_FALSE(FileManager::copyItemAtPath((dir / "source.txt").string(), (dir / "broken-link").string()));
    EXPECT_TRUE(fs::is_symlink(dir / "broken-link"));
    EXPECT_FALSE(FileManager::copyItemAtPath((dir / "source.txt").string(), (dir / "folder").string()));
    EXPECT_EQ(walk(dir / "folder"), std::vector<std::string> { "kept.txt" });
}

TEST(FileManagerCopy, CopyingAMissingItemOrIntoAMissingFolderFails)
{
    TempDir dir;
    writeFile(dir / "source.txt", "x");
    platform::Error error;
    EXPECT_FALSE(FileManager::copyItemAtPath((dir / "missing").string(), (dir / "copy").string(), &error));
    EXPECT_EQ(error.code, ENOENT);
    EXPECT_FALSE(FileManager::copyItemAtPath((dir / "source.txt").string(), (dir / "no/such/folder").string()));
    EXPECT_FALSE(fs::exists(dir / "copy"));
}

TEST(FileManagerCopy, AFolderCopyThatFailsPartWayIsRemovedAgain)
{
    TempDir dir;
    writeFile(dir / "source/a.txt", "a");
    writeFile(dir / "source/b/c.txt", "c");
    // A socket cannot be copied, so the copy fails after it has begun.
    bindSocket(dir / "source/zz-socket");

    platform::Error error;
    EXPECT_FALSE(FileManager::copyItemAtPath((dir / "source").string(), (dir / "copy").string(), &error));
    EXPECT_EQ(error.code, ENOTSUP);
    EXPECT_FALSE(fs::exists(fs::symlink_status(dir / "copy")));
}
