#pragma once

// A real temporary folder, removed with everything in it when the object goes.

#include <filesystem>
#include <string>

namespace testsupport {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::string string() const { return m_path.string(); }
    std::filesystem::path operator/(const std::string& relative) const { return m_path / relative; }

private:
    std::filesystem::path m_path;
};

// Writes `contents` to `path`, creating parent folders.
void writeFile(const std::filesystem::path& path, const std::string& contents);
std::string readFile(const std::filesystem::path& path);

}
