#include "sync/LivePositions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

TEST(LivePositions, PositionsAreSlotsUntilTheFirstRemoval)
{
    engine::LivePositions positions;
    positions.reset(5);
    positions.append();
    EXPECT_EQ(positions.count(), 6u);
    EXPECT_EQ(positions.slotAt(5), 5u);
    EXPECT_EQ(positions.positionOf(3), 3u);
}

TEST(LivePositions, RemovingASlotMovesEveryLaterEntryUpOnePosition)
{
    engine::LivePositions positions;
    positions.reset(4);
    positions.remove(1);
    EXPECT_EQ(positions.count(), 3u);
    EXPECT_EQ(positions.slotAt(0), 0u);
    EXPECT_EQ(positions.slotAt(1), 2u);
    EXPECT_EQ(positions.slotAt(2), 3u);
    EXPECT_EQ(positions.positionOf(3), 2u);
    positions.append();
    EXPECT_EQ(positions.slotAt(3), 4u);
    EXPECT_EQ(positions.positionOf(4), 3u);
}

TEST(LivePositions, RandomAppendsAndRemovalsAgreeWithAPlainListOfSlots)
{
    unsigned seed = std::random_device {}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 50; ++round) {
        engine::LivePositions positions;
        std::size_t initial = random() % 40;
        positions.reset(initial);
        std::vector<std::size_t> live(initial);
        for (std::size_t slot = 0; slot < initial; ++slot)
            live[slot] = slot;
        std::size_t slots = initial;
        for (int step = 0; step < 200; ++step) {
            if (live.empty() || random() % 3 == 0) {
                positions.append();
                live.push_back(slots++);
            } else {
                std::size_t position = random() % live.size();
                positions.remove(live[position]);
                live.erase(live.begin() + static_cast<std::ptrdiff_t>(position));
            }
            ASSERT_EQ(positions.count(), live.size());
            for (std::size_t position = 0; position < live.size(); ++position) {
                ASSERT_EQ(positions.slotAt(position), live[position]);
                ASSERT_EQ(positions.positionOf(live[position]), position);
            }
        }
    }
}

}
