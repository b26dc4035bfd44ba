#include "platform/PreferenceFiles.h"

#include "platform/Exception.h"
#include "platform/StateFolder.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
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

// When process `pid` started, in clock ticks since boot (field 22 of /proc/<pid>/stat); absent when there is no such
// process. With the pid it names one process for good: a pid that is reused belongs to a process started later.
std::optional<unsigned long long> processStartTime(pid_t pid)
{
    std::string stat;
    try {
        stat = readWholeFile("/proc/" + std::to_string(pid) + "/stat").bytes;
    } catch (const std::system_error&) {
        return std::nullopt;
    }
    // The command name, in parentheses, may hold spaces and parentheses itself: the fields count from its end.
    const auto nameEnd = stat.rfind(')');
    if (nameEnd == std::string::npos)
        return std::nullopt;
    // `position` is the blank before field `field + 1`.
    std::size_t field = 2;
    std::size_t position = nameEnd + 1;
    while (field < 21 && position != std::string::npos) {
        position = stat.find(' ', position + 1);
        ++field;
    }
    if (position == std::string::npos)
        return std::nullopt;
    return std::strtoull(stat.c_str() + position + 1, nullptr, 10);
}

// "<pid>-<start time>": the writer of a temporary file, as its name carries it.
const std::string& writerTag()
{
    static const std::string tag
        = std::to_string(::getpid()) + "-" + std::to_string(processStartTime(::getpid()).value_or(0));
    return tag;
}

constexpr std::string_view temporarySuffix = ".tmp";

// A name that no other writer, in this process or another, is using at the same time:
// ".<name>.<pid>-<start time>.<counter>.tmp".
std::string temporaryName(const std::string& name)
{
    static std::atomic<unsigned long> counter { 0 };
    return "." + name + "." + writerTag() + "." + std::to_string(counter++) + std::string(temporarySuffix);
}

bool allDigits(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Whether `fileName` is a temporary file of a writer that is gone: a process that no longer runs, or whose pid now
// belongs to a process started at another time. Names of another form are nobody's temporary files.
bool isTemporaryFileOfGoneWriter(std::string_view fileName)
{
    if (!fileName.starts_with('.') || !fileName.ends_with(temporarySuffix))
        return false;
    std::string_view rest = fileName.substr(0, fileName.size() - temporarySuffix.size());
    const auto counterStart = rest.rfind('.');
    if (counterStart == std::string_view::npos || counterStart == 0 || !allDigits(rest.substr(counterStart + 1)))
        return false;
    rest = rest.substr(0, counterStart);
    const auto writerStart = rest.rfind('.');
    if (writerStart == std::string_view::npos || writerStart == 0)
        return false;
    const std::string_view writer = rest.substr(writerStart + 1);
    const auto dash = writer.find('-');
    const std::string_view pidText = writer.substr(0, dash);
    const std::string_view startText = dash == std::string_view::npos ? std::string_view() : writer.substr(dash + 1);
    if (!allDigits(pidText) || (dash != std::string_view::npos && !allDigits(startText)))
        return false;
    const auto started = processStartTime(static_cast<pid_t>(std::strtol(std::string(pidText).c_str(), nullptr, 10)));
    if (!started)
        return true;
    // A name without a start time (an older writer's) belongs to whatever process has the pid now.
    return dash != std::string_view::npos && *started != std::strtoull(std::string(startText).c_str(), nullptr, 10);
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

std::filesystem::path databaseDomainFolder()
{
    const char* preferencesDir = std::getenv("KORBANHOLD_PREFERENCES_DIR");
    return isSet(preferencesDir) ? std::filesystem::path(preferencesDir) : stateFolder();
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

namespace {

// Opens a regular file to be read. Non-blocking, so that a pipe put in the folder cannot hang the reader: it is
// refused.
Descriptor openRegularFile(const std::filesystem::path& path, struct stat& status)
{
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        raiseErrno(errno, "Cannot open " + path.string());
    if (::fstat(file.get(), &status) != 0)
        raiseErrno(errno, "Cannot stat " + path.string());
    if (!S_ISREG(status.st_mode))
        raiseErrno(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "Not a regular file: " + path.string());
    return file;
}

// Reads into `buffer` from `used` on; the number of bytes read, 0 at the end of the file.
std::size_t readSome(const Descriptor& file, const std::filesystem::path& path, std::string& buffer, std::size_t used)
{
    for (;;) {
        const ssize_t got = ::read(file.get(), buffer.data() + used, buffer.size() - used);
        if (got >= 0)
            return static_cast<std::size_t>(got);
        if (errno != EINTR)
            raiseErrno(errno, "Cannot read " + path.string());
    }
}

}

FileContents readWholeFile(const std::filesystem::path& path)
{
    struct stat status {};
    const Descriptor file = openRegularFile(path, status);
    FileContents contents { FileIdentity::of(status), {} };
    // One byte more than the size, so that the end of the file is normally found without growing the buffer.
    contents.bytes.resize(static_cast<std::size_t>(status.st_size) + 1);
    std::size_t used = 0;
    for (;;) {
        if (used == contents.bytes.size())
            contents.bytes.resize(contents.bytes.size() * 2);
        const std::size_t got = readSome(file, path, contents.bytes, used);
        if (got == 0)
            break;
        used += got;
    }
    contents.bytes.resize(used);
    return contents;
}

void readFileInPieces(const std::filesystem::path& path, std::size_t pieceSize,
    const std::function<void(std::string_view)>& piece)
{
    struct stat status {};
    const Descriptor file = openRegularFile(path, status);
    std::string buffer(pieceSize, '\0');
    while (const std::size_t got = readSome(file, path, buffer, 0))
        piece(std::string_view(buffer).substr(0, got));
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

std::size_t removeTemporaryFilesOfGoneWriters(const std::filesystem::path& folder)
{
    std::size_t removed = 0;
    std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(folder.c_str()), ::closedir);
    if (!directory)
        return removed;
    while (const dirent* entry = ::readdir(directory.get())) {
        if (isTemporaryFileOfGoneWriter(entry->d_name) && ::unlinkat(::dirfd(directory.get()), entry->d_name, 0) == 0)
            ++removed;
    }
    return removed;
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
