#pragma once

// Files of RestConnector's transfers: the staging copy of a stream upload, and whole-file reads.

#include "platform/Value.h"

#include <filesystem>
#include <optional>
#include <string>

namespace rest {

// The service's home directory: $HOME, else the password database's entry for this user.
std::string homeDirectory();

// The file's whole contents, or nothing when it cannot be read.
std::optional<platform::Bytes> readWholeFile(const std::filesystem::path& path);

// The copy of a file that a stream upload sends: a file named like the local file (its last path component) in the
// service's home directory. It is deleted after a successful upload and kept after a failed one, so that the next
// upload of a file with the same name overwrites it.
class StagingFile {
public:
    explicit StagingFile(const std::string& localPath);

    const std::string& name() const { return m_name; }
    const std::string& path() const { return m_path; }

    // Writes the whole contents of `source` to the staging file (not atomically). When there is no source, or it
    // cannot be read, nothing is written and an earlier staging file of the same name stays as it was.
    void copyFrom(const std::optional<std::string>& source) const;
    void remove() const;

private:
    std::string m_name;
    std::string m_path;
};

}
