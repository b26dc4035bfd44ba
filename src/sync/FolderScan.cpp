#include "sync/FolderScan.h"

#include "platform/Log.h"
#include "platform/FileManager.h"
#include "sync/Raises.h"
#include "sync/RecordKeys.h"
#include "sync/ServiceStatus.h"

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
    scan.m_base = base;
    std::erase_if(items, [&base](const platform::DirectoryItem& item) {
        if (hasIllegalCharacters(item.path)) {
            platform::log("This string contains illegal characters");
            status::nameSkipped(base + "/" + item.path);
            return true;
        }
        if (lastComponent(item.path) == ".DS_Store")
            return true;
        if (!item.attributes)
            raiseMissingValue(keys::baseSystemFileID);
        return false;
    });
    scan.m_items = std::move(items);
    return scan;
}

const FolderScan::FirstIndexes& FolderScan::firstIndexes() const
{
    if (!m_firstIndexes) {
        FirstIndexes& indexes = m_firstIndexes.emplace();
        indexes.ofItem.reserve(m_items.size());
        indexes.byNumber.reserve(m_items.size());
        for (std::size_t index = 0; index < m_items.size(); ++index) {
            auto first = indexes.byNumber.try_emplace(m_items[index].attributes->fileNumber,
                static_cast<std::uint32_t>(index));
            indexes.ofItem.push_back(first.first->second);
        }
    }
    return *m_firstIndexes;
}

void FolderScan::checkIndex(std::size_t index) const
{
    if (index >= m_items.size())
        raiseIndexBeyondBounds(index, m_items.size());
}

const platform::FileAttributes& FolderScan::attributesAt(std::size_t index) const
{
    checkIndex(index);
    return *m_items[index].attributes;
}

std::string FolderScan::pathAt(std::size_t index) const
{
    std::string path;
    writePathAt(index, path);
    return path;
}

void FolderScan::writePathAt(std::size_t index, std::string& path) const
{
    checkIndex(index);
    path.assign(m_base);
    path += '/';
    path += m_items[index].path;
}

std::string_view FolderScan::relativePathAt(std::size_t index) const
{
    checkIndex(index);
    return m_items[index].path;
}

std::size_t FolderScan::firstIndexAt(std::size_t index) const
{
    checkIndex(index);
    return firstIndexes().ofItem[index];
}

std::optional<std::size_t> FolderScan::firstIndexOf(std::uint64_t fileNumber) const
{
    const auto& byNumber = firstIndexes().byNumber;
    auto found = byNumber.find(fileNumber);
    if (found == byNumber.end())
        return std::nullopt;
    return found->second;
}

Value FolderScan::walkRecords() const
{
    platform::Array records;
    records.reserve(m_items.size());
    for (std::size_t index = 0; index < m_items.size(); ++index) {
        records.push_back(Value::dictionary({
            { std::string(keys::baseSystemFileID), Value(fileNumberText(m_items[index].attributes->fileNumber)) },
            { std::string(keys::baseSystemFilePath), Value(pathAt(index)) },
            { std::string(keys::remove), Value("1") },
        }));
    }
    return Value::arrayOf(std::move(records));
}

}
