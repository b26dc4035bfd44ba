#include "platform/FileManager.h"

#include "platform/PosixFiles.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/sendfile.h>
#include <unistd.h>

namespace platform {

namespace {


// Copies one item and, for a folder, everything in it. Items are named relative to open folders, as in the walk.
class Copy {
public:
    // Copies the item `fromName` of `fromFolder` (described by `status`; `fromPath` names it in errors) to the new
    // name `toName` in `toFolder`. Absent on success.
    std::optional<Error> item(int fromFolder, const char* fromName, const struct stat& status, int toFolder,
        const char* toName, const std::string& fromPath)
    {
        switch (status.st_mode & S_IFMT) {
        case S_IFDIR: return folder(fromFolder, fromName, status, toFolder, toName, fromPath);
        case S_IFREG: return file(fromFolder, fromName, status, toFolder, toName, fromPath);
        case S_IFLNK: return link(fromFolder, fromName, status, toFolder, toName, fromPath);
        case S_IFIFO:
            if (::mkfifoat(toFolder, toName, status.st_mode & 07777) != 0)
                return posix::systemError(errno, "Cannot create a pipe for", fromPath);
            m_created = true;
            return keepDates(toFolder, toName, status, fromPath);
        default: return posix::systemError(ENOTSUP, "Cannot copy", fromPath);
        }
    }

    // True once the copy has created its destination (the first thing it creates), which a failure must remove.
    bool created() const { return m_created; }

private:
    std::optional<Error> folder(int fromFolder, const char* fromName, const struct stat& status, int toFolder,
        const char* toName, const std::string& fromPath)
    {
        OwnedFd from = posix::openFolderAt(fromFolder, fromName);
        if (!from)
            return posix::systemError(errno, "Cannot open folder", fromPath);
        // Owner-writable while it is filled; the source's permissions are set at the end.
        if (::mkdirat(toFolder, toName, 0700) != 0)
            return posix::systemError(errno, "Cannot create the copy of folder", fromPath);
        m_created = true;
        OwnedFd to = posix::openFolderAt(toFolder, toName);
        if (!to)
            return posix::systemError(errno, "Cannot open the copy of folder", fromPath);
        posix::FolderNames names;
        if (!names.read(from.get()))
            return posix::systemError(errno, "Cannot read folder", fromPath);
        for (std::string_view name : names.names()) {
            const std::string path = fromPath + "/" + std::string(name);
            struct stat child;
            if (::fstatat(from.get(), name.data(), &child, AT_SYMLINK_NOFOLLOW) != 0)
                return posix::systemError(errno, "Cannot read", path);
            if (auto failure = item(from.get(), name.data(), child, to.get(), name.data(), path))
                return failure;
        }
        if (::fchmod(to.get(), status.st_mode & 07777) != 0)
            return posix::systemError(errno, "Cannot set the permissions of the copy of", fromPath);
        return keepDates(to.get(), nullptr, status, fromPath);
    }

    std::optional<Error> file(int fromFolder, const char* fromName, const struct stat& status, int toFolder,
        const char* toName, const std::string& fromPath)
    {
        OwnedFd from(::openat(fromFolder, fromName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!from)
            return posix::systemError(errno, "Cannot open", fromPath);
        OwnedFd to(::openat(toFolder, toName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!to)
            return posix::systemError(errno, "Cannot create the copy of", fromPath);
        m_created = true;
        ssize_t sent;
        while ((sent = ::sendfile(to.get(), from.get(), nullptr, std::size_t(1) << 30)) > 0) { }
        if (sent < 0)
            return posix::systemError(errno, "Cannot copy the contents of", fromPath);
        if (::fchmod(to.get(), status.st_mode & 07777) != 0)
            return posix::systemError(errno, "Cannot set the permissions of the copy of", fromPath);
        return keepDates(to.get(), nullptr, status, fromPath);
    }

    std::optional<Error> link(int fromFolder, const char* fromName, const struct stat& status, int toFolder,
        const char* toName, const std::string& fromPath)
    {
        // A link's size is the length of its target; some file systems report 0, so leave room for any path.
        std::string target(std::max<std::size_t>(std::size_t(status.st_size), PATH_MAX) + 1, '\0');
        const ssize_t length = ::readlinkat(fromFolder, fromName, target.data(), target.size());
        if (length < 0)
            return posix::systemError(errno, "Cannot read the link", fromPath);
        target.resize(std::size_t(length));
        if (::symlinkat(target.c_str(), toFolder, toName) != 0)
            return posix::systemError(errno, "Cannot create the copy of the link", fromPath);
        m_created = true;
        return keepDates(toFolder, toName, status, fromPath);
    }

    // Gives the copy (`name` in `folder`, or the open item `folder` itself when `name` is null) the source's times.
    static std::optional<Error> keepDates(int folder, const char* name, const struct stat& status,
        const std::string& fromPath)
    {
        const struct timespec times[2] = { status.st_atim, status.st_mtim };
        const int result = name ? ::utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW) : ::futimens(folder, times);
        if (result != 0)
            return posix::systemError(errno, "Cannot set the dates of the copy of", fromPath);
        return std::nullopt;
    }

    bool m_created = false;
};

}

std::string_view fileTypeName(FileType type)
{
    switch (type) {
    case FileType::Directory: return "NSFileTypeDirectory";
    case FileType::Regular: return "NSFileTypeRegular";
    case FileType::SymbolicLink: return "NSFileTypeSymbolicLink";
    case FileType::Socket: return "NSFileTypeSocket";
    case FileType::CharacterSpecial: return "NSFileTypeCharacterSpecial";
    case FileType::BlockSpecial: return "NSFileTypeBlockSpecial";
    case FileType::Unknown: break;
    }
    return "NSFileTypeUnknown";
}

std::optional<FileAttributes> FileManager::attributesOfItemAtPath(const std::string& path)
{
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0)
        return std::nullopt;
    return posix::attributesFromStat(status);
}

bool FileManager::fileExistsAtPath(const std::string& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
}

bool FileManager::copyItemAtPath(const std::string& path, const std::string& toPath, Error* error)
{
    std::optional<Error> failure;
    Copy copy;
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0)
        failure = posix::systemError(errno, "Cannot copy", path);
    else if (struct stat existing; ::lstat(toPath.c_str(), &existing) == 0)
        failure = posix::systemError(EEXIST, "Cannot copy to", toPath);
    else
        failure = copy.item(AT_FDCWD, path.c_str(), status, AT_FDCWD, toPath.c_str(), path);
    if (!failure)
        return true;
    if (copy.created()) {
        std::error_code ignored;
        std::filesystem::remove_all(toPath, ignored);
    }
    if (error)
        *error = *failure;
    return false;
}

}
