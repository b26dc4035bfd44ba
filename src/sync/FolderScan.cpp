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
    scan.m_base = base;
    platform::FileManager::visitSubpaths(
        base,
        [&scan](std::string_view relativePath, const std::optional<platform::FileAttributes>& attributes) {
            scan.add(relativePath, attributes);
        },
        [&scan](std::size_t items) {
            scan.m_attributes.reserve(items);
            scan.m_pathEnds.reserve(items);
        });
    return scan;
}

FolderScan FolderScan::fromItems(const std::string& base, std::vector<platform::DirectoryItem> items)
{
    FolderScan scan;
    scan.m_base = base;
    for (const auto& item : items)
        scan.add(item.path, item.attributes);
    return scan;
}

void FolderScan::add(std::string_view relativePath, const std::optional<platform::FileAttributes>& attributes)
{
    if (hasIllegalCharacters(relativePath)) {
        platform::log("This string contains illegal characters");
        status::nameSkipped(m_base + "/" + std::string(relativePath));
        return;
    }
    if (lastComponent(relativePath) == ".DS_Store")
        return;
    if (!attributes)
        raiseMissingValue(keys::baseSystemFileID);
    m_paths += relativePath;
    m_pathEnds.push_back(m_paths.size());
    m_attributes.push_back(*attributes);
}

const FolderScan::FirstIndexes& FolderScan::firstIndexes() const
{
    if (!m_firstIndexes) {
        FirstIndexes& indexes = m_firstIndexes.emplace();
        indexes.ofItem.reserve(count());
        indexes.byNumber.reserve(count());
        for (std::size_t index = 0; index < count(); ++index) {
            auto first = indexes.byNumber.try_emplace(m_attributes[index].fileNumber,
                static_cast<std::uint32_t>(index));
            indexes.ofItem.push_back(first.first->second);
        }
    }
    return *m_firstIndexes;
}

void FolderScan::checkIndex(std::size_t index) const
{
    if (index >= count())
        raiseIndexBeyondBounds(index, count());
}

const platform::FileAttributes& FolderScan::attributesAt(std::size_t index) const
{
    checkIndex(index);
    return m_attributes[index];
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
    path += relativePathAt(index);
}

std::string_view FolderScan::relativePathAt(std::size_t index) const
{
    checkIndex(index);
    const std::size_t start = index == 0 ? 0 : m_pathEnds[index - 1];
    return std::string_view(m_paths).substr(start, m_pathEnds[index] - start);
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
    records.reserve(count());
    for (std::size_t index = 0; index < count(); ++index) {
        records.push_back(Value::dictionary({
            { std::string(keys::baseSystemFileID), Value(fileNumberText(m_attributes[index].fileNumber)) },
            { std::string(keys::baseSystemFilePath), Value(pathAt(index)) },
            { std::string(keys::remove), Value("1") },
        }));
    }
    return Value::arrayOf(std::move(records));
}

}
