#pragma once

// How a guarded pass pairs the walked items with the entries of the watched-files table. Every pairing is decided
// for the whole walk before any process runs, on the table as the pass read it, so that what one process does to
// the table (a move takes an entry out) cannot change which entry a later item is paired with.
//
// Each walked path is an item of its own, and each table entry is paired with at most one item, in this order of
// preference:
// 1. the entry with the item's path and file number: the item stayed where it was (InPlace);
// 2. the entry with the item's path under another file number: the item was replaced at its path (Replaced), as
//    after a save that writes a new file, or when the file system gave a freed file number to another file;
// 3. the entry with the item's file number at another path, of the same kind (file or folder), not paired by 1 or
//    2: the item moved (Moved);
// 4. none: a new item (New).
// So a hard link's second path is a new item rather than a second claim on its first path's entry, a backup-style
// save (`mv f f.bak && echo new > f`) pairs f with its own entry and makes f.bak new, and a freed file number reused
// at once never turns a file that still exists into a move's deleted source, nor a new file into a moved folder.
// Entries left unpaired are deleted.

#include "sync/FolderScan.h"
#include "sync/WatchedTable.h"

#include <cstdint>
#include <vector>

namespace engine {

enum class ItemPairing : std::uint8_t { InPlace, Replaced, Moved, New, Skipped };

struct ItemMatch {
    ItemPairing pairing = ItemPairing::New;
    // The entry's position in the table as the pass read it (InPlace, Replaced, Moved).
    std::uint32_t entry = 0;
};

// One match per walked item, in walk order. `skipped[i]` leaves item i out (an item in a shared folder); its match
// is Skipped.
std::vector<ItemMatch> matchWalkedItems(const FolderScan& scan, const StoredTable& table, const std::vector<bool>& skipped);

}
