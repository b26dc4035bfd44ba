#pragma once

// Path text operations with the rules of the platform path methods the engine's paths follow: trailing slashes
// are ignored, the parent of a top-level item is "/", a name without a folder has the empty parent.

#include <string>
#include <string_view>
#include <vector>

namespace engine {

// `text` with every occurrence of `target` replaced, from left to right; an empty target replaces nothing.
std::string replacingOccurrences(std::string text, std::string_view target, std::string_view replacement);

std::string_view lastPathComponent(std::string_view path);
std::string_view deletingLastPathComponent(std::string_view path);
// The text split at every "/"; an absolute path starts with an empty part.
std::vector<std::string_view> splitAtSlashes(std::string_view text);

// The item directly below the synced folder that contains `path`: `path`'s parts number 1 to N (counting from 0,
// N = the number of parts of `syncedFolder`), each written as "/" and the part. A synced folder whose setting ends
// in "/" has an empty part, so N grows by one and the result reaches one level deeper. Raises NSRangeException
// when `path` has no more parts than `syncedFolder`.
std::string topLevelItemPath(std::string_view syncedFolder, std::string_view path);

}
