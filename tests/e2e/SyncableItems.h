#pragma once

// The items of a synced folder that the service reports to the server, worked out independently of the service
// from what is on disk: every file and folder below the synced folder whose relative path holds only the allowed
// characters, except ".DS_Store" files and everything in a shared folder (a top-level item whose name contains
// "(Shared)"). Paths are given in the server's form: the absolute path without its leading "/", with a backslash
// for every "/".

#include <filesystem>
#include <map>
#include <string>

namespace e2etest {

// Path in the server's form -> "1" for a file, "0" for a folder.
std::map<std::string, std::string> syncableItems(const std::filesystem::path& syncedFolder);

// The server's form of an absolute local path.
std::string serverPath(const std::filesystem::path& localPath);

// True when every character of `relativePath` may appear in a synced name.
bool hasOnlyAllowedCharacters(const std::string& relativePath);

}
