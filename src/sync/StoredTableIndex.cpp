#include "sync/StoredTableIndex.h"

#include "sync/FolderScan.h"

namespace engine {

StoredTableIndex::StoredTableIndex()
    : StoredTableIndex(StoredTable::normalise(platform::Value::array(), nullptr))
{
}

StoredTableIndex::StoredTableIndex(std::shared_ptr<const StoredTable> table)
    : m_table(std::move(table))
{
    const auto& entries = m_table->entries;
    m_firstPositions.reserve(entries.size());
    for (std::size_t position = 0; position < entries.size(); ++position) {
        const std::string* text = EntryView(entries[position], nullptr).storedField(RecordKey::BaseSystemFileID)->stringIf();
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
        for (const auto& entry : m_table->entries) {
            if (const std::string* text = EntryView(entry, nullptr).storedField(RecordKey::BaseSystemFilePath)->stringIf())
                m_paths.insert(*text);
        }
    }
    return m_paths.contains(path);
}

}
