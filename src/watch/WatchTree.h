#pragma once

// watch::WatchTree: one inotify instance with a watch on every folder of a tree, kept in step with the tree as
// folders are made, moved in, moved out and removed.
//
// A folder made or moved into the tree is watched at once, and so is every folder already inside it: the watch is
// added before the folder is listed, so that an item made while it is being listed is either listed or reported.
// A folder moved out of the tree loses its watches; one moved within the tree keeps them.
//
// Limits: when the system refuses a watch (ENOSPC: the user's watch limit) the rest of the tree is still listed, so
// that the number of folders left unwatched is known; when it refuses the instance (EMFILE: the user's instance
// limit), nothing is watched. Either way shortage() says so, and the caller polls instead.
//
// Not thread-safe: one thread owns the tree.

#include "platform/OwnedFd.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

namespace watch {

// What the system refused.
enum class Shortage { none, watches, instances };

// What one read of the event queue brought.
struct Activity {
    // Events that stand for a change of an item in the tree.
    std::size_t changes = 0;
    // The queue overflowed: events were lost, and the watches must be set up again (watch()).
    bool overflowed = false;
    // The tree's root folder was removed or moved away; nothing is watched any more.
    bool rootLost = false;
};

class WatchTree {
public:
    // `queueLimit` (a test aid): a read that finds more events than this in the queue is handled as an overflow of
    // the kernel's queue, as if the queue held no more.
    explicit WatchTree(std::optional<std::size_t> queueLimit = std::nullopt);

    // Starts over: a new inotify instance, and a watch on `root` and every folder below it. False when `root` is not
    // a folder (or cannot be watched at all); then nothing is watched.
    bool watch(const std::filesystem::path& root);
    // Drops every watch and the instance.
    void clear();

    // The instance's descriptor, readable when events wait; -1 when there is none.
    int descriptor() const { return m_inotify.get(); }
    bool watching() const { return m_rootWatch >= 0; }
    // The watched root is still the folder at its path (it was not replaced, and no folder above it moved).
    bool rootInPlace() const;
    const std::filesystem::path& root() const { return m_root; }

    // Reads every event that waits (never blocks) and follows the folders they name.
    Activity readEvents();

    std::size_t watchedFolders() const { return m_folders.size(); }
    // Folders of the tree found but not watched, because the system refused a watch.
    std::size_t unwatchedFolders() const { return m_unwatched; }
    Shortage shortage() const { return m_shortage; }

private:
    struct Folder {
        int parent = -1; // the watch of the folder that holds it; -1 for the root
        ino_t inode = 0;
        std::filesystem::path name; // its name in its parent; the whole path for the root
    };

    // Watches `path` and every folder below it; `parent` is the watch of its folder.
    void addTree(const std::filesystem::path& path, int parent);
    // Adds one watch; the watch, or -1 when the folder cannot be watched.
    int addWatch(const std::filesystem::path& path, int parent);
    void countUnwatched(const std::filesystem::path& path);
    void forget(int watch);
    // Removes the watches of `watch` and of every folder below it.
    void removeTree(int watch);
    std::filesystem::path pathOf(int watch) const;
    // After folders moved: those no longer where the tree says they are left the tree.
    void dropFoldersMovedOut(const std::vector<int>& moved);

    std::optional<std::size_t> m_queueLimit;
    platform::OwnedFd m_inotify;
    std::filesystem::path m_root;
    int m_rootWatch = -1;
    std::unordered_map<int, Folder> m_folders;
    std::size_t m_unwatched = 0;
    Shortage m_shortage = Shortage::none;
};

}
