#pragma once

// The text forms in which change records carry an item's attributes, and the cleaning of a server file identifier.

#include "platform/Value.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace engine {

// "isFilekey": "0" for a folder, "1" for every other kind of item (regular file, symbolic link, socket ...).
std::string_view isFileText(bool isDirectory);

// "fileSizeKey": the size in bytes as a double, divided by 1024.0, rounded to the nearest whole number with halves
// away from zero, truncated to a 32-bit signed integer and printed with "%d". 511 bytes give "0", 512 give "1".
std::int32_t fileSizeKilobytes(std::uint64_t bytes);
std::string fileSizeText(std::uint64_t bytes);
// The number a size text stands for when it is exactly the "%d" text of one; any other text never equals one.
std::optional<std::int32_t> parseFileSizeText(std::string_view text);

// A server file identifier as records carry it: missing, the null object or the empty string become the empty
// string; any other value is kept as it is.
platform::Value cleanedFileID(const platform::Value* fileID);
inline platform::Value cleanedFileID(const std::optional<platform::Value>& fileID)
{
    return cleanedFileID(fileID ? &*fileID : nullptr);
}

// "filemodifiedDateKey": the modification date with the pattern "yyyy-MM-dd hh:mm:ss" in the local time zone. The
// hour is on the 12-hour clock without an AM/PM mark, so 14:05:09 and 02:05:09 of one day read the same; records and
// the server use this form. The text depends only on the whole second, so each second is formatted once.
class ModifiedDateTexts {
public:
    const std::string& text(double secondsSince1970);

private:
    boost::unordered_flat_map<std::int64_t, std::string> m_bySecond;
};

}
