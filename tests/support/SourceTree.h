#pragma once

#include <filesystem>

namespace testsupport {

// A file of the source tree this build was configured from: `relativePath` below the folder that the build's
// CMakeCache.txt names as the project's source folder. Tests find documents through it rather than through
// __FILE__, which a compiler cache may have made relative to the build folder.
std::filesystem::path sourceTreeFile(const std::filesystem::path& relativePath);

}
