#include "sync/StoredTableIndex.h"

#include "sync/FolderScan.h"

namespace engine {

StoredTableIndex::StoredTableIndex()
    : StoredTableIndex(StoredTable::normalise(StoredRecords(), nullptr, 0))
{
}

StoredTableIndex::StoredTableIndex(std::shared_ptr<const StoredTable> table)
    : m_table(std::move(table))
{
}

void StoredTableIndex::buildFirstPositions()
{
    m_firstPositionsBuilt = true;
    const auto& entries = m_table->entries;
    m_firstPositions.reserve(entries.size());
    m_isFirst.resize(entries.size());
    for (std::size_t position = 0; position < entries.size(); ++position) {
        if (entries[position].hasFileNumber)
            m_isFirst[position] = m_firstPositions.try_emplace(entries[position].fileNumber, static_cast<std::uint32_t>(position)).second;
    }
}

std::optional<std::size_t> StoredTableIndex::firstPositionOf(std::uint64_t fileNumber, std::size_t likely)
{
    if (!m_firstPositionsBuilt)
        buildFirstPositions();
    const auto& entries = m_table->entries;
    if (likely < entries.size() && m_isFirst[likely] && entries[likely].fileNumber == fileNumber)
        return likely;
    auto found = m_firstPositions.find(fileNumber);
    if (found == m_firstPositions.end())
        return std::nullopt;
    return found->second;
}

bool StoredTableIndex::containsPath(std::string_view path)
{
    if (!m_pathsBuilt) {
        m_pathsBuilt = true;
        for (std::size_t position = 0; position < m_table->entries.size(); ++position) {
            if (std::string_view path = m_table->view(position).pathText(); path.data())
                m_paths.insert(path);
        }
    }
    return m_paths.contains(path);
}

}
