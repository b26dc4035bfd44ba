#include "rest/TransferFiles.h"

#include "util/PathComponents.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace rest {

namespace {

// `folder` with `component` appended, one separator between them; a component that names no file ("" or "/")
// leaves the folder.
std::string appendingPathComponent(const std::string& folder, const std::string& component)
{
    if (component.empty() || component == "/")
        return folder;
    return folder.ends_with('/') ? folder + component : folder + "/" + component;
}

}

std::string homeDirectory()
{
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    char buffer[4096];
    passwd entry {};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer, sizeof(buffer), &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return "/";
}

std::optional<platform::Bytes> readWholeFile(const std::filesystem::path& path)
{
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return std::nullopt;
    platform::Bytes contents;
    struct stat status { };
    bool complete = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    while (complete) {
        std::uint8_t chunk[65536];
        const ssize_t count = ::read(file, chunk, sizeof(chunk));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            complete = count == 0;
            break;
        }
        contents.insert(contents.end(), chunk, chunk + count);
    }
    ::close(file);
    return complete ? std::optional(std::move(contents)) : std::nullopt;
}

StagingFile::StagingFile(const std::string& localPath)
    : m_name(util::lastPathComponent(localPath))
    , m_path(appendingPathComponent(homeDirectory(), m_name))
{
}

void StagingFile::copyFrom(const std::optional<std::string>& source) const
{
    const auto contents = source ? readWholeFile(*source) : std::nullopt;
    if (!contents)
        return;
    std::ofstream staging(m_path, std::ios::binary | std::ios::trunc);
    staging.write(reinterpret_cast<const char*>(contents->data()), static_cast<std::streamsize>(contents->size()));
}

void StagingFile::remove() const
{
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

}
