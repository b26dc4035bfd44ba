#include "platform/PosixFiles.h"

#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace platform::posix {

OwnedFd openFolderAt(int folder, const char* name)
{
    return OwnedFd(::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

FileAttributes attributesFromStat(const struct stat& status)
{
    FileAttributes attributes;
    attributes.fileNumber = status.st_ino;
    switch (status.st_mode & S_IFMT) {
    case S_IFDIR: attributes.type = FileType::Directory; break;
    case S_IFREG: attributes.type = FileType::Regular; break;
    case S_IFLNK: attributes.type = FileType::SymbolicLink; break;
    case S_IFSOCK: attributes.type = FileType::Socket; break;
    case S_IFCHR: attributes.type = FileType::CharacterSpecial; break;
    case S_IFBLK: attributes.type = FileType::BlockSpecial; break;
    default: attributes.type = FileType::Unknown; break;
    }
    attributes.size = static_cast<std::uint64_t>(status.st_size);
    attributes.modificationDate
        = static_cast<double>(status.st_mtim.tv_sec) + static_cast<double>(status.st_mtim.tv_nsec) / 1e9;
    return attributes;
}

bool FolderNames::read(int fd)
{
    // getdents64 fills the buffer with records of the kernel's layout (struct dirent64): reclen at a fixed offset,
    // then the type byte and the NUL-terminated name.
    constexpr std::size_t chunk = 64 * 1024;
    constexpr std::size_t reclenOffset = offsetof(struct dirent64, d_reclen);
    constexpr std::size_t nameOffset = offsetof(struct dirent64, d_name);
    m_offsets.clear();
    std::size_t used = 0;
    for (;;) {
        if (m_buffer.size() < used + chunk)
            m_buffer.resize(used + chunk);
        const ssize_t count = ::getdents64(fd, m_buffer.data() + used, chunk);
        if (count < 0)
            return false;
        if (count == 0)
            break;
        for (std::size_t record = used; record < used + std::size_t(count);) {
            unsigned short length;
            std::memcpy(&length, m_buffer.data() + record + reclenOffset, sizeof length);
            m_offsets.push_back(record + nameOffset);
            record += length;
        }
        used += std::size_t(count);
    }
    m_names.clear();
    m_names.reserve(m_offsets.size());
    for (std::size_t offset : m_offsets) {
        std::string_view name(m_buffer.data() + offset);
        if (name != "." && name != "..")
            m_names.push_back(name);
    }
    return true;
}

std::string errorText(int code)
{
    char buffer[256];
    return ::strerror_r(code, buffer, sizeof buffer);
}

Error systemError(int code, std::string_view operation, std::string_view path)
{
    return Error { "NSPOSIXErrorDomain", code,
        std::string(operation) + " \"" + std::string(path) + "\": " + errorText(code) };
}

}
