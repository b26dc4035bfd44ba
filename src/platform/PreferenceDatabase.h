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
// This object keeps what it needs to write by rows and to know whether anything changed: the domain's keys, its
// scalar values and the `ord` of every list element, checked on every read with one stat of the file and SQLite's
// data_version (which changes only when another connection commits). It keeps no list element: a list of a hundred
// thousand records would cost a hundred megabytes as values. Whoever reads a whole list gets it parsed from its rows
// (read()), and a reader that keeps its own form of the elements reads their stored texts one by one (readList()),
// and only when the list changed since its last read.
//
// A database that is not one, or is corrupt, is logged once, moved aside (its name gets ".corrupt-<time>") and the
// domain reads as absent; the next store starts a new database. When the database does not exist yet and the
// domain's former JSON file does, the first read imports the file in one transaction, reading it a piece at a time
// and writing each element of its lists as its row as it is read, and then renames it to "<name>.json.imported".
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
// read: the element at `readIndex` of that list, kept as it is or `replaced` by the writer's record; or, with
// readIndex == newElement, an element that list did not have (the writer's record). The records themselves are asked
// for one at a time, as they are written.
struct ListRow {
    static constexpr std::size_t newElement = static_cast<std::size_t>(-1);
    std::size_t readIndex = newElement;
    bool replaced = false;
    bool isWritersRecord() const { return replaced || readIndex == newElement; }
};

// Reads the elements of a stored list one by one (PreferenceDatabase::readList): each as its stored text (the
// preference JSON form, PreferenceJson.h), or as a value when the list did not come from rows.
class ListElementReader {
public:
    virtual ~ListElementReader() = default;
    // How many elements follow, before the first.
    virtual void expect(std::size_t count) = 0;
    // Raises JsonError when `text` is not a value: the stored list is then taken as damaged.
    virtual void storedText(std::string_view text) = 0;
    virtual void value(const Value& element) = 0;
};

// What readList() found under a key.
struct StoredList {
    enum class Kind {
        Absent, // no domain, or no such key
        Unchanged, // the list the reader last read (the version it gave); its elements were not read again
        Elements, // a list, whose elements went to the reader
        Other, // a value that is not a list: `other`
    };
    Kind kind = Kind::Absent;
    // Names what is stored: equal versions mean the same list. Unique in the process, never 0.
    std::uint64_t version = 0;
    std::optional<Value> other;
};

// A new version number: unique in the process, never 0.
std::uint64_t newStoreVersion();

// readList() of `value`, a key's value in a domain kept as values (null: no such key), whose version is `version`.
StoredList readListOfValue(
    const Value* value, std::uint64_t version, std::uint64_t knownVersion, ListElementReader& reader);

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

    // The domain, or absent when it is not stored (or the database was not valid). Its lists are parsed from their
    // rows for this call.
    std::optional<Value> read();
    // The value under `key`: when it is a list, its elements go to `reader`, unless it is still the list of version
    // `knownVersion` (an earlier readList's or writeListRows's). A stored text that is not a value makes the database
    // damaged (moved aside, Absent).
    StoredList readList(std::string_view key, std::uint64_t knownVersion, ListElementReader& reader);
    // Stores `domain`, a dictionary, in one transaction that writes the rows that differ from what is stored.
    // Raises JsonError (nothing written) when a value cannot be encoded, PreferenceDatabaseError when the database
    // cannot be written.
    void write(const Value& domain);
    // Stores the list under `key` as `rows` give it, element by element, against the list of version `readVersion`
    // (as readList() or an earlier writeListRows() gave it). While that list is still the one stored only the rows of
    // replaced, new and removed elements are written; otherwise (another process stored the domain since) the list
    // is stored whole, as write() would. `recordAt(p)` gives the element of row p: asked for the rows that are the
    // writer's records, and for every row when the list is stored whole. One transaction either way. Returns the version of the list as now stored, which the next store by rows is
    // told against. Raises as write() does.
    std::uint64_t writeListRows(std::string_view key, std::uint64_t readVersion, const std::vector<ListRow>& rows,
        const std::function<Value(std::size_t)>& recordAt);
    // Marks the domain absent. Raises PreferenceDatabaseError.
    void remove();

    // How many times this object has loaded the domain from the database (for tests and measurements).
    std::uint64_t loadCount() const { return m_loadCount; }
    // How many list rows this object has inserted, replaced or deleted.
    std::uint64_t rowsWritten() const { return m_rowsWritten; }
    // How many list elements this object has encoded to store them: each row a store by rows writes, and every
    // element of a list stored whole (compared with its stored text, written when it differs).
    std::uint64_t elementsEncoded() const { return m_elementsEncoded; }

private:
    // One top-level key as stored: its preference JSON text, or absent for a list kept row by row.
    struct StoredKey {
        std::string key;
        std::optional<std::string> text;
        bool operator==(const StoredKey&) const = default;
    };
    // What the database holds, as this object last read or wrote it, without the list elements.
    struct Snapshot {
        bool valid = false;
        std::int64_t dataVersion = 0;
        bool present = false; // the domain exists
        std::vector<StoredKey> keys;
        // The values of the keys that are not lists.
        std::map<std::string, Value, std::less<>> scalars;
        // The `ord` of every element of each list, in list order.
        std::map<std::string, std::vector<std::int64_t>, std::less<>> ords;
        // Changes with every load and store (StoredList::version).
        std::uint64_t version = newStoreVersion();
        // The former JSON file's domain while it could not be imported: what reads until it can.
        std::optional<Value> unimported;
    };

    bool open(bool create);
    void close();
    bool fileChangedUnderUs() const;
    // Runs `readSnapshot` on a snapshot that is current, inside a read transaction when there is a database.
    // False when the database could not be read (logged; a damaged one is moved aside and the snapshot is empty).
    bool readCurrent(const std::function<void()>& readSnapshot);
    void load();
    void addListKey(std::string_view key);
    void emptyLargeLog();
    void loadLayout();
    // The stored texts of the elements of list `key` in order, each to `visit` (inside a transaction).
    void visitRows(const std::string& key, const std::function<void(std::string_view)>& visit);
    // The domain as stored, its lists parsed from their rows; the list under `replacedKey`, when given, is `list`
    // instead (inside a transaction).
    Value domainInTransaction(std::string_view replacedKey = {}, const Value* list = nullptr);
    // Imports the domain's former JSON file into the database that does not exist yet; logs and moves the file aside
    // when it is not valid, and keeps its domain in m_snapshot.unimported when the database cannot be written.
    void importLegacyJson();
    void importInTransaction();
    // `document`, a domain file's content; raises JsonError when it is not a dictionary.
    static Value legacyDomain(Value document);
    void moveImportedFileAside();
    // Runs `store` in one write transaction on a snapshot that is current. A damaged database is moved aside and
    // `store` run once more on a new one.
    void transact(const std::function<void()>& store);
    void writeInTransaction(const Value& domain);
    void writeRowsInTransaction(std::string_view key, std::uint64_t readVersion, const std::vector<ListRow>& rows,
        const std::function<Value(std::size_t)>& recordAt);
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
    std::uint64_t m_elementsEncoded = 0;
};

}
