// The pairing of walked items with table entries (guarded mode): among entries that share a path or a file number,
// the first one in table order is taken, as the plain list's first match would be.

#include "sync/ItemMatching.h"

#include <gtest/gtest.h>

using platform::Value;

namespace {

Value record(const std::string& number, const std::string& path)
{
    return Value::dictionary({ { "BaseSystemFileIDKey", number }, { "BaseSystemFilePathKey", path },
        { "changeTypeKey", "Created" }, { "oldPathKey", "" }, { "isFilekey", "1" }, { "fileSizeKey", "1" },
        { "filemodifiedDateKey", "2026-11-24 10:00:00" }, { "FileIDKey", "" }, { "computerIDKey", "C-1" },
        { "removeKey", "0" } });
}

platform::DirectoryItem file(const std::string& path, std::uint64_t number)
{
    platform::FileAttributes attributes;
    attributes.fileNumber = number;
    attributes.type = platform::FileType::Regular;
    return { path, attributes };
}

}

TEST(ItemMatching, EntriesThatShareAPathOrAFileNumberArePairedInTableOrder)
{
    engine::StoredRecords records;
    for (const auto& [number, path] : std::vector<std::pair<std::string, std::string>> {
             { "1", "/b/x" }, { "2", "/b/x" }, { "5", "/b/y" }, { "5", "/b/z" } })
        records.append(record(number, path));
    const Value computerId("C-1");
    const auto table = engine::StoredTable::normalise(records, &computerId, 1);
    const auto scan = engine::FolderScan::fromItems("/b", { file("x", 3), file("w", 5) });
    const auto matches = engine::matchWalkedItems(scan, *table, { false, false });

    ASSERT_EQ(matches.size(), 2u);
    EXPECT_EQ(matches[0].pairing, engine::ItemPairing::Replaced);
    EXPECT_EQ(matches[0].entry, 0u);
    EXPECT_EQ(matches[1].pairing, engine::ItemPairing::Moved);
    EXPECT_EQ(matches[1].entry, 2u);
}

TEST(ItemMatching, AnEntryOutsideTheWalkedFolderIsNeverPairedByItsPath)
{
    engine::StoredRecords records;
    for (const auto& [number, path] : std::vector<std::pair<std::string, std::string>> {
             { "1", "/c/x" }, { "2", "/bx" }, { "3", "x" }, { "4", "/b/y" } })
        records.append(record(number, path));
    const Value computerId("C-1");
    const auto table = engine::StoredTable::normalise(records, &computerId, 1);
    const auto scan = engine::FolderScan::fromItems("/b", { file("x", 9), file("y", 4) });
    const auto matches = engine::matchWalkedItems(scan, *table, { false, false });

    ASSERT_EQ(matches.size(), 2u);
    EXPECT_EQ(matches[0].pairing, engine::ItemPairing::New);
    EXPECT_EQ(matches[1].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(matches[1].entry, 3u);
}
