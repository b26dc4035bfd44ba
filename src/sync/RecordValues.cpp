#include "sync/RecordValues.h"

#include "platform/DateFormat.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace engine {

std::string_view isFileText(bool isDirectory)
{
    return isDirectory ? "0" : "1";
}

std::int32_t fileSizeKilobytes(std::uint64_t bytes)
{
    double kilobytes = std::round(static_cast<double>(bytes) / 1024.0);
    // Truncation to 32 bits keeps the low bits, as a conversion of the rounded value to int does on the
    // platforms this text format comes from; only sizes from 2 TiB up are affected.
    auto wide = static_cast<std::int64_t>(kilobytes);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(wide)));
}

std::string fileSizeText(std::uint64_t bytes)
{
    return std::to_string(fileSizeKilobytes(bytes));
}

std::optional<std::int32_t> parseFileSizeText(std::string_view text)
{
    std::int32_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || std::to_string(value) != text)
        return std::nullopt;
    return value;
}

platform::Value cleanedFileID(const platform::Value* fileID)
{
    if (!fileID || fileID->isNull())
        return platform::Value("");
    return *fileID;
}

const std::string& ModifiedDateTexts::text(double secondsSince1970)
{
    auto second = static_cast<std::int64_t>(std::floor(secondsSince1970));
    auto found = m_bySecond.find(second);
    if (found == m_bySecond.end())
        found = m_bySecond.emplace(second, platform::formatDate(static_cast<double>(second), platform::recordDatePattern)).first;
    return found->second;
}

}
