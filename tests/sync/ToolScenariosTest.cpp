// Changes made with ordinary tools, run as processes, checked record by record and table entry by table entry.

#include "SyncFixture.h"

#include <sys/stat.h>

using platform::Value;
using namespace synctest;

namespace {

class ToolScenarios : public synctest::SyncFixture {
protected:
    void settle()
    {
        firstPass();
        acceptReport();
    }

    static Value inOrder(std::initializer_list<std::pair<std::string, std::string>> fields)
    {
        Value result = Value::dictionary();
        for (const auto& [key, value] : fields)
            result.setObject(Value(value), key);
        return result;
    }

    std::string isFile(const std::string& relative) const
    {
        struct stat info {};
        lstat(path(relative).c_str(), &info);
        return S_ISDIR(info.st_mode) ? "0" : "1";
    }

    std::string size(const std::string& relative) const
    {
        struct stat info {};
        lstat(path(relative).c_str(), &info);
        return std::to_string(static_cast<int>(std::round(static_cast<double>(info.st_size) / 1024.0)));
    }

    Value created(const std::string& relative) const
    {
        return inOrder({ { "BaseSystemFileIDKey", fileNumber(relative) }, { "BaseSystemFilePathKey", path(relative) },
            { "removeKey", "0" }, { "changeTypeKey", "Created" }, { "oldPathKey", "" }, { "isFilekey", isFile(relative) },
            { "fileSizeKey", size(relative) }, { "FileIDKey", "" }, { "computerIDKey", "C-7" },
            { "filemodifiedDateKey", modifiedDate(relative) } });
    }

    static Value deleted(const Value& entry)
    {
        return inOrder({ { "BaseSystemFileIDKey", text(entry, "BaseSystemFileIDKey") },
            { "BaseSystemFilePathKey", text(entry, "BaseSystemFilePathKey") }, { "changeTypeKey", "Deleted" },
            { "oldPathKey", "" }, { "isFilekey", text(entry, "isFilekey") }, { "fileSizeKey", text(entry, "fileSizeKey") },
            { "computerIDKey", "C-7" }, { "FileIDKey", text(entry, "FileIDKey") },
            { "filemodifiedDateKey", text(entry, "filemodifiedDateKey") } });
    }

    static Value movedAway(const Value& entry, const std::string& removeMark)
    {
        return inOrder({ { "BaseSystemFileIDKey", text(entry, "BaseSystemFileIDKey") },
            { "BaseSystemFilePathKey", text(entry, "BaseSystemFilePathKey") }, { "oldPathKey", text(entry, "oldPathKey") },
            { "isFilekey", text(entry, "isFilekey") }, { "fileSizeKey", text(entry, "fileSizeKey") },
            { "filemodifiedDateKey", text(entry, "filemodifiedDateKey") }, { "FileIDKey", text(entry, "FileIDKey") },
            { "changeTypeKey", "Deleted" }, { "removeKey", removeMark }, { "computerIDKey", "C-7" } });
    }

    Value renamed(const Value& entry, const std::string& newRelative) const
    {
        return inOrder({ { "BaseSystemFileIDKey", text(entry, "BaseSystemFileIDKey") },
            { "BaseSystemFilePathKey", path(newRelative) }, { "oldPathKey", text(entry, "BaseSystemFilePathKey") },
            { "changeTypeKey", "Renamed" }, { "removeKey", "0" }, { "isFilekey", text(entry, "isFilekey") },
            { "fileSizeKey", text(entry, "fileSizeKey") }, { "filemodifiedDateKey", text(entry, "filemodifiedDateKey") },
            { "FileIDKey", text(entry, "FileIDKey") }, { "computerIDKey", "C-7" } });
    }

    // An unchanged entry as the pass leaves it: refreshed, marked seen.
    static Value seen(const Value& entry)
    {
        return inOrder({ { "BaseSystemFileIDKey", text(entry, "BaseSystemFileIDKey") },
            { "BaseSystemFilePathKey", text(entry, "BaseSystemFilePathKey") }, { "changeTypeKey", text(entry, "changeTypeKey") },
            { "oldPathKey", text(entry, "oldPathKey") }, { "isFilekey", text(entry, "isFilekey") },
            { "fileSizeKey", text(entry, "fileSizeKey") }, { "filemodifiedDateKey", text(entry, "filemodifiedDateKey") },
            { "FileIDKey", text(entry, "FileIDKey") }, { "computerIDKey", "C-7" }, { "removeKey", "0" } });
    }

    static void expectRecords(const Value& actual, const std::vector<Value>& expected)
    {
        ASSERT_EQ(actual.count(), expected.size()) << actual.description();
        for (std::size_t index = 0; index < expected.size(); ++index) {
            EXPECT_EQ(actual.at(index), expected[index]) << "record " << index;
            EXPECT_EQ(keysOf(actual.at(index)), keysOf(expected[index])) << "record " << index;
        }
    }

