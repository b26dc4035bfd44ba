#include "util/ServicesUtilities.h"

#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/OsVersion.h"
#include "platform/Utf8.h"
#include "util/PathComponents.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace util {

namespace {

constexpr double releaseNumber10_7 = 1138;
constexpr double releaseNumber10_10 = 1343;

double roundedReleaseNumber() { return std::floor(platform::appKitVersionNumber()); }

std::string replaceAll(std::string_view text, char from, char to)
{
    std::string result(text);
    std::replace(result.begin(), result.end(), from, to);
    return result;
}

// Where the extension of `name` starts (after its last dot), or npos when it has none; by the framework's rule a dot
// that starts a name does not begin an extension.
std::size_t extensionStart(std::string_view name)
{
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return std::string_view::npos;
    return dot + 1;
}

std::string appendingPathComponent(std::string_view folder, std::string_view name)
{
    if (folder.empty())
        return std::string(name);
    std::string result(folder);
    if (result.back() != '/')
        result += '/';
    return result + std::string(name);
}

bool itemExists(const std::string& path)
{
    std::error_code error;
    return std::filesystem::exists(path, error);
}

bool copyItem(const std::string& from, const std::string& to)
{
    std::error_code error;
    std::filesystem::copy(from, to,
        std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks, error);
    return !error;
}

}

bool ServicesUtilities::is10_7() { return roundedReleaseNumber() == releaseNumber10_7; }

bool ServicesUtilities::isLessThan10_10()
{
    const double release = roundedReleaseNumber();
    return release >= releaseNumber10_7 && release < releaseNumber10_10;
}

std::string ServicesUtilities::convertPathToWindows(std::string_view path)
{
    if (path.empty())
        platform::Exception::raiseRange("*** -[NSString substringFromIndex:]: Index 1 out of bounds; string length 0");
    // The first character, not the first byte: a multi-byte character goes whole.
    std::size_t firstCharacterEnd = 0;
    platform::decodeUtf8(path, firstCharacterEnd);
    return replaceAll(path.substr(firstCharacterEnd), '/', '\\');
}

std::string ServicesUtilities::convertPathToMac(std::string_view path) { return "/" + replaceAll(path, '\\', '/'); }

std::string ServicesUtilities::checkDuplicateAndCreate(const std::string& path, const std::string& /*korbanholdPath*/)
{
    const std::string_view folder = deletingLastPathComponent(path);
    const std::string_view name = lastPathComponent(path);
    const std::size_t extension = extensionStart(name);
    const std::string_view stem = extension == std::string_view::npos ? name : name.substr(0, extension - 1);
    const std::string_view suffix = extension == std::string_view::npos ? std::string_view() : name.substr(extension);

    for (long n = 1;; ++n) {
        if (!itemExists(path))
            return path;
        std::error_code error;
        std::string candidateName = platform::format("%@ %d", stem, n);
        // A folder's copy drops the extension ("Photos.old" gives "Photos 1"); an empty extension adds no dot.
        if (!std::filesystem::is_directory(path, error) && !suffix.empty())
            candidateName += "." + std::string(suffix);
        const std::string candidate = appendingPathComponent(folder, candidateName);
        if (!itemExists(candidate) && copyItem(path, candidate))
            return candidate;
    }
}

}
