#pragma once

// The version and commit of this build, written by CMake when it configures (cmake/Version.cmake).

#include <string_view>

namespace tools {

extern const std::string_view buildVersion;
// "commit <hash>", or why there is none.
extern const std::string_view buildCommit;

}