    Value before(const std::string& relative) const { return entryWithPath(*storedTable(), path(relative)); }
};

TEST_F(ToolScenarios, CopyOfAFileIsOneCreatedRecord)
{
    writeFile("a.txt", "content");
    settle();
    Value a = before("a.txt");
    sh("cp a.txt b.txt");
    nextPass();
    expectRecords(changes(), { created("b.txt") });
    expectRecords(table(), { seen(a), created("b.txt") });
}

TEST_F(ToolScenarios, EditInPlaceWithSedIsOneModifiedRecordCarryingTheOldServerIdentifier)
{
    writeFile("a.txt", "old text\n");
    settle();
    Value a = before("a.txt");
    sh("sed -i 's/old/new/' a.txt");
    nextPass();
    Value modified = created("a.txt");
    modified.setObject(Value("Modified"), "changeTypeKey");
    modified.setObject(Value(text(a, "FileIDKey")), "FileIDKey");
    expectRecords(changes(), { modified });
    expectRecords(table(), { modified });
}

TEST_F(ToolScenarios, MvInsideOneFolderIsOneRenamedRecord)
{
    writeFile("a.txt", "a");
    writeFile("c.txt", "c");
    settle();
    Value a = before("a.txt"), c = before("c.txt");
    sh("mv a.txt b.txt");
    nextPass();
    expectRecords(changes(), { renamed(a, "b.txt") });
    expectRecords(table(), { renamed(a, "b.txt"), seen(c) });
}

TEST_F(ToolScenarios, MvToAnotherFolderIsDeletedThenCreated)
{
    makeFolder("x");
    makeFolder("y");
    writeFile("x/a.txt", "a");
    settle();
    Value x = before("x"), a = before("x/a.txt"), y = before("y");
    sh("mv x/a.txt y/");
    nextPass();
    expectRecords(changes(), { movedAway(a, "0"), created("y/a.txt") });
    expectRecords(table(), { seen(x), seen(y), created("y/a.txt") });
}

TEST_F(ToolScenarios, RenamedFolderWithChildren)
{
    useStrictMode();
    makeFolder("docs/inner");
    writeFile("docs/a.txt", "a");
    settle();
    Value docs = before("docs"), a = before("docs/a.txt"), inner = before("docs/inner");
    sh("mv docs papers");
    nextPass();
    // Table order: docs, docs/a.txt, docs/inner. The folder is renamed in place; its first child moves (and its
    // entry leaves the table), so the second child's lookup lands on the entry created for the first.
    expectRecords(changes(), { renamed(docs, "papers"), movedAway(a, "0"), created("papers/a.txt"), deleted(inner) });
    Value createdA = created("papers/a.txt");
    expectRecords(table(), { renamed(docs, "papers"), seen(createdA) });
}

TEST_F(ToolScenarios, RecursiveRemovalOfAFolderDeletesItAndEveryItemInItInTableOrder)
{
    writeFile("docs/a.txt", "a");
    writeFile("docs/sub/b.txt", "b");
    writeFile("z.txt", "z");
    settle();
    Value docs = before("docs"), a = before("docs/a.txt"), sub = before("docs/sub"), b = before("docs/sub/b.txt"),
          z = before("z.txt");
    sh("rm -r docs");
    nextPass();
    expectRecords(changes(), { deleted(docs), deleted(a), deleted(sub), deleted(b) });
    expectRecords(table(), { seen(z) });
}

TEST_F(ToolScenarios, ExtractedArchiveIsCreatedItemByItemWithTheArchivedDates)
{
    std::string source = root.string() + "/source";
    testsupport::writeFile(source + "/album/one.txt", std::string(3000, '1'));
    testsupport::writeFile(source + "/album/two.txt", "2");
    testsupport::writeFile(source + "/readme", "r");
    sh("touch -d '2019-07-08 20:30:40' '" + source + "/album/one.txt' && tar -cf '" + root.string()
        + "/archive.tar' -C '" + source + "' album readme && tar -xf '" + root.string() + "/archive.tar'");
    firstPass();
    expectRecords(changes(), { created("album"), created("album/one.txt"), created("album/two.txt"), created("readme") });
    EXPECT_EQ(text(changes().at(1), "filemodifiedDateKey"), "2019-07-08 08:30:40");
    expectRecords(table(), { created("album"), created("album/one.txt"), created("album/two.txt"), created("readme") });
}

TEST_F(ToolScenarios, HardLinkToAKnownFileResolvesToTheFirstPathAndChangesNothing)
{
    useStrictMode();
    writeFile("a.txt", "a");
    settle();
    Value a = before("a.txt");
    sh("ln a.txt b.txt");
    nextPass();
    expectRecords(changes(), {});
    expectRecords(table(), { seen(a) });
}

TEST_F(ToolScenarios, SymbolicLinkIsCreatedAsAFileWithItsOwnSize)
{
    writeFile("a.txt", std::string(4000, 'a'));
    settle();
    sh("ln -s a.txt link");
    nextPass();
    expectRecords(changes(), { created("link") });
    EXPECT_EQ(text(changes().at(0), "isFilekey"), "1");
    EXPECT_EQ(text(changes().at(0), "fileSizeKey"), "0");
}

TEST_F(ToolScenarios, IllegalNamesMadeWithTouchAreLoggedEveryPass)
{
    sh("touch 'naïve.txt' 'hash#.txt' \"$(printf 'tab\\tname')\" .DS_Store && mkdir -p d/e && touch d/.DS_Store d/e/.DS_Store");
    firstPass();
    EXPECT_EQ(summary(changes()), (Lines { "Created d", "Created d/e" }));
    EXPECT_EQ(log.countStartingWith("This string contains illegal characters"), 3u);
    acceptReport();
    nextPass();
    EXPECT_EQ(changes().count(), 0u);
    EXPECT_EQ(log.countStartingWith("This string contains illegal characters"), 6u);
}

}
