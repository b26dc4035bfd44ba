#pragma once

// Positions of the live entries of a list whose entries stay in fixed slots: removing an entry leaves its slot
// empty, and every later entry moves up one position. Answers "which slot holds position p" and "at which position
// is slot s" in O(log n) with a Fenwick tree over the slots (1 = live). Until the first removal positions and
// slots coincide and no tree is kept.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace engine {

class LivePositions {
public:
    // `slots` live slots, 0 to slots - 1.
    void reset(std::size_t slots);
    // One more live slot after the last.
    void append();
    // Empties a live slot.
    void remove(std::size_t slot);

    std::size_t count() const { return m_live; }
    std::size_t slotCount() const { return m_slots; }
    // The slot at `position` (below count()).
    std::size_t slotAt(std::size_t position) const;
    // The position of live slot `slot`: the number of live slots before it.
    std::size_t positionOf(std::size_t slot) const;

private:
    void buildTree();
    std::size_t livePrefix(std::size_t slots) const;

    std::size_t m_slots = 0;
    std::size_t m_live = 0;
    // 1-based Fenwick tree: m_tree[i] counts the live slots among i - lowbit(i) + 1 .. i (1-based).
    std::vector<std::uint32_t> m_tree;
};

}
