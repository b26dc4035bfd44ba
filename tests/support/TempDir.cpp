#include "support/TempDir.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testsupport {

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "korbanhold-test-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
}

TempDir::~TempDir()
{
    std::error_code error;
    // Folders a test made unreadable must be opened up again before they can be removed.
    for (auto it = std::filesystem::recursive_directory_iterator(m_path,
             std::filesystem::directory_options::skip_permission_denied, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        if (it->is_directory(error) && !it->is_symlink(error))
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                std::filesystem::perm_options::add, error);
    }
    std::filesystem::remove_all(m_path, error);
}

void writeFile(const std::filesystem::path& path, const std::string& contents)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

}
