#include "sync/ItemMatching.h"

#include "sync/RecordValues.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <algorithm>
#include <string_view>

namespace engine {

namespace {

    constexpr std::uint32_t noEntry = 0xFFFFFFFF;

    // The entries that share a key, in table order: the first one of each key, and after each entry the next one
    // with its key. One number per entry instead of a list per key: at 100,000 entries the lists cost 6 MB.
    template<typename Key>
    class EntryChains {
    public:
        explicit EntryChains(std::size_t entries) : m_next(entries, noEntry) { m_first.reserve(entries); }
        // Entries are added last to first, so that each chain reads in table order.
        void addInFront(const Key& key, std::uint32_t entry)
        {
            auto [first, added] = m_first.try_emplace(key, entry);
            if (!added) {
                m_next[entry] = first->second;
                first->second = entry;
            }
        }
        std::uint32_t first(const Key& key) const
        {
            auto found = m_first.find(key);
            return found == m_first.end() ? noEntry : found->second;
        }
        std::uint32_t next(std::uint32_t entry) const { return m_next[entry]; }

    private:
        boost::unordered_flat_map<Key, std::uint32_t> m_first;
        std::vector<std::uint32_t> m_next;
    };

    // The first entry of the chain from `first` (in table order) that is not yet paired and that `fits`; it becomes
    // paired.
    template<typename Chains, typename Fits>
    std::optional<std::uint32_t> claimFirst(
        const Chains& chains, std::uint32_t first, std::vector<bool>& paired, Fits fits)
    {
        for (std::uint32_t entry = first; entry != noEntry; entry = chains.next(entry)) {
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

    // A table that the last pass stored lists its entries in walk order: each item is, most often, the item of the
    // entry after the one the item before it took. Pairs each item that is, by its file number and path, in place,
    // with no key hashed. True when that pairs every entry: then no entry is left that any item could be paired
    // with, in place or otherwise (two entries of one number and path would leave one of them unpaired), and the
    // items left are new. Else the matches are left to be made from the start.
    template<typename RelativePathOf>
    bool pairedInWalkOrder(const FolderScan& scan, const std::vector<TableEntry>& entries,
        const RelativePathOf& relativePathOf, std::vector<ItemMatch>& matches)
    {
        std::size_t next = 0;
        for (std::size_t item = 0; item < scan.count() && next < entries.size(); ++item) {
            const TableEntry& entry = entries[next];
            if (matches[item].pairing == ItemPairing::Skipped || !entry.hasFileNumber
                || entry.fileNumber != scan.attributesAt(item).fileNumber
                || relativePathOf(static_cast<std::uint32_t>(next)) != scan.relativePathAt(item))
                continue;
            matches[item] = ItemMatch { ItemPairing::InPlace, static_cast<std::uint32_t>(next) };
            ++next;
        }
        return next == entries.size();
    }

}

std::vector<ItemMatch> matchWalkedItems(const FolderScan& scan, const StoredTable& table, const std::vector<bool>& skipped)
{
    const std::vector<TableEntry>& entries = table.entries;
    // Walked paths are the base, "/" and a path below it, so an entry's path equals one exactly when it starts with
    // the base and "/" and the rest equals the path below. Entries are compared by that rest, and walked items by
    // their path below the base as the walk holds it, with no copy of each full path; an entry elsewhere is never
    // paired by its path.
    const std::string prefix = scan.base() + "/";
    auto relativePathOf = [&](std::uint32_t entry) -> std::optional<std::string_view> {
        const std::string_view path = table.view(entry).pathText();
        if (!path.data() || !path.starts_with(prefix))
            return std::nullopt;
        return path.substr(prefix.size());
    };
    std::vector<ItemMatch> matches(scan.count());
    for (std::size_t item = 0; item < scan.count(); ++item) {
        if (skipped[item])
            matches[item].pairing = ItemPairing::Skipped;
    }
    if (pairedInWalkOrder(scan, entries, relativePathOf, matches))
        return matches;

    std::vector<bool> decided(scan.count(), false);
    std::vector<bool> paired(entries.size(), false);
    for (std::size_t item = 0; item < scan.count(); ++item) {
        matches[item] = ItemMatch { skipped[item] ? ItemPairing::Skipped : ItemPairing::New, 0 };
        decided[item] = skipped[item];
    }
    EntryChains<std::uint64_t> entriesByNumber(entries.size());
    for (auto entry = static_cast<std::uint32_t>(entries.size()); entry-- > 0;) {
        if (entries[entry].hasFileNumber)
            entriesByNumber.addInFront(entries[entry].fileNumber, entry);
    }
    auto pairEach = [&](ItemPairing pairing, const auto& chains, auto keyOf, auto fits) {
        for (std::size_t item = 0; item < scan.count(); ++item) {
            if (decided[item])
                continue;
            auto entry = claimFirst(chains, chains.first(keyOf(item)), paired,
                [&](std::uint32_t candidate) { return fits(item, candidate); });
            if (entry) {
                matches[item] = ItemMatch { pairing, *entry };
                decided[item] = true;
            }
        }
    };
    auto pathOf = [&](std::size_t item) { return scan.relativePathAt(item); };
    auto numberOf = [&](std::size_t item) { return scan.attributesAt(item).fileNumber; };
    auto anyEntry = [](std::size_t, std::uint32_t) { return true; };
    // A freed file number reused at once may go to the other kind of item (`rm -r d; echo x > f` can give f the number
    // of d): an entry of the other kind is never the item moved. (At its own path it is the item replaced, and its
    // "Modified" record gives the server the new kind.)
    auto sameKind = [&](std::size_t item, std::uint32_t entry) {
        return mayBeSameItem(table.view(entry), scan.attributesAt(item));
    };

    // The entries with the item's file number, in table order, include every entry with its path and number: the
    // first of those not yet paired is the same entry either way, found without hashing a path. In a pass that finds
    // nothing changed every item is paired here, and the entries are never keyed by their paths.
    pairEach(ItemPairing::InPlace, entriesByNumber, numberOf, [&](std::size_t item, std::uint32_t entry) {
        return relativePathOf(entry) == scan.relativePathAt(item);
    });
    if (std::find(decided.begin(), decided.end(), false) != decided.end()) {
        EntryChains<std::string_view> entriesByPath(entries.size());
        for (auto entry = static_cast<std::uint32_t>(entries.size()); entry-- > 0;) {
            if (auto path = relativePathOf(entry))
                entriesByPath.addInFront(*path, entry);
        }
        pairEach(ItemPairing::Replaced, entriesByPath, pathOf, anyEntry);
    }
    pairEach(ItemPairing::Moved, entriesByNumber, numberOf, sameKind);
    return matches;
}

}
