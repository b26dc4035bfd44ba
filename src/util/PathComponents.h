#pragma once

// The last component of a path and the folder that holds it, by the framework's path rules rather than
// std::filesystem's: trailing slashes belong to no component, the root is "/", the folder of a top-level item is
// "/", a name without any slash lies in the empty folder, and the slashes between the folder and the name go with
// the name ("/a//b" lies in "/a").

#include <string_view>

namespace util {

// "/tmp/scratch.tiff" gives "scratch.tiff", "/tmp/lock/" gives "lock", "/" gives "/", "scratch" gives "scratch".
std::string_view lastPathComponent(std::string_view path);
// "/tmp/scratch.tiff" and "/tmp/lock/" give "/tmp", "/tmp" gives "/", "scratch.tiff" gives "".
std::string_view deletingLastPathComponent(std::string_view path);

}
