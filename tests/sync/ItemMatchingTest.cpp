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

// The matches of items `walked` in folder "/b" against a table of (file number, path) entries.
std::vector<engine::ItemMatch> matchesOf(const std::vector<std::pair<std::string, std::string>>& entries,
    std::vector<platform::DirectoryItem> walked)
{
    engine::StoredRecords records;
    for (const auto& [number, path] : entries)
        records.append(record(number, path));
    const Value computerId("C-1");
    const auto table = engine::StoredTable::normalise(records, &computerId, 1);
    const auto scan = engine::FolderScan::fromItems("/b", std::move(walked));
    return engine::matchWalkedItems(scan, *table, std::vector<bool>(scan.count(), false));
}

}

TEST(ItemMatching, EntriesThatShareAPathOrAFileNumberArePairedInTableOrder)
{
    const auto matches = matchesOf({ { "1", "/b/x" }, { "2", "/b/x" }, { "5", "/b/y" }, { "5", "/b/z" } },
        { file("x", 3), file("w", 5) });

    ASSERT_EQ(matches.size(), 2u);
    EXPECT_EQ(matches[0].pairing, engine::ItemPairing::Replaced);
    EXPECT_EQ(matches[0].entry, 0u);
    EXPECT_EQ(matches[1].pairing, engine::ItemPairing::Moved);
    EXPECT_EQ(matches[1].entry, 2u);
}

TEST(ItemMatching, AnEntryOutsideTheWalkedFolderIsNeverPairedByItsPath)
{
    const auto matches = matchesOf({ { "1", "/c/x" }, { "2", "/bx" }, { "3", "x" }, { "4", "/b/y" } },
        { file("x", 9), file("y", 4) });

    ASSERT_EQ(matches.size(), 2u);
    EXPECT_EQ(matches[0].pairing, engine::ItemPairing::New);
    EXPECT_EQ(matches[1].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(matches[1].entry, 3u);
}

// A table in walk order (as the last pass stored it) pairs item after item in place; an item between two of its
// entries is new.
TEST(ItemMatching, ATableInWalkOrderPairsEachItemInPlaceAndAnItemBetweenItsEntriesIsNew)
{
    const auto matches = matchesOf({ { "1", "/b/a" }, { "2", "/b/c" } }, { file("a", 1), file("b", 7), file("c", 2) });

    ASSERT_EQ(matches.size(), 3u);
    EXPECT_EQ(matches[0].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(matches[0].entry, 0u);
    EXPECT_EQ(matches[1].pairing, engine::ItemPairing::New);
    EXPECT_EQ(matches[2].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(matches[2].entry, 1u);
}

// Once an entry of a table in walk order finds no item in place (here the item renamed, and a second entry of one
// file number and path), every item is paired as in any other table: the entry moved, the first of the two taken.
TEST(ItemMatching, AnEntryOfATableInWalkOrderLeftUnpairedInPlaceLeavesThePairingToTheOtherRules)
{
    const auto renamed = matchesOf({ { "1", "/b/a" }, { "3", "/b/b" }, { "2", "/b/c" } },
        { file("a", 1), file("b2", 3), file("c", 2) });
    ASSERT_EQ(renamed.size(), 3u);
    EXPECT_EQ(renamed[0].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(renamed[1].pairing, engine::ItemPairing::Moved);
    EXPECT_EQ(renamed[1].entry, 1u);
    EXPECT_EQ(renamed[2].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(renamed[2].entry, 2u);

    const auto twice = matchesOf({ { "2", "/b/c" }, { "1", "/b/a" }, { "2", "/b/c" } }, { file("a", 1), file("c", 2) });
    ASSERT_EQ(twice.size(), 2u);
    EXPECT_EQ(twice[0].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(twice[0].entry, 1u);
    EXPECT_EQ(twice[1].pairing, engine::ItemPairing::InPlace);
    EXPECT_EQ(twice[1].entry, 0u);
}
