#pragma once

// The file table of every computer: one row per path, in the server's backslash form. Every operation costs a few
// index look-ups plus the rows it touches: "everything below a folder" is the key range from "folder\" up to
// "folder]" (']' is the character after the backslash), found through the unique index on (computer, path).

#include "devserver/Sqlite.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace devserver {

// Attributes of a path as a change reports them; an absent one leaves the stored value as it is.
struct FileAttributes {
    std::optional<std::string> isFile;
    std::optional<std::string> fileSize;
    std::optional<std::string> modifiedDate;
    std::optional<std::string> baseSystemFileId;
};

class FileTable {
public:
    explicit FileTable(sqlite::Database& db);

    // Inserts the path or updates its attributes. A new path gets a new file id; an existing one keeps its id.
    std::int64_t put(std::string_view computerId, std::string_view fullPath, const FileAttributes& attributes);
    std::optional<std::int64_t> find(std::string_view computerId, std::string_view fullPath);
    // Removes the path and every path below it. Returns the file id the path itself had, if it was there.
    std::optional<std::int64_t> remove(std::string_view computerId, std::string_view fullPath);
    // Moves the path and every path below it to `newPath`, replacing whatever was at `newPath`, and updates the
    // moved path's attributes. The moved rows keep their file ids. Returns the moved path's file id, or nothing when
    // `oldPath` is not in the table or the move is impossible (into its own subtree, or onto a folder above it).
    std::optional<std::int64_t> move(std::string_view computerId, std::string_view oldPath, std::string_view newPath,
        const FileAttributes& attributes);
    // True when the table of some computer holds the path.
    bool anyComputerHas(std::string_view fullPath);

private:
    void update(std::int64_t fileId, std::string_view fullPath, const FileAttributes& attributes);

    sqlite::Database& m_db;
    sqlite::Statement m_find;
    sqlite::Statement m_insert;
    sqlite::Statement m_update;
    sqlite::Statement m_removeOne;
    sqlite::Statement m_removeBelow;
    sqlite::Statement m_moveBelow;
    sqlite::Statement m_anyComputerHas;
};

}
