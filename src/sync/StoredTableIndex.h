#pragma once

// `tempPrefArray` and the table path list of a pass: the file numbers and paths of the watched-files table as the
// pass read it, in table order. They are not updated while the processes change the table, so after a move has
// taken an entry out, a position found here addresses the entry that moved up into it; the processes rely on
// exactly that. Only the questions the pass asks are answered: the first position of a file number, and whether a
// path is in the list. Each is built the first time it is asked: a pass in which every item is known by its file
// number never asks for a path, and a guarded pass, which pairs items with entries by itself, asks neither.

#include "sync/WatchedTable.h"

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace engine {

class StoredTableIndex {
public:
    StoredTableIndex();
    explicit StoredTableIndex(std::shared_ptr<const StoredTable> table);

    const std::shared_ptr<const StoredTable>& table() const { return m_table; }
    // The first position whose "BaseSystemFileIDKey" is the decimal text of `fileNumber`. `likely` is tried first:
    // a table stored by an earlier pass lists the items in walk order, so the next item is mostly at the next
    // position, found without a hash lookup.
    std::optional<std::size_t> firstPositionOf(std::uint64_t fileNumber, std::size_t likely = 0);
    bool containsPath(std::string_view path);

private:
    void buildFirstPositions();

    std::shared_ptr<const StoredTable> m_table;
    bool m_firstPositionsBuilt = false;
    boost::unordered_flat_map<std::uint64_t, std::uint32_t> m_firstPositions;
    // Whether the entry at each position is the first with its file number.
    std::vector<bool> m_isFirst;
    bool m_pathsBuilt = false;
    // Views into the texts of m_table's records.
    boost::unordered_flat_set<std::string_view> m_paths;
};

}
