#include "sync/ItemMatching.h"

#include "sync/RecordValues.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <string_view>

namespace engine {

namespace {

    using Entries = std::vector<std::uint32_t>;

    // The first entry of `candidates` (in table order) that is not yet paired and that `fits`; it becomes paired.
    template<typename Fits>
    std::optional<std::uint32_t> claimFirst(const Entries* candidates, std::vector<bool>& paired, Fits fits)
    {
        if (!candidates)
            return std::nullopt;
        for (std::uint32_t entry : *candidates) {
            if (!paired[entry] && fits(entry)) {
                paired[entry] = true;
                return entry;
            }
        }
        return std::nullopt;
    }

    // False when the entry records the other kind of item (a file for a folder, or the reverse). An entry whose kind
    // cannot be read is not held against the item.
    bool mayBeSameItem(const EntryView& entry, const platform::FileAttributes& item)
    {
        const auto text = entry.text(RecordKey::IsFile);
        return !text || *text == isFileText(item.type == platform::FileType::Directory);
    }

    template<typename Map, typename Key>
    const Entries* entriesAt(const Map& map, const Key& key)
    {
        auto found = map.find(key);
        return found == map.end() ? nullptr : &found->second;
    }

}

std::vector<ItemMatch> matchWalkedItems(const FolderScan& scan, const std::vector<std::string>& paths,
    const StoredTable& table, const std::vector<bool>& skipped)
{
    const std::vector<TableEntry>& entries = table.entries;
    boost::unordered_flat_map<std::string_view, Entries> entriesByPath;
    boost::unordered_flat_map<std::uint64_t, Entries> entriesByNumber;
    for (std::uint32_t entry = 0; entry < entries.size(); ++entry) {
        if (std::string_view path = table.view(entry).pathText(); path.data())
            entriesByPath[path].push_back(entry);
        if (entries[entry].hasFileNumber)
            entriesByNumber[entries[entry].fileNumber].push_back(entry);
    }

    std::vector<ItemMatch> matches(scan.count());
    std::vector<bool> decided(scan.count(), false);
    std::vector<bool> paired(entries.size(), false);
    for (std::size_t item = 0; item < scan.count(); ++item) {
        if (skipped[item]) {
            matches[item].pairing = ItemPairing::Skipped;
            decided[item] = true;
        }
    }
    auto pairEach = [&](ItemPairing pairing, auto candidatesOf, auto fits) {
        for (std::size_t item = 0; item < scan.count(); ++item) {
            if (decided[item])
                continue;
            auto entry = claimFirst(candidatesOf(item), paired, [&](std::uint32_t candidate) { return fits(item, candidate); });
            if (entry) {
                matches[item] = ItemMatch { pairing, *entry };
                decided[item] = true;
            }
        }
    };
    auto atPath = [&](std::size_t item) { return entriesAt(entriesByPath, std::string_view(paths[item])); };
    auto withNumber = [&](std::size_t item) { return entriesAt(entriesByNumber, scan.attributesAt(item).fileNumber); };
    auto anyEntry = [](std::size_t, std::uint32_t) { return true; };
    // A freed file number reused at once may go to the other kind of item (`rm -r d; echo x > f` can give f the number
    // of d): an entry of the other kind is never the item moved. (At its own path it is the item replaced, and its
    // "Modified" record gives the server the new kind.)
    auto sameKind = [&](std::size_t item, std::uint32_t entry) {
        return mayBeSameItem(table.view(entry), scan.attributesAt(item));
    };

    pairEach(ItemPairing::InPlace, atPath, [&](std::size_t item, std::uint32_t entry) {
        return entries[entry].hasFileNumber && entries[entry].fileNumber == scan.attributesAt(item).fileNumber;
    });
    pairEach(ItemPairing::Replaced, atPath, anyEntry);
    pairEach(ItemPairing::Moved, withNumber, sameKind);
    return matches;
}

}
