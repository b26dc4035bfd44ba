#pragma once

// The folder walk of a pass: every item below the synced folder that the pass classifies, in the enumerator's
// order, with the attributes read while walking. It stands for the three lists the walk fills side by side
// (`korbanholdArray`, `tempFinderArray` and the folder path list): index i of each describes item i.

#include "platform/FileManager.h"
#include "platform/Value.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace engine {

// True when `relativePath` holds a character outside the set that synced names may use. The set is the literal
// below, kept letter for letter (its upper-case K appears twice, which changes nothing); every byte of a non-ASCII
// character is outside it.
bool hasIllegalCharacters(std::string_view relativePath);
inline constexpr std::string_view allowedNameCharacters
    = "+_-'/,%$@!`^&={}[];.()abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLKMNOPQRSTUVWXYZ0123456789 ";

// The decimal text of a file number, as the walk writes it.
std::string fileNumberText(std::uint64_t fileNumber);
// The file number a text stands for when it is exactly such a decimal text; any other text (a sign, leading zeros,
// letters) never equals one.
std::optional<std::uint64_t> parseFileNumberText(std::string_view text);

class FolderScan {
public:
    // Walks `base`: a name with an illegal character is logged ("This string contains illegal characters") and
    // skipped, an item named ".DS_Store" is skipped silently, and an item whose attributes cannot be read (it
    // vanished after it was listed) raises, as storing its absent file number does.
    static FolderScan walk(const std::string& base);
    // The same over the items of an enumeration of `base`, in their order.
    static FolderScan fromItems(const std::string& base, std::vector<platform::DirectoryItem> items);

    std::size_t count() const { return m_attributes.size(); }
    // Item `index`, which must be below count() (NSRangeException otherwise).
    const platform::FileAttributes& attributesAt(std::size_t index) const;
    // The item's full path: the base, "/", and its path below the base.
    std::string pathAt(std::size_t index) const;
    // The same, written into `path` (whose storage is reused from item to item).
    void writePathAt(std::size_t index, std::string& path) const;
    // The walked folder, and item `index`'s path below it: the full path with no copy made.
    const std::string& base() const { return m_base; }
    std::string_view relativePathAt(std::size_t index) const;
    // The index of the first item with the same file number: the item's own, unless a hard link came first.
    std::size_t firstIndexAt(std::size_t index) const;
    // The first index whose item has `fileNumber`: items that share a file number (hard links) all resolve to it.
    std::optional<std::size_t> firstIndexOf(std::uint64_t fileNumber) const;

    // `korbanholdArray`: one folder-walk record per item.
    platform::Value walkRecords() const;

private:
    // Keeps the item the walk lists at `relativePath`, or leaves it out (an illegal character, ".DS_Store"), or
    // raises (no attributes).
    void add(std::string_view relativePath, const std::optional<platform::FileAttributes>& attributes);
    void checkIndex(std::size_t index) const;

    // Which item comes first with each file number. Made the first time it is asked for: a guarded pass pairs items
    // with the table without it (2.5 MB at 100,000 items). A walk is only read by the thread of the pass that made
    // it.
    struct FirstIndexes {
        std::vector<std::uint32_t> ofItem;
        boost::unordered_flat_map<std::uint64_t, std::uint32_t> byNumber;
    };
    const FirstIndexes& firstIndexes() const;

    std::string m_base;
    // The items kept: the attributes of each, and their paths relative to m_base one after the other in m_paths,
    // item i's ending at m_pathEnds[i]. A pass keeps its walk until the next one; as one string per item it cost
    // about twice as much.
    std::vector<platform::FileAttributes> m_attributes;
    std::string m_paths;
    std::vector<std::size_t> m_pathEnds;
    mutable std::optional<FirstIndexes> m_firstIndexes;
};

}
