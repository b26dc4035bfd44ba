#include "sync/LivePositions.h"

#include <bit>

namespace engine {

namespace {
    std::size_t lowestBit(std::size_t index) { return index & (~index + 1); }
}

void LivePositions::reset(std::size_t slots)
{
    m_slots = slots;
    m_live = slots;
    m_tree.clear();
}

void LivePositions::append()
{
    ++m_slots;
    ++m_live;
    if (m_tree.empty())
        return;
    std::size_t index = m_slots;
    std::size_t covered = livePrefix(index - 1) - livePrefix(index - lowestBit(index));
    m_tree.push_back(static_cast<std::uint32_t>(covered + 1));
}

void LivePositions::remove(std::size_t slot)
{
    if (m_tree.empty())
        buildTree();
    for (std::size_t index = slot + 1; index <= m_slots; index += lowestBit(index))
        --m_tree[index];
    --m_live;
}

std::size_t LivePositions::slotAt(std::size_t position) const
{
    if (m_tree.empty())
        return position;
    // The smallest slot whose live prefix reaches position + 1.
    std::size_t index = 0;
    std::size_t remaining = position + 1;
    for (std::size_t step = std::bit_floor(m_slots); step != 0; step >>= 1) {
        std::size_t next = index + step;
        if (next <= m_slots && m_tree[next] < remaining) {
            index = next;
            remaining -= m_tree[next];
        }
    }
    return index;
}

std::size_t LivePositions::positionOf(std::size_t slot) const
{
    return m_tree.empty() ? slot : livePrefix(slot);
}

void LivePositions::buildTree()
{
    m_tree.assign(m_slots + 1, 0);
    for (std::size_t index = 1; index <= m_slots; ++index) {
        m_tree[index] += 1;
        std::size_t parent = index + lowestBit(index);
        if (parent <= m_slots)
            m_tree[parent] += m_tree[index];
    }
}

std::size_t LivePositions::livePrefix(std::size_t slots) const
{
    std::size_t sum = 0;
    for (std::size_t index = slots; index != 0; index -= lowestBit(index))
        sum += m_tree[index];
    return sum;
}

}
