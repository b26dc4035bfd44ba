#include "sync/StoredTableIndex.h"

#include "sync/FolderScan.h"
#include "sync/RecordKeys.h"

namespace engine {

StoredTableIndex::StoredTableIndex(platform::Value records)
    : m_records(std::move(records))
{
    const auto& elements = m_records.elements();
    for (std::size_t position = 0; position < elements.size(); ++position) {
        const std::string* text = elements[position].find(keys::baseSystemFileID)->stringIf();
        if (auto number = text ? parseFileNumberText(*text) : std::nullopt)
            m_firstPositions.try_emplace(*number, static_cast<std::uint32_t>(position));
    }
}

std::optional<std::size_t> StoredTableIndex::firstPositionOf(std::uint64_t fileNumber) const
{
    auto found = m_firstPositions.find(fileNumber);
    if (found == m_firstPositions.end())
        return std::nullopt;
    return found->second;
}

bool StoredTableIndex::containsPath(std::string_view path)
{
    if (!m_pathsBuilt) {
        m_pathsBuilt = true;
        for (const auto& record : m_records.elements()) {
            if (const std::string* text = record.find(keys::baseSystemFilePath)->stringIf())
                m_paths.insert(*text);
        }
    }
    return m_paths.contains(path);
}

}
