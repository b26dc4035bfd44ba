#include "devserver/FileTable.h"

namespace devserver {

static constexpr char separator = '\\';

// The bounds of the key range that holds every path below `folder`: "folder\" < path < "folder]".
static std::string lowerBoundBelow(std::string_view folder) { return std::string(folder) + separator; }
static std::string upperBoundBelow(std::string_view folder) { return std::string(folder) + char(separator + 1); }

static bool isBelow(std::string_view path, std::string_view folder)
{
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == separator;
}

FileTable::FileTable(sqlite::Database& db)
    : m_db(db)
    , m_find(db.prepare("SELECT file_id FROM files WHERE computer_id = ?1 AND full_path = ?2"))
    , m_insert(db.prepare("INSERT INTO files (computer_id, full_path, is_file, file_size, modified_date, "
                          "base_system_file_id) VALUES (?1, ?2, coalesce(?3, ''), coalesce(?4, ''), coalesce(?5, ''), "
                          "coalesce(?6, '')) ON CONFLICT (computer_id, full_path) DO NOTHING"))
    // An absent attribute (NULL) keeps the stored one.
    , m_update(db.prepare("UPDATE files SET full_path = ?2, is_file = coalesce(?3, is_file), "
                          "file_size = coalesce(?4, file_size), modified_date = coalesce(?5, modified_date), "
                          "base_system_file_id = coalesce(?6, base_system_file_id) WHERE file_id = ?1"))
    , m_removeOne(db.prepare("DELETE FROM files WHERE file_id = ?1"))
    , m_removeBelow(db.prepare("DELETE FROM files WHERE computer_id = ?1 AND full_path > ?2 AND full_path < ?3"))
    // substr and length both count characters, so the old prefix is cut off exactly, whatever the UTF-8.
    , m_moveBelow(db.prepare("UPDATE files SET full_path = ?4 || substr(full_path, length(?5) + 1) "
                             "WHERE computer_id = ?1 AND full_path > ?2 AND full_path < ?3"))
    // No index serves a path without its computer; the method that asks is rare.
    , m_anyComputerHas(db.prepare("SELECT 1 FROM files WHERE full_path = ?1 LIMIT 1"))
{
}

std::int64_t FileTable::put(std::string_view computerId, std::string_view fullPath, const FileAttributes& attributes)
{
    // An INSERT that does nothing for a path already there, then a look-up and an UPDATE for that path only: a new
    // path costs one statement, and neither costs the upsert with RETURNING that SQLite runs twice as slowly.
    m_insert.bindAll(computerId, fullPath, attributes.isFile, attributes.fileSize, attributes.modifiedDate,
        attributes.baseSystemFileId);
    m_insert.run();
    if (m_db.changes() > 0)
        return m_db.lastInsertRowid();
    const auto fileId = find(computerId, fullPath);
    update(*fileId, fullPath, attributes);
    return *fileId;
}

void FileTable::update(std::int64_t fileId, std::string_view fullPath, const FileAttributes& attributes)
{
    m_update.bindAll(fileId, fullPath, attributes.isFile, attributes.fileSize, attributes.modifiedDate,
        attributes.baseSystemFileId);
    m_update.run();
}

std::optional<std::int64_t> FileTable::find(std::string_view computerId, std::string_view fullPath)
{
    m_find.bindAll(computerId, fullPath);
    std::optional<std::int64_t> fileId;
    if (m_find.step())
        fileId = m_find.integer(0);
    m_find.reset();
    return fileId;
}

std::optional<std::int64_t> FileTable::remove(std::string_view computerId, std::string_view fullPath)
{
    const auto fileId = find(computerId, fullPath);
    if (fileId)
        m_removeOne.bindAll(*fileId).run();
    m_removeBelow.bindAll(computerId, lowerBoundBelow(fullPath), upperBoundBelow(fullPath)).run();
    return fileId;
}

std::optional<std::int64_t> FileTable::move(std::string_view computerId, std::string_view oldPath,
    std::string_view newPath, const FileAttributes& attributes)
{
    if (isBelow(newPath, oldPath) || isBelow(oldPath, newPath))
        return std::nullopt;
    const auto fileId = find(computerId, oldPath);
    if (!fileId)
        return std::nullopt;
    if (oldPath != newPath) {
        remove(computerId, newPath);
        m_moveBelow.bindAll(computerId, lowerBoundBelow(oldPath), upperBoundBelow(oldPath), lowerBoundBelow(newPath),
            lowerBoundBelow(oldPath)).run();
    }
    update(*fileId, newPath, attributes);
    return fileId;
}

bool FileTable::anyComputerHas(std::string_view fullPath)
{
    m_anyComputerHas.bindAll(fullPath);
    const bool found = m_anyComputerHas.step();
    m_anyComputerHas.reset();
    return found;
}

}
