#include "watch/WatchTree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace watch {

namespace fs = std::filesystem;

namespace {

// Everything that changes an item of a folder, and the folder's own removal or move. Links to folders are not
// followed, and a removed item that is still open reports nothing more.
constexpr std::uint32_t folderEvents = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_FROM
    | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK;

// The subfolders of `path` with their inodes; none when it cannot be listed (it may have gone meanwhile).
std::vector<std::pair<std::string, ino_t>> subfolders(const fs::path& path)
{
    std::vector<std::pair<std::string, ino_t>> found;
    DIR* folder = ::opendir(path.c_str());
    if (!folder)
        return found;
    while (const dirent* entry = ::readdir(folder)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        bool isFolder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat status {};
            isFolder = ::fstatat(::dirfd(folder), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0
                && S_ISDIR(status.st_mode);
        }
        if (isFolder)
            found.emplace_back(name, entry->d_ino);
    }
    ::closedir(folder);
    return found;
}

std::optional<ino_t> folderInode(const fs::path& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return std::nullopt;
    return status.st_ino;
}

}

WatchTree::WatchTree(std::optional<std::size_t> queueLimit)
    : m_queueLimit(queueLimit)
{
}

bool WatchTree::watch(const fs::path& root)
{
    clear();
    m_root = root;
    const auto inode = folderInode(root);
    if (!inode)
        return false;
    m_inotify.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!m_inotify) {
        if (errno == EMFILE) {
            m_shortage = Shortage::instances;
            countUnwatched(root);
        }
        return false;
    }
    m_rootWatch = addWatch(root, -1);
    if (m_rootWatch < 0)
        return false;
    m_folders[m_rootWatch].inode = *inode;
    addTree(root, m_rootWatch);
    return true;
}

bool WatchTree::rootInPlace() const
{
    const auto root = m_folders.find(m_rootWatch);
    return root != m_folders.end() && folderInode(m_root) == root->second.inode;
}

void WatchTree::clear()
{
    m_inotify.reset();
    m_folders.clear();
    m_rootWatch = -1;
    m_unwatched = 0;
    m_shortage = Shortage::none;
}

int WatchTree::addWatch(const fs::path& path, int parent)
{
    const int watch = ::inotify_add_watch(m_inotify.get(), path.c_str(), folderEvents);
    if (watch < 0) {
        if (errno == ENOSPC) {
            m_shortage = Shortage::watches;
            countUnwatched(path);
        }
        return -1;
    }
    // A folder moved within the tree is watched already: the same watch comes back, under its new name.
    Folder& folder = m_folders[watch];
    folder.parent = parent;
    folder.name = parent < 0 ? path : path.filename();
    return watch;
}

// Lists the folders below `top` (already watched) and watches each; a folder that cannot be watched is counted with
// everything below it.
void WatchTree::addTree(const fs::path& top, int topWatch)
{
    std::vector<std::pair<fs::path, int>> pending { { top, topWatch } };
    while (!pending.empty()) {
        auto [path, watch] = std::move(pending.back());
        pending.pop_back();
        for (auto& [name, inode] : subfolders(path)) {
            fs::path child = path / name;
            const int childWatch = addWatch(child, watch);
            if (childWatch < 0)
                continue;
            m_folders[childWatch].inode = inode;
            pending.emplace_back(std::move(child), childWatch);
        }
    }
}

void WatchTree::countUnwatched(const fs::path& path)
{
    std::vector<fs::path> pending { path };
    while (!pending.empty()) {
        const fs::path folder = std::move(pending.back());
        pending.pop_back();
        ++m_unwatched;
        for (auto& [name, inode] : subfolders(folder))
            pending.push_back(folder / name);
    }
}

fs::path WatchTree::pathOf(int watch) const
{
    std::vector<const Folder*> chain;
    for (auto found = m_folders.find(watch); found != m_folders.end(); found = m_folders.find(found->second.parent))
        chain.push_back(&found->second);
    fs::path path;
    for (auto folder = chain.rbegin(); folder != chain.rend(); ++folder)
        path /= (*folder)->name;
    return path;
}

void WatchTree::forget(int watch)
{
    m_folders.erase(watch);
    if (watch == m_rootWatch)
        m_rootWatch = -1;
}

void WatchTree::removeTree(int top)
{
    std::vector<int> inside;
    for (const auto& [watch, folder] : m_folders) {
        int ancestor = watch;
        while (ancestor >= 0 && ancestor != top)
            ancestor = m_folders.at(ancestor).parent;
        if (ancestor == top)
            inside.push_back(watch);
    }
    for (const int watch : inside) {
        ::inotify_rm_watch(m_inotify.get(), watch);
        forget(watch);
    }
}

void WatchTree::dropFoldersMovedOut(const std::vector<int>& moved)
{
    for (const int watch : moved) {
        const auto found = m_folders.find(watch);
        if (found == m_folders.end())
            continue;
        // Moved within the tree, the folder's new place was learnt from its arrival; anywhere else it has left.
        if (folderInode(pathOf(watch)) != found->second.inode)
            removeTree(watch);
    }
}

Activity WatchTree::readEvents()
{
    Activity activity;
    if (!m_inotify)
        return activity;
    alignas(inotify_event) char buffer[64 * 1024];
    std::vector<int> moved;
    std::size_t events = 0;
    for (;;) {
        const ssize_t size = ::read(m_inotify.get(), buffer, sizeof buffer);
        if (size <= 0)
            break;
        for (ssize_t offset = 0; offset < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if ((event->mask & IN_Q_OVERFLOW) || (m_queueLimit && ++events > *m_queueLimit)) {
                activity.overflowed = true;
                return activity;
            }
            if (!m_folders.contains(event->wd))
                continue;
            if (event->mask & IN_IGNORED) {
                activity.rootLost |= event->wd == m_rootWatch;
                forget(event->wd);
                continue;
            }
            ++activity.changes;
            if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF)) {
                activity.rootLost |= event->wd == m_rootWatch;
                if (event->mask & IN_MOVE_SELF)
                    moved.push_back(event->wd);
                continue;
            }
            if ((event->mask & IN_ISDIR) && (event->mask & (IN_CREATE | IN_MOVED_TO)) && event->len > 0) {
                const fs::path path = pathOf(event->wd) / event->name;
                const int watch = addWatch(path, event->wd);
                if (watch < 0)
                    continue;
                if (const auto inode = folderInode(path))
                    m_folders[watch].inode = *inode;
                addTree(path, watch);
            }
        }
    }
    if (activity.rootLost)
        clear();
    else
        dropFoldersMovedOut(moved);
    return activity;
}

}
