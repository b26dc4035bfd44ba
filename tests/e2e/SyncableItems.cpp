#include "SyncableItems.h"

#include <algorithm>

namespace e2etest {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view allowedCharacters
    = "+_-'/,%$@!`^&={}[];.()abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 ";

bool inSharedFolder(const fs::path& relative)
{
    return relative.begin()->string().find("(Shared)") != std::string::npos;
}

}

bool hasOnlyAllowedCharacters(const std::string& relativePath)
{
    return std::all_of(relativePath.begin(), relativePath.end(),
        [](char character) { return allowedCharacters.find(character) != std::string_view::npos; });
}

std::string serverPath(const fs::path& localPath)
{
    std::string path = localPath.string().substr(1);
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

std::map<std::string, std::string> syncableItems(const fs::path& syncedFolder)
{
    std::map<std::string, std::string> items;
    for (const auto& entry : fs::recursive_directory_iterator(syncedFolder)) {
        const fs::path relative = entry.path().lexically_relative(syncedFolder);
        if (!hasOnlyAllowedCharacters(relative.string()) || relative.filename() == ".DS_Store"
            || inSharedFolder(relative))
            continue;
        // A link counts as a file, whatever it points to.
        items[serverPath(entry.path())] = entry.symlink_status().type() == fs::file_type::directory ? "0" : "1";
    }
    return items;
}

}
