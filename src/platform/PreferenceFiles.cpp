#include "platform/PreferenceFiles.h"

#include "platform/Exception.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <pwd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

[[noreturn]] void raiseErrno(int error, const std::string& what)
{
    throw std::system_error(error, std::generic_category(), what);
}

// An open file descriptor, closed when the object goes.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) { }
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) { }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    // Closes now, so that the error of close() (a late write error on some file systems) is seen.
    int close() { return ::close(std::exchange(m_fd, -1)); }

private:
    int m_fd;
};

bool isSet(const char* value) { return value && *value; }

std::string homeFromPasswordDatabase()
{
    long bufferSize = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::string buffer(bufferSize > 0 ? static_cast<std::size_t>(bufferSize) : 16384, '\0');
    passwd entry {};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found || !isSet(found->pw_dir))
        return {};
    return found->pw_dir;
}

bool operator<(const timespec& a, const timespec& b)
{
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

bool operator==(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

Descriptor openFolder(const std::filesystem::path& folder)
{
    return Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Opens `folder`, first creating it and its missing parents with mode 0700 (whatever the umask).
Descriptor openOrMakeFolder(const std::filesystem::path& folder)
{
    if (auto opened = openFolder(folder); opened || errno != ENOENT)
        return opened;
    std::filesystem::path partial;
    for (const auto& component : folder) {
        partial /= component;
        if (::mkdir(partial.c_str(), 0700) == 0)
            ::chmod(partial.c_str(), 0700);
        else if (errno != EEXIST)
            raiseErrno(errno, "Cannot create the preferences folder " + partial.string());
    }
    return openFolder(folder);
}

// False with errno set when a write fails.
bool writeAll(int fd, std::string_view contents)
{
    while (!contents.empty()) {
        const ssize_t written = ::write(fd, contents.data(), contents.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// A name that no other writer, in this process or another, is using at the same time.
std::string temporaryName(const std::string& name)
{
    static std::atomic<unsigned long> counter { 0 };
    return "." + name + "." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".tmp";
}

}

std::filesystem::path preferencesFolderFor(const char* preferencesDir, const char* xdgConfigHome, const char* home)
{
    if (isSet(preferencesDir))
        return preferencesDir;
    // The XDG rules ignore a relative XDG_CONFIG_HOME.
    if (isSet(xdgConfigHome) && xdgConfigHome[0] == '/')
        return std::filesystem::path(xdgConfigHome) / "korbanhold" / "Preferences";
    if (isSet(home))
        return std::filesystem::path(home) / ".config" / "korbanhold" / "Preferences";
    Exception::raiseInvalidArgument("No preferences folder: neither KORBANHOLD_PREFERENCES_DIR, XDG_CONFIG_HOME nor a "
                                    "home folder is known");
}

// $HOME, or the password database's home folder when HOME is unset.
static std::string homeFolder()
{
    const char* home = std::getenv("HOME");
    return isSet(home) ? std::string(home) : homeFromPasswordDatabase();
}

std::filesystem::path preferencesFolder()
{
    return preferencesFolderFor(std::getenv("KORBANHOLD_PREFERENCES_DIR"), std::getenv("XDG_CONFIG_HOME"),
        homeFolder().c_str());
}

std::filesystem::path stateFolderFor(const char* preferencesDir, const char* xdgStateHome, const char* home)
{
    if (isSet(preferencesDir))
        return preferencesDir;
    if (isSet(xdgStateHome) && xdgStateHome[0] == '/')
        return std::filesystem::path(xdgStateHome) / "korbanhold";
    if (isSet(home))
        return std::filesystem::path(home) / ".local" / "state" / "korbanhold";
    Exception::raiseInvalidArgument("No state folder: neither KORBANHOLD_PREFERENCES_DIR, XDG_STATE_HOME nor a "
                                    "home folder is known");
}

std::filesystem::path stateFolder()
{
    return stateFolderFor(std::getenv("KORBANHOLD_PREFERENCES_DIR"), std::getenv("XDG_STATE_HOME"),
        homeFolder().c_str());
}

void ensureFolder(const std::filesystem::path& folder)
{
    if (!openOrMakeFolder(folder))
        raiseErrno(errno, "Cannot open the folder " + folder.string());
}

FileIdentity FileIdentity::of(const struct stat& status)
{
    return FileIdentity { status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim };
}

bool FileIdentity::operator==(const FileIdentity& other) const
{
    return device == other.device && inode == other.inode && size == other.size && modified == other.modified
        && changed == other.changed;
}

bool FileIdentity::settledBefore(const timespec& clock) const { return changed < clock; }

timespec coarseRealTime()
{
    timespec now {};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

std::optional<FileIdentity> identityOf(const std::filesystem::path& path, int& error)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        error = errno;
        return std::nullopt;
    }
    error = 0;
    return FileIdentity::of(status);
}

FileContents readWholeFile(const std::filesystem::path& path)
{
    // Non-blocking, so that a pipe put in the folder cannot hang the reader; it is refused below.
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        raiseErrno(errno, "Cannot open " + path.string());
    struct stat status {};
    if (::fstat(file.get(), &status) != 0)
        raiseErrno(errno, "Cannot stat " + path.string());
    if (!S_ISREG(status.st_mode))
        raiseErrno(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "Not a regular file: " + path.string());

    FileContents contents { FileIdentity::of(status), {} };
    // One byte more than the size, so that the end of the file is normally found without growing the buffer.
    contents.bytes.resize(static_cast<std::size_t>(status.st_size) + 1);
    std::size_t used = 0;
    for (;;) {
        if (used == contents.bytes.size())
            contents.bytes.resize(contents.bytes.size() * 2);
        const ssize_t got = ::read(file.get(), contents.bytes.data() + used, contents.bytes.size() - used);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            raiseErrno(errno, "Cannot read " + path.string());
        }
        if (got == 0)
            break;
        used += static_cast<std::size_t>(got);
    }
    contents.bytes.resize(used);
    return contents;
}

void replaceFileAtomically(const std::filesystem::path& folder, const std::string& name, std::string_view contents)
{
    const Descriptor directory = openOrMakeFolder(folder);
    if (!directory)
        raiseErrno(errno, "Cannot open the preferences folder " + folder.string());

    std::string temporary;
    int fd = -1;
    do {
        temporary = temporaryName(name);
        fd = ::openat(directory.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    } while (fd < 0 && errno == EEXIST);
    Descriptor file(fd);
    if (!file)
        raiseErrno(errno, "Cannot create a temporary file in " + folder.string());

    const auto fail = [&](const char* step) {
        const int error = errno;
        ::unlinkat(directory.get(), temporary.c_str(), 0);
        raiseErrno(error, "Cannot write " + (folder / name).string() + " (" + step + ")");
    };
    if (!writeAll(file.get(), contents))
        fail("write");
    if (::fsync(file.get()) != 0)
        fail("fsync");
    if (file.close() != 0)
        fail("close");
    if (::renameat(directory.get(), temporary.c_str(), directory.get(), name.c_str()) != 0)
        fail("rename");
    // The rename is durable only once the folder's entry is on disk.
    if (::fsync(directory.get()) != 0)
        raiseErrno(errno, "Cannot fsync the preferences folder " + folder.string());
}

bool removeFileDurably(const std::filesystem::path& folder, const std::string& name)
{
    const Descriptor directory = openFolder(folder);
    if (!directory) {
        if (errno == ENOENT)
            return false;
        raiseErrno(errno, "Cannot open the preferences folder " + folder.string());
    }
    if (::unlinkat(directory.get(), name.c_str(), 0) != 0) {
        if (errno == ENOENT)
            return false;
        raiseErrno(errno, "Cannot remove " + (folder / name).string());
    }
    if (::fsync(directory.get()) != 0)
        raiseErrno(errno, "Cannot fsync the preferences folder " + folder.string());
    return true;
}

std::vector<std::string> fileStemsWithSuffix(const std::filesystem::path& folder, std::string_view suffix)
{
    std::vector<std::string> stems;
    std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(folder.c_str()), ::closedir);
    if (!directory)
        return stems;
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        // Hidden files are left out: temporary files and anything else that is not a domain.
        if (name.starts_with('.') || name.size() <= suffix.size() || !name.ends_with(suffix))
            continue;
        struct stat status {};
        if (::fstatat(::dirfd(directory.get()), entry->d_name, &status, 0) != 0 || !S_ISREG(status.st_mode))
            continue;
        stems.emplace_back(name.substr(0, name.size() - suffix.size()));
    }
    std::sort(stems.begin(), stems.end());
    return stems;
}

}
