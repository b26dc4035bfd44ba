#pragma once

// One preference domain kept in a SQLite database instead of a JSON file. The service's own domain holds the
// watched-files table, one record per item of the synced folder, and every accepted report changes a few of them;
// rewriting a whole file for that would cost in proportion to the folder. Here a store writes only the records that
// differ from what is stored.
//
// Layout (journal mode WAL, so that readers in other processes never wait for a writer nor see half a store):
//   domain_state(id = 1, present)            whether the domain exists (0 after a removal)
//   domain_keys(position, key, value)        the domain's keys in their order; value is the key's value in the
//                                            preference JSON form (PreferenceJson.h), or NULL for a list
//   list_rows(key, ord, value)               the elements of each list, one row each, in the order of `ord`
// `ord` leaves gaps between neighbours, so that an element inserted between two others, or removed, touches only
// its own row. Each store is one transaction: a reader sees the domain before it or after it.
//
// Reads are served from what this object last read or wrote, checked on every read with one stat of the file and
// SQLite's data_version (which changes only when another connection commits): a domain that nobody else changed
// costs no parsing, whatever its size.
//
// A database that is not one, or is corrupt, is logged once, moved aside (its name gets ".corrupt-<time>") and the
// domain reads as absent; the next store starts a new database. When the database does not exist yet and the
// domain's former JSON file does, the file is imported in the first store's transaction and then renamed to
// "<name>.json.imported".
//
// Not thread-safe: UserDefaults serialises the calls.

#include "platform/Value.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

struct sqlite3;

namespace platform {

// One element of a list stored by rows (PreferenceDatabase::writeListRows), described against the list its writer
// read: the element at `readIndex` of that list, kept as it is (no `record`) or replaced by `record`; or, with
// readIndex == newElement, an element that list did not have.
struct ListRow {
    static constexpr std::size_t newElement = static_cast<std::size_t>(-1);
    std::size_t readIndex = newElement;
    std::optional<Value> record;
};

// A store or removal that did not happen; what.() says why. Nothing stored changed.
class PreferenceDatabaseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class PreferenceDatabase {
public:
    // `file` is the database; `legacyJson` the JSON file the domain was kept in before.
    PreferenceDatabase(std::filesystem::path file, std::filesystem::path legacyJson);
    ~PreferenceDatabase();
    PreferenceDatabase(const PreferenceDatabase&) = delete;
    PreferenceDatabase& operator=(const PreferenceDatabase&) = delete;

    // The domain, or absent when it is not stored (or the database was not valid).
    std::optional<Value> read();
    // Stores `domain`, a dictionary, in one transaction that writes the rows that differ from what is stored.
    // Raises JsonError (nothing written) when a value cannot be encoded, PreferenceDatabaseError when the database
    // cannot be written.
    void write(const Value& domain);
    // Stores the list under `key` as `rows` give it, element by element, against `readList`, a list that read()
    // handed out under `key`. While the stored list is still `readList` (the same storage, not only an equal list)
    // only the rows of replaced, new and removed elements are written; otherwise (another process stored the domain
    // since) the list is stored whole, as write() would. One transaction either way. Returns the list as now stored,
    // which the next store by rows is told against. Raises as write() does.
    Value writeListRows(std::string_view key, const Value& readList, const std::vector<ListRow>& rows);
    // Marks the domain absent. Raises PreferenceDatabaseError.
    void remove();

    // How many times this object has loaded the domain from the database (for tests and measurements).
    std::uint64_t loadCount() const { return m_loadCount; }
    // How many list rows this object has inserted, replaced or deleted.
    std::uint64_t rowsWritten() const { return m_rowsWritten; }

private:
    // One top-level key as stored: its preference JSON text, or absent for a list kept row by row.
    struct StoredKey {
        std::string key;
        std::optional<std::string> text;
        bool operator==(const StoredKey&) const = default;
    };
    // What the database holds, as this object last read or wrote it.
    struct Snapshot {
        bool valid = false;
        std::int64_t dataVersion = 0;
        std::optional<Value> domain;
        std::vector<StoredKey> keys;
        // The `ord` of every element of each list, in list order.
        std::map<std::string, std::vector<std::int64_t>, std::less<>> ords;
    };

    bool open(bool create);
    void close();
    bool fileChangedUnderUs() const;
    void load();
    void loadRows();
    void importLegacyJson();
    // Runs `store` in one write transaction on a snapshot that is current. A damaged database is moved aside and
    // `store` run once more on a new one.
    void transact(const std::function<void()>& store);
    void writeInTransaction(const Value& domain);
    void writeRowsInTransaction(std::string_view key, const Value& readList, const std::vector<ListRow>& rows);
    void writeList(const std::string& key, const Value& list);
    void moveAside(const std::string& reason);
    std::int64_t dataVersion();

    const std::filesystem::path m_file;
    const std::filesystem::path m_legacyJson;
    sqlite3* m_db = nullptr;
    bool m_readOnly = false; // m_db was opened only to be read
    dev_t m_device = 0;
    ino_t m_inode = 0;
    Snapshot m_snapshot;
    std::uint64_t m_loadCount = 0;
    std::uint64_t m_rowsWritten = 0;
};

}
