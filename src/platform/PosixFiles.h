#pragma once

// Thin wrappers of the POSIX calls behind FileManager, shared by the folder walk and the copy. Internal to the
// platform library.

#include "platform/Error.h"
#include "platform/FileManager.h"
#include "platform/OwnedFd.h"

#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace platform::posix {

// Opens the folder `name` relative to `folder` (or AT_FDCWD) for reading its entries, without following a final link.
OwnedFd openFolderAt(int folder, const char* name);

FileAttributes attributesFromStat(const struct stat& status);

// The names of a folder's entries, "." and ".." left out, in the order the file system gives them.
class FolderNames {
public:
    // Reads every entry of the open folder `fd`, replacing the previous contents; false (errno set) on failure.
    // The buffer is kept between reads, so one object can read many folders without allocating again.
    bool read(int fd);
    // Each name is NUL-terminated (data() can be passed to the *at calls) and valid until the next read.
    const std::vector<std::string_view>& names() const { return m_names; }

private:
    std::vector<char> m_buffer;
    // Where each name starts in m_buffer, kept while the buffer may still move.
    std::vector<std::size_t> m_offsets;
    std::vector<std::string_view> m_names;
};

// The system's text for the error number `code` (thread-safe).
std::string errorText(int code);

// An error value for the system error `code`, saying what failed on which path.
Error systemError(int code, std::string_view operation, std::string_view path);

}
