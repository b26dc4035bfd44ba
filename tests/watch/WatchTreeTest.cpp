// The watch tree over real folders: every folder watched, folders made, moved and removed followed, the queue's
// overflow and the loss of the root reported.

#include "watch/WatchTree.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <poll.h>

namespace {

namespace fs = std::filesystem;
using testsupport::writeFile;
using watch::Activity;
using watch::WatchTree;

// Reads events until something changed, the root went or the queue overflowed, or 30 s have passed.
Activity readActivity(WatchTree& tree)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    Activity total;
    while (total.changes == 0 && !total.overflowed && !total.rootLost && std::chrono::steady_clock::now() < deadline) {
        pollfd readable { tree.descriptor(), POLLIN, 0 };
        ::poll(&readable, 1, 100);
        const Activity activity = tree.readEvents();
        total.changes += activity.changes;
        total.overflowed |= activity.overflowed;
        total.rootLost |= activity.rootLost;
    }
    return total;
}

// Reads whatever waits now, so that the next read sees only what comes after.
void drain(WatchTree& tree)
{
    pollfd readable { tree.descriptor(), POLLIN, 0 };
    while (::poll(&readable, 1, 50) > 0)
        tree.readEvents();
}

class WatchTreeTest : public testing::Test {
protected:
    fs::path root() const { return m_folder / "Korbanhold"; }
    fs::path outside() const { return m_folder / "outside"; }

    void SetUp() override
    {
        fs::create_directories(root() / "a" / "b");
        fs::create_directories(root() / "c");
        fs::create_directories(outside());
        ASSERT_TRUE(tree.watch(root()));
    }

    testsupport::TempDir m_folder;
    WatchTree tree;
};

TEST_F(WatchTreeTest, EveryFolderIsWatched)
{
    EXPECT_EQ(tree.watchedFolders(), 4u);
    EXPECT_EQ(tree.shortage(), watch::Shortage::none);
    writeFile(root() / "a" / "b" / "deep.txt", "x");
    EXPECT_GT(readActivity(tree).changes, 0u);
}

TEST_F(WatchTreeTest, AFolderTreeMadeAtOnceIsWatchedWithEverythingInIt)
{
    fs::create_directories(root() / "new" / "x" / "y" / "z");
    writeFile(root() / "new" / "x" / "y" / "z" / "first.txt", "1");
    EXPECT_GT(readActivity(tree).changes, 0u);
    drain(tree);
    EXPECT_EQ(tree.watchedFolders(), 8u);
    writeFile(root() / "new" / "x" / "y" / "z" / "second.txt", "2");
    EXPECT_GT(readActivity(tree).changes, 0u);
}

TEST_F(WatchTreeTest, AFolderMovedInIsWatchedWithItsSubfolders)
{
    fs::create_directories(outside() / "tree" / "sub");
    fs::rename(outside() / "tree", root() / "tree");
    EXPECT_GT(readActivity(tree).changes, 0u);
    drain(tree);
    EXPECT_EQ(tree.watchedFolders(), 6u);
    writeFile(root() / "tree" / "sub" / "file.txt", "x");
    EXPECT_GT(readActivity(tree).changes, 0u);
}

TEST_F(WatchTreeTest, AFolderMovedOutIsNoLongerWatched)
{
    fs::rename(root() / "a", outside() / "a");
    EXPECT_GT(readActivity(tree).changes, 0u);
    drain(tree);
    EXPECT_EQ(tree.watchedFolders(), 2u);
    writeFile(outside() / "a" / "b" / "elsewhere.txt", "x");
    writeFile(root() / "c" / "marker.txt", "x");
    // Only the marker's events are read: nothing of the folder that left.
    const Activity activity = readActivity(tree);
    drain(tree);
    EXPECT_EQ(tree.watchedFolders(), 2u);
    EXPECT_GT(activity.changes, 0u);
}

TEST_F(WatchTreeTest, AFolderMovedWithinTheTreeStaysWatchedAtItsNewPlace)
{
    fs::rename(root() / "a", root() / "c" / "a2");
    EXPECT_GT(readActivity(tree).changes, 0u);
    drain(tree);
    EXPECT_EQ(tree.watchedFolders(), 4u);
    fs::create_directories(root() / "c" / "a2" / "b" / "later");
    EXPECT_GT(readActivity(tree).changes, 0u);
    drain(tree);
    EXPECT_EQ(tree.watchedFolders(), 5u);
}

TEST_F(WatchTreeTest, RemovedFoldersLoseTheirWatches)
{
    fs::remove_all(root() / "a");
    EXPECT_GT(readActivity(tree).changes, 0u);
    drain(tree);
    EXPECT_EQ(tree.watchedFolders(), 2u);
}

TEST_F(WatchTreeTest, TheRootRemovedIsReported)
{
    fs::remove_all(root());
    Activity activity;
    for (int reads = 0; reads < 100 && !activity.rootLost; ++reads)
        activity.rootLost |= readActivity(tree).rootLost;
    EXPECT_TRUE(activity.rootLost);
    EXPECT_FALSE(tree.watching());
    EXPECT_FALSE(tree.rootInPlace());
}

TEST_F(WatchTreeTest, TheRootReplacedIsNoLongerInPlace)
{
    fs::rename(root(), outside() / "old");
    fs::create_directories(root());
    EXPECT_FALSE(tree.rootInPlace());
}

TEST_F(WatchTreeTest, MoreEventsThanTheQueueHoldsAreAnOverflow)
{
    WatchTree small(std::size_t { 3 });
    ASSERT_TRUE(small.watch(root()));
    for (int file = 0; file < 10; ++file)
        writeFile(root() / ("f" + std::to_string(file)), "x");
    EXPECT_TRUE(readActivity(small).overflowed);
}

TEST_F(WatchTreeTest, ARootThatIsNotThereIsNotWatched)
{
    WatchTree other;
    EXPECT_FALSE(other.watch(m_folder / "missing"));
    EXPECT_FALSE(other.watching());
    EXPECT_EQ(other.shortage(), watch::Shortage::none);
}

}
