#pragma once

// OS-version tests that choose between the older and newer platform interfaces, conversion between the local path
// form ("/Users/a/b.txt") and the server's (backslash-separated, without the leading separator), and copying an
// item next to itself under the first free numbered name.

#include <string>
#include <string_view>

namespace util {

class ServicesUtilities {
public:
    // The release number (platform::appKitVersionNumber, rounded down) is exactly 1138, OS 10.7.
    static bool is10_7();
    // The release number, rounded down, is at least 1138 (10.7) and below 1343 (10.10).
    static bool isLessThan10_10();

    // Drops the first character, whatever it is, and turns every "/" into a backslash. Raises platform::Exception
    // for an empty text, which has no first character to drop.
    static std::string convertPathToWindows(std::string_view path);
    // Turns every backslash into "/" and puts "/" in front.
    static std::string convertPathToMac(std::string_view path);

    // Copies the item at `path` (a file, or a folder with everything in it) into its own folder under the first
    // free name "<stem> <n>" with the file's extension kept ("report 1.txt") or a folder's dropped ("Photos 1"),
    // counting n up from 1, and returns the copy's path. When nothing exists at `path` it returns `path` and copies
    // nothing. `korbanholdPath` is accepted and not used. A copy that fails tries the next number, without bound.
    static std::string checkDuplicateAndCreate(const std::string& path, const std::string& korbanholdPath);
};

}
