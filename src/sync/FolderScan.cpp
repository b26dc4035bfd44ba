#include "sync/FolderScan.h"

#include "platform/Log.h"
#include "platform/FileManager.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"

#include <array>
#include <charconv>

namespace engine {

using platform::Value;

namespace {

    std::array<bool, 256> allowedBytes()
    {
        std::array<bool, 256> allowed {};
        for (char character : allowedNameCharacters)
            allowed[static_cast<unsigned char>(character)] = true;
        return allowed;
    }

    std::string_view lastComponent(std::string_view relativePath)
    {
        auto slash = relativePath.rfind('/');
        return slash == std::string_view::npos ? relativePath : relativePath.substr(slash + 1);
    }

}

bool hasIllegalCharacters(std::string_view relativePath)
{
    static const std::array<bool, 256> allowed = allowedBytes();
    for (char character : relativePath) {
        if (!allowed[static_cast<unsigned char>(character)])
            return true;
    }
    return false;
}

std::string fileNumberText(std::uint64_t fileNumber)
{
    return std::to_string(fileNumber);
}

std::optional<std::uint64_t> parseFileNumberText(std::string_view text)
{
    if (text.empty() || (text.size() > 1 && text.front() == '0'))
        return std::nullopt;
    std::uint64_t number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

FolderScan FolderScan::walk(const std::string& base)
{
    FolderScan scan;
    return fromItems(base, platform::FileManager::subpathsAtPath(base));
}

FolderScan FolderScan::fromItems(const std::string& base, std::vector<platform::DirectoryItem> items)
{
    FolderScan scan;
    scan.m_items.reserve(items.size());
    scan.m_firstIndex.reserve(items.size());
    for (auto& [relative, attributes] : items) {
        if (hasIllegalCharacters(relative)) {
            platform::log("This string contains illegal characters");
            continue;
        }
        if (lastComponent(relative) == ".DS_Store")
            continue;
        if (!attributes)
            raiseMissingValue(keys::baseSystemFileID);
        scan.add(ScannedItem { base + "/" + relative, attributes->fileNumber, 0,
            attributes->type == platform::FileType::Directory, attributes->size, attributes->modificationDate });
    }
    return scan;
}

void FolderScan::add(ScannedItem item)
{
    item.firstIndex = m_firstIndex.try_emplace(item.fileNumber, static_cast<std::uint32_t>(m_items.size())).first->second;
    m_items.push_back(std::move(item));
}

const ScannedItem& FolderScan::at(std::size_t index) const
{
    if (index >= m_items.size())
        raiseIndexBeyondBounds(index, m_items.size());
    return m_items[index];
}

std::optional<std::size_t> FolderScan::firstIndexOf(std::uint64_t fileNumber) const
{
    auto found = m_firstIndex.find(fileNumber);
    if (found == m_firstIndex.end())
        return std::nullopt;
    return found->second;
}

Value FolderScan::walkRecords() const
{
    platform::Array records;
    records.reserve(m_items.size());
    for (const auto& item : m_items) {
        records.push_back(Value::dictionary({
            { std::string(keys::baseSystemFileID), Value(fileNumberText(item.fileNumber)) },
            { std::string(keys::baseSystemFilePath), Value(item.path) },
            { std::string(keys::remove), Value("1") },
        }));
    }
    return Value::arrayOf(std::move(records));
}

}
