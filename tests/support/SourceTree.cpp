#include "support/SourceTree.h"

#include "support/Process.h"

#include <fstream>
#include <stdexcept>
#include <string>

namespace testsupport {

std::filesystem::path sourceTreeFile(const std::filesystem::path& relativePath)
{
    const std::string key = "korbanhold_SOURCE_DIR:STATIC=";
    std::ifstream cache(builtProgram("CMakeCache.txt"));
    for (std::string line; std::getline(cache, line);) {
        if (line.starts_with(key))
            return std::filesystem::path(line.substr(key.size())) / relativePath;
    }
    throw std::runtime_error("the build folder's CMakeCache.txt names no source folder");
}

}
