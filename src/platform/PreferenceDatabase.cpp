#include "platform/PreferenceDatabase.h"

#include "platform/DateFormat.h"
#include "platform/Log.h"
#include "platform/PreferenceFiles.h"
#include "platform/PreferenceJson.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace platform {

namespace {

// Room left between the `ord` of neighbouring elements when a list is written afresh or appended to.
constexpr std::int64_t ordSpacing = std::int64_t { 1 } << 16;

// The ord of element `index` of a list written afresh.
constexpr std::int64_t freshOrd(std::size_t index)
{
    return ordSpacing * static_cast<std::int64_t>(index + 1);
}

// How far the comparison of the stored list with the new one looks ahead for a run of removed or inserted elements
// before it takes a difference for a changed element.
constexpr std::size_t lookAhead = 16;

// A failed SQLite call, with the result code that says whether the file is damaged.
class SqliteFailure : public std::runtime_error {
public:
    SqliteFailure(int code, const std::string& what) : std::runtime_error(what), m_code(code) { }
    bool meansDamagedFile() const
    {
        const int primary = m_code & 0xFF;
        return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
    }

private:
    int m_code;
};

void check(sqlite3* db, int result, const char* what)
{
    if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE)
        throw SqliteFailure(result, std::string(what) + ": " + (db ? sqlite3_errmsg(db) : sqlite3_errstr(result)));
}

void execute(sqlite3* db, const char* sql) { check(db, sqlite3_exec(db, sql, nullptr, nullptr, nullptr), sql); }

class Statement {
public:
    Statement(sqlite3* db, const char* sql) : m_db(db)
    {
        check(db, sqlite3_prepare_v2(db, sql, -1, &m_statement, nullptr), sql);
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, std::string_view text)
    {
        check(m_db, sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC),
            "bind");
        return *this;
    }
    Statement& bind(int index, std::int64_t number)
    {
        check(m_db, sqlite3_bind_int64(m_statement, index, number), "bind");
        return *this;
    }
    Statement& bindNull(int index)
    {
        check(m_db, sqlite3_bind_null(m_statement, index), "bind");
        return *this;
    }
    // True while there is a row to read.
    bool step()
    {
        const int result = sqlite3_step(m_statement);
        check(m_db, result, sqlite3_sql(m_statement));
        return result == SQLITE_ROW;
    }
    // Runs a statement that returns no rows, and makes it ready to run again.
    void run()
    {
        step();
        reset();
    }
    void reset()
    {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(m_statement, column); }
    bool isNull(int column) const { return sqlite3_column_type(m_statement, column) == SQLITE_NULL; }
    std::string_view text(int column) const
    {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
        return { bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column)) };
    }

private:
    sqlite3* m_db;
    sqlite3_stmt* m_statement = nullptr;
};

JsonWriteOptions valueTextOptions()
{
    JsonWriteOptions options;
    options.allowFragments = true;
    options.escapeSlashes = false;
    return options;
}

std::string valueText(const Value& value) { return writePreferenceJson(value, valueTextOptions()); }

Value valueOfText(std::string_view text)
{
    JsonReadOptions options;
    options.allowFragments = true;
    return readPreferenceJson(text, options);
}

// A stored element's value; a text that is not one means the file was damaged or edited by something else.
Value storedValueOf(std::string_view text)
{
    try {
        return valueOfText(text);
    } catch (const JsonError& error) {
        throw SqliteFailure(SQLITE_CORRUPT, "a stored value is not valid: " + error.reason());
    }
}

// How the rows of one list change from the stored elements to `next` (both as their stored texts: equal texts read
// back as the same value): each new element either keeps the row of an equal stored one, takes over the row of a
// changed one, or gets a new row between its neighbours.
struct ListPlan {
    std::vector<std::int64_t> ords; // of every element of `next`, in order
    std::vector<std::int64_t> removed;
    std::vector<std::size_t> written; // indexes into `next` whose row is inserted or replaced
    bool rewrite = false; // no room between two rows: the list is written afresh
};

ListPlan planList(const std::vector<std::string>& stored, const std::vector<std::int64_t>& storedOrds,
    const std::vector<std::string>& next)
{
    ListPlan plan;
    plan.ords.reserve(next.size());
    std::size_t i = 0;
    std::size_t j = 0;
    std::int64_t previous = 0;
    const auto keep = [&](std::int64_t ord, bool write) {
        plan.ords.push_back(ord);
        if (write)
            plan.written.push_back(j);
        previous = ord;
        ++j;
    };
    while (j < next.size()) {
        if (i < stored.size() && stored[i] == next[j]) {
            keep(storedOrds[i++], false);
            continue;
        }
        std::size_t removedRun = 0;
        for (std::size_t d = 1; d <= lookAhead && i + d < stored.size(); ++d)
            if (stored[i + d] == next[j]) {
                removedRun = d;
                break;
            }
        if (removedRun > 0) {
            for (std::size_t d = 0; d < removedRun; ++d)
                plan.removed.push_back(storedOrds[i++]);
            continue;
        }
        std::size_t insertedRun = 0;
        for (std::size_t e = 1; e <= lookAhead && i < stored.size() && j + e < next.size(); ++e)
            if (stored[i] == next[j + e]) {
                insertedRun = e;
                break;
            }
        if (insertedRun > 0) {
            const std::int64_t room = storedOrds[i] - previous - 1;
            if (room < static_cast<std::int64_t>(insertedRun)) {
                plan.rewrite = true;
                return plan;
            }
            const std::int64_t step = (room + 1) / static_cast<std::int64_t>(insertedRun + 1);
            const std::int64_t base = previous;
            for (std::size_t e = 1; e <= insertedRun; ++e)
                keep(base + step * static_cast<std::int64_t>(e), true);
            continue;
        }
        if (i < stored.size())
            keep(storedOrds[i++], true); // the stored element changed
        else
            keep(previous + ordSpacing, true); // appended
    }
    while (i < stored.size())
        plan.removed.push_back(storedOrds[i++]);
    return plan;
}

ListPlan freshPlan(std::size_t count)
{
    ListPlan plan;
    plan.rewrite = true;
    plan.ords.reserve(count);
    plan.written.reserve(count);
    for (std::size_t j = 0; j < count; ++j) {
        plan.ords.push_back(freshOrd(j));
        plan.written.push_back(j);
    }
    return plan;
}

std::atomic<std::uint64_t> lastStoreVersion { 0 };

std::string timestampForName()
{
    const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    return formatDate(now, "yyyyMMdd-HHmmss.SSS");
}

}

std::uint64_t newStoreVersion() { return ++lastStoreVersion; }

StoredList readListOfValue(
    const Value* value, std::uint64_t version, std::uint64_t knownVersion, ListElementReader& reader)
{
    StoredList list;
    if (!value)
        return list;
    list.version = version;
    if (!value->isArray()) {
        list.kind = StoredList::Kind::Other;
        list.other = *value;
    } else if (version == knownVersion) {
        list.kind = StoredList::Kind::Unchanged;
    } else {
        list.kind = StoredList::Kind::Elements;
        reader.expect(value->count());
        for (const Value& element : value->elements())
            reader.value(element);
    }
    return list;
}

PreferenceDatabase::PreferenceDatabase(std::filesystem::path file, std::filesystem::path legacyJson)
    : m_file(std::move(file))
    , m_legacyJson(std::move(legacyJson))
{
}

PreferenceDatabase::~PreferenceDatabase() { close(); }

void PreferenceDatabase::close()
{
    if (m_db)
        sqlite3_close_v2(m_db);
    m_db = nullptr;
    // data_version numbers belong to one connection.
    m_snapshot = Snapshot();
}

namespace {

// How long a store or a read waits for another process's store to end.
constexpr int busyTimeoutMilliseconds = 30'000;

sqlite3* openConnection(const std::filesystem::path& file, int flags, const std::string& uri = {})
{
    sqlite3* db = nullptr;
    const int opened = sqlite3_open_v2(uri.empty() ? file.c_str() : uri.c_str(), &db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (opened != SQLITE_OK) {
        const std::string message = db ? sqlite3_errmsg(db) : sqlite3_errstr(opened);
        sqlite3_close_v2(db);
        throw SqliteFailure(opened, "Cannot open " + file.string() + ": " + message);
    }
    sqlite3_busy_timeout(db, busyTimeoutMilliseconds);
    return db;
}

// The URI that opens `file` as immutable: the way SQLite reads a WAL database in a folder where it cannot create
// the shared-memory index.
std::string immutableUri(const std::filesystem::path& file)
{
    std::string uri = "file:";
    for (const char c : file.string()) {
        if (c == '%' || c == '?' || c == '#') {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned char>(c));
            uri += escaped;
        } else {
            uri += c;
        }
    }
    return uri + "?immutable=1";
}

}

// Opens the database, for writing when `create` (then creating it and its folder). False when there is no database
// to read. A database that cannot be opened for writing (a read-only folder or file system) is opened to be read.
bool PreferenceDatabase::open(bool create)
{
    if (m_db && m_readOnly && create)
        close();
    if (m_db)
        return true;
    if (create)
        ensureFolder(m_file.parent_path());
    else if (struct stat status {}; ::stat(m_file.c_str(), &status) != 0)
        return false;
    try {
        m_db = openConnection(m_file, SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0));
        m_readOnly = false;
        execute(m_db, "PRAGMA journal_mode=WAL");
        execute(m_db, "PRAGMA synchronous=FULL");
        execute(m_db,
            "CREATE TABLE IF NOT EXISTS domain_state(id INTEGER PRIMARY KEY CHECK (id = 1), present INTEGER NOT NULL);"
            "CREATE TABLE IF NOT EXISTS domain_keys(position INTEGER PRIMARY KEY, key TEXT NOT NULL UNIQUE, value TEXT);"
            "CREATE TABLE IF NOT EXISTS list_rows(key TEXT NOT NULL, ord INTEGER NOT NULL, value TEXT NOT NULL,"
            " PRIMARY KEY (key, ord)) WITHOUT ROWID;"
            "SELECT count(*) FROM domain_state;");
    } catch (const SqliteFailure& failure) {
        close();
        if (create || failure.meansDamagedFile())
            throw;
        m_db = openConnection(m_file, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, immutableUri(m_file));
        m_readOnly = true;
    }
    if (struct stat status {}; ::stat(m_file.c_str(), &status) == 0) {
        m_device = status.st_dev;
        m_inode = status.st_ino;
    }
    return true;
}

// True when the file this connection has open is no longer the one at m_file (moved aside, or replaced).
bool PreferenceDatabase::fileChangedUnderUs() const
{
    struct stat status {};
    return ::stat(m_file.c_str(), &status) != 0 || status.st_dev != m_device || status.st_ino != m_inode;
}

std::int64_t PreferenceDatabase::dataVersion()
{
    Statement version(m_db, "PRAGMA data_version");
    version.step();
    return version.integer(0);
}

bool PreferenceDatabase::readCurrent(const std::function<void()>& readSnapshot)
{
    try {
        if (m_db && fileChangedUnderUs())
            close();
        if (!m_db && !open(false)) {
            m_snapshot = Snapshot();
            if (std::filesystem::exists(m_legacyJson))
                importLegacyJson();
            readSnapshot();
            return true;
        }
        execute(m_db, "BEGIN");
        try {
            const std::int64_t version = dataVersion();
            if (!m_snapshot.valid || version != m_snapshot.dataVersion) {
                load();
                m_snapshot.dataVersion = version;
            }
            try {
                readSnapshot();
            } catch (const JsonError& error) {
                throw SqliteFailure(SQLITE_CORRUPT, "a stored value is not valid: " + error.reason());
            }
            execute(m_db, "COMMIT");
        } catch (...) {
            sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
            throw;
        }
        return true;
    } catch (const SqliteFailure& failure) {
        if (failure.meansDamagedFile()) {
            moveAside(failure.what());
            return false;
        }
        // Busy past the time-out, out of memory: the caller keeps what it read last rather than take a stored table
        // as gone.
        log("Could not read preference database %@: %@", m_file.string(), failure.what());
        return false;
    }
}

std::optional<Value> PreferenceDatabase::read()
{
    std::optional<Value> domain;
    readCurrent([&] {
        if (m_snapshot.unimported)
            domain = m_snapshot.unimported;
        else if (m_snapshot.present)
            domain = domainInTransaction();
    });
    return domain;
}

StoredList PreferenceDatabase::readList(std::string_view key, std::uint64_t knownVersion, ListElementReader& reader)
{
    StoredList list;
    const bool read = readCurrent([&] {
        list = StoredList();
        list.version = m_snapshot.version;
        if (m_snapshot.unimported) {
            list = readListOfValue(m_snapshot.unimported->find(key), m_snapshot.version, knownVersion, reader);
            return;
        }
        if (!m_snapshot.present)
            return;
        if (const auto scalar = m_snapshot.scalars.find(key); scalar != m_snapshot.scalars.end()) {
            list.kind = StoredList::Kind::Other;
            list.other = scalar->second;
        } else if (const auto ords = m_snapshot.ords.find(key); ords == m_snapshot.ords.end()) {
            return;
        } else if (list.version == knownVersion) {
            list.kind = StoredList::Kind::Unchanged;
        } else {
            list.kind = StoredList::Kind::Elements;
            reader.expect(ords->second.size());
            visitRows(std::string(key), [&](std::string_view text) { reader.storedText(text); });
        }
    });
    if (!read) {
        // Not readable now: the reader keeps what it has. Damaged and moved aside: nothing is stored.
        list = StoredList();
        if (std::filesystem::exists(m_file)) {
            list.kind = StoredList::Kind::Unchanged;
            list.version = knownVersion;
        }
    }
    return list;
}

void PreferenceDatabase::visitRows(const std::string& key, const std::function<void(std::string_view)>& visit)
{
    Statement rows(m_db, "SELECT value FROM list_rows WHERE key = ? ORDER BY ord");
    rows.bind(1, key);
    while (rows.step())
        visit(rows.text(0));
}

Value PreferenceDatabase::domainInTransaction(std::string_view replacedKey, const Value* list)
{
    Entries entries;
    bool replaced = false;
    for (const StoredKey& stored : m_snapshot.keys) {
        if (list && stored.key == replacedKey) {
            entries.emplace_back(stored.key, *list);
            replaced = true;
        } else if (stored.text) {
            entries.emplace_back(stored.key, m_snapshot.scalars.at(stored.key));
        } else {
            Array elements;
            elements.reserve(m_snapshot.ords.at(stored.key).size());
            visitRows(stored.key, [&](std::string_view text) { elements.push_back(storedValueOf(text)); });
            entries.emplace_back(stored.key, Value::arrayOf(std::move(elements)));
        }
    }
    if (list && !replaced)
        entries.emplace_back(std::string(replacedKey), *list);
    return Value::dictionaryOf(std::move(entries));
}

// Reads what the domain holds besides its list elements (inside a transaction that the caller holds). A stored text
// that is not a value means the file was damaged or edited by something else than this store.
void PreferenceDatabase::load()
{
    try {
        loadLayout();
    } catch (const JsonError& error) {
        throw SqliteFailure(SQLITE_CORRUPT, "a stored value is not valid: " + error.reason());
    }
}

void PreferenceDatabase::loadLayout()
{
    ++m_loadCount;
    Snapshot snapshot;
    snapshot.valid = true;
    Statement state(m_db, "SELECT present FROM domain_state WHERE id = 1");
    if (!state.step() || state.integer(0) == 0) {
        m_snapshot = std::move(snapshot);
        return;
    }
    snapshot.present = true;
    Statement keys(m_db, "SELECT key, value FROM domain_keys ORDER BY position");
    Statement rows(m_db, "SELECT ord FROM list_rows WHERE key = ? ORDER BY ord");
    while (keys.step()) {
        std::string key(keys.text(0));
        if (!keys.isNull(1)) {
            std::string text(keys.text(1));
            snapshot.scalars.emplace(key, valueOfText(text));
            snapshot.keys.push_back({ std::move(key), std::move(text) });
            continue;
        }
        auto& ords = snapshot.ords[key];
        rows.bind(1, key);
        while (rows.step())
            ords.push_back(rows.integer(0));
        rows.reset();
        snapshot.keys.push_back({ std::move(key), std::nullopt });
    }
    m_snapshot = std::move(snapshot);
}

namespace {

// How much of the former JSON file is read at a time.
constexpr std::size_t importPieceSize = 64 * 1024;

// Writes the elements of the lists of an imported domain as their rows as the reader hands them over, numbered as a
// list written afresh is, and keeps their `ord`s.
class ImportedRows : public PreferenceListReceiver {
public:
    explicit ImportedRows(sqlite3* db)
        : m_put(db, "INSERT INTO list_rows(key, ord, value) VALUES (?, ?, ?)")
        , m_dropList(db, "DELETE FROM list_rows WHERE key = ?")
    {
    }

    void beginList(std::optional<std::string_view> key) override
    {
        // A top-level list is no domain: the import fails once it is read, and nothing of it is written.
        m_list = nullptr;
        if (!key)
            return;
        m_key = *key;
        dropList(m_key);
        m_list = &ords[m_key];
    }

    void element(const Value& element) override
    {
        if (!m_list)
            return;
        const std::int64_t ord = freshOrd(m_list->size());
        m_put.bind(1, m_key).bind(2, ord).bind(3, valueText(element)).run();
        m_list->push_back(ord);
    }

    // Removes the rows of a list that turned out not to be one of the domain's lists after all.
    void dropList(const std::string& key)
    {
        m_dropList.bind(1, key).run();
        ords.erase(key);
    }

    std::map<std::string, std::vector<std::int64_t>, std::less<>> ords;

private:
    Statement m_put;
    Statement m_dropList;
    std::string m_key;
    std::vector<std::int64_t>* m_list = nullptr;
};

}

void PreferenceDatabase::importLegacyJson()
{
    // Whatever stops the import, nothing was imported: a database that this import created goes again, so that the
    // folder is as it was and the file is imported once it can be (repaired, or with room to write).
    const bool hadDatabase = std::filesystem::exists(m_file);
    const auto forgetCreatedDatabase = [&] {
        if (hadDatabase)
            return;
        close();
        for (const char* suffix : { "", "-wal", "-shm" })
            std::remove((m_file.string() + suffix).c_str());
    };
    try {
        try {
            transact([&] { importInTransaction(); });
            moveImportedFileAside();
        } catch (const PreferenceDatabaseError& error) {
            forgetCreatedDatabase();
            // The file stays where it is, so that nothing is lost; the domain is read from it, whole, until an
            // import succeeds.
            Value domain = legacyDomain(readPreferenceJson(readWholeFile(m_legacyJson).bytes));
            log("Could not import preference domain file %@ into %@: %@", m_legacyJson.string(), m_file.string(),
                error.what());
            m_snapshot = Snapshot();
            m_snapshot.unimported = std::move(domain);
        }
    } catch (const std::exception& error) {
        forgetCreatedDatabase();
        m_snapshot = Snapshot();
        const auto aside = m_legacyJson.string() + ".invalid";
        std::rename(m_legacyJson.c_str(), aside.c_str());
        log("Preference domain file %@ is not valid and was moved to %@ without being imported: %@",
            m_legacyJson.string(), aside, error.what());
    }
}

Value PreferenceDatabase::legacyDomain(Value document)
{
    if (!document.isDictionary())
        throw JsonError("it holds " + std::string(document.className()) + " instead of a dictionary");
    return document;
}

// Stores the former JSON file's domain as write() would store it, reading the file piece by piece: the elements of
// its lists are written as their rows as they are read, so that at no time is the domain held whole. A file that
// turns out not to be valid, even at its very end, raises JsonError and the transaction stores nothing.
void PreferenceDatabase::importInTransaction()
{
    // The domain is stored afresh, whatever the database held.
    execute(m_db, "DELETE FROM list_rows; DELETE FROM domain_keys");
    const std::int64_t dataVersion = m_snapshot.dataVersion;
    m_snapshot = Snapshot();
    m_snapshot.dataVersion = dataVersion;

    ImportedRows rows(m_db);
    PreferenceStreamReader reader(rows);
    readFileInPieces(m_legacyJson, importPieceSize, [&](std::string_view piece) { reader.write(piece); });
    StreamedPreferences document = reader.finish();
    const Value domain = legacyDomain(std::move(document.value));
    // Rows of a list that a later member of the same name replaced by something else, or of any list when the
    // domain was wrapped in a tag (its lists are then in `domain` and written below).
    std::vector<std::string> replaced;
    for (const auto& [key, ords] : rows.ords) {
        const Value* now = domain.find(key);
        if (!document.listsStreamed || !now || !now->isArray())
            replaced.push_back(key);
    }
    for (const std::string& key : replaced)
        rows.dropList(key);
    // The keys and the values that are not lists; each list read row by row stands as an empty one there.
    writeInTransaction(domain);
    for (auto& [key, ords] : rows.ords) {
        m_rowsWritten += ords.size();
        m_snapshot.ords[key] = std::move(ords);
    }
}

// A store of many rows (a first sync's table) leaves a log of as many pages behind. SQLite's own checkpoint after
// the commit copies them into the database, but keeps the log; should this process end without closing the
// database, the next one to open it recovers the log and copies every page again at its first store, so that the
// first edit after a first sync would write the whole table once more. A log larger than this is emptied after the
// commit instead, when no reader is using it (no reader is waited for: the next large store tries again).
void PreferenceDatabase::emptyLargeLog()
{
    constexpr std::uintmax_t largeLog = std::uintmax_t(4) << 20;
    std::error_code error;
    const auto size = std::filesystem::file_size(m_file.string() + "-wal", error);
    if (error || size <= largeLog)
        return;
    sqlite3_busy_timeout(m_db, 0);
    sqlite3_wal_checkpoint_v2(m_db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    sqlite3_busy_timeout(m_db, busyTimeoutMilliseconds);
}

void PreferenceDatabase::transact(const std::function<void()>& store)
{
    for (int attempt = 0;; ++attempt) {
        try {
            if (m_db && fileChangedUnderUs())
                close();
            open(true);
            execute(m_db, "BEGIN IMMEDIATE");
            try {
                const std::int64_t version = dataVersion();
                if (!m_snapshot.valid || version != m_snapshot.dataVersion) {
                    load();
                    m_snapshot.dataVersion = version;
                }
                store();
                execute(m_db, "COMMIT");
                m_snapshot.version = newStoreVersion();
                emptyLargeLog();
                return;
            } catch (...) {
                sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
                m_snapshot.valid = false;
                throw;
            }
        } catch (const SqliteFailure& failure) {
            if (!failure.meansDamagedFile() || attempt > 0)
                throw PreferenceDatabaseError(failure.what());
            moveAside(failure.what());
        }
    }
}

void PreferenceDatabase::write(const Value& domain)
{
    transact([&] { writeInTransaction(domain); });
    moveImportedFileAside();
}

// The domain is in the database now; the former file must not be imported over it later.
void PreferenceDatabase::moveImportedFileAside()
{
    if (std::filesystem::exists(m_legacyJson)) {
        const auto aside = m_legacyJson.string() + ".imported";
        if (std::rename(m_legacyJson.c_str(), aside.c_str()) == 0)
            log("Preference domain file %@ was imported into %@ and moved to %@", m_legacyJson.string(),
                m_file.string(), aside);
    }
}

std::uint64_t PreferenceDatabase::writeListRows(std::string_view key, std::uint64_t readVersion,
    const std::vector<ListRow>& rows, const std::function<Value(std::size_t)>& recordAt)
{
    transact([&] { writeRowsInTransaction(key, readVersion, rows, recordAt); });
    return m_snapshot.version;
}

// Writes the rows that `rows` say changed when the stored list is still the one of `readVersion`, else the list
// whole; then makes m_snapshot what a reader would now read.
void PreferenceDatabase::writeRowsInTransaction(std::string_view key, std::uint64_t readVersion,
    const std::vector<ListRow>& rows, const std::function<Value(std::size_t)>& recordAt)
{
    const auto writeWhole = [&] {
        Array elements;
        elements.reserve(rows.size());
        for (std::size_t p = 0; p < rows.size(); ++p)
            elements.push_back(recordAt(p));
        const Value list = Value::arrayOf(std::move(elements));
        writeInTransaction(domainInTransaction(key, &list));
    };
    const auto isRead = [&](const ListRow& row) { return row.readIndex != ListRow::newElement; };
    // A list of new rows alone (a first sync's table) replaces whatever is stored, whichever version it was.
    const bool allNew = std::none_of(rows.begin(), rows.end(), isRead);
    if ((readVersion != m_snapshot.version && !allNew) || m_snapshot.unimported || m_snapshot.scalars.contains(key)) {
        writeWhole();
        return;
    }
    auto storedOrds = m_snapshot.ords.find(key);
    if (storedOrds == m_snapshot.ords.end()) {
        // A list stored for the first time: its key goes after the domain's others, as setting a new key puts it,
        // and its rows are written one by one like any others.
        addListKey(key);
        storedOrds = m_snapshot.ords.try_emplace(std::string(key)).first;
    }
    const std::vector<std::int64_t>& previousOrds = storedOrds->second;

    // The ord of every row: a read element keeps its own, a run of new ones is spread over the gap before the
    // next read element (or after the last one). Read elements out of their order, or a gap too small, and the
    // list is written whole.
    std::vector<std::int64_t> ords;
    ords.reserve(rows.size());
    std::vector<std::int64_t> removed;
    std::size_t nextRead = 0; // the first read element not yet kept, replaced or removed
    std::int64_t previousOrd = 0;
    for (std::size_t p = 0; p < rows.size();) {
        if (isRead(rows[p])) {
            const std::size_t index = rows[p].readIndex;
            if (index < nextRead || index >= previousOrds.size()) {
                writeWhole();
                return;
            }
            while (nextRead < index)
                removed.push_back(previousOrds[nextRead++]);
            ++nextRead;
            previousOrd = previousOrds[index];
            ords.push_back(previousOrd);
            ++p;
            continue;
        }
        std::size_t end = p;
        while (end < rows.size() && !isRead(rows[end]))
            ++end;
        const auto run = static_cast<std::int64_t>(end - p);
        const bool beforeRead = end < rows.size() && rows[end].readIndex >= nextRead
            && rows[end].readIndex < previousOrds.size();
        const std::int64_t bound
            = beforeRead ? previousOrds[rows[end].readIndex] : previousOrd + ordSpacing * (run + 1);
        const std::int64_t step = (bound - previousOrd) / (run + 1);
        if (step < 1) {
            writeWhole();
            return;
        }
        for (std::int64_t e = 1; e <= run; ++e)
            ords.push_back(previousOrd + step * e);
        previousOrd = ords.back();
        p = end;
    }
    while (nextRead < previousOrds.size())
        removed.push_back(previousOrds[nextRead++]);

    const std::string keyText(key);
    Statement remove(m_db, "DELETE FROM list_rows WHERE key = ? AND ord = ?");
    for (const std::int64_t ord : removed)
        remove.bind(1, keyText).bind(2, ord).run();
    Statement put(m_db, "INSERT OR REPLACE INTO list_rows(key, ord, value) VALUES (?, ?, ?)");
    for (std::size_t p = 0; p < rows.size(); ++p) {
        if (!rows[p].isWritersRecord())
            continue;
        const std::string text = valueText(recordAt(p));
        ++m_elementsEncoded;
        put.bind(1, keyText).bind(2, ords[p]).bind(3, text).run();
        ++m_rowsWritten;
    }
    m_rowsWritten += removed.size();
    m_snapshot.ords[keyText] = std::move(ords);
}

// Adds the key of a list that has no rows yet after the domain's other keys (inside a transaction), creating the
// domain when there is none, and records it in m_snapshot.
void PreferenceDatabase::addListKey(std::string_view key)
{
    if (!m_snapshot.present) {
        execute(m_db, "INSERT OR REPLACE INTO domain_state(id, present) VALUES (1, 1)");
        m_snapshot.present = true;
    }
    Statement insert(m_db,
        "INSERT INTO domain_keys(position, key, value) "
        "VALUES ((SELECT coalesce(max(position), -1) + 1 FROM domain_keys), ?, NULL)");
    insert.bind(1, key).run();
    m_snapshot.keys.push_back({ std::string(key), std::nullopt });
}

// Writes the rows of `domain` that differ from what is stored, then makes m_snapshot what a reader would now read.
void PreferenceDatabase::writeInTransaction(const Value& domain)
{
    std::vector<StoredKey> keys;
    std::map<std::string, Value, std::less<>> scalars;
    for (const auto& [key, value] : domain.entries()) {
        if (value.isArray()) {
            keys.push_back({ key, std::nullopt });
            continue;
        }
        std::string text = valueText(value);
        scalars.emplace(key, valueOfText(text));
        keys.push_back({ key, std::move(text) });
    }
    if (!m_snapshot.present)
        execute(m_db, "INSERT OR REPLACE INTO domain_state(id, present) VALUES (1, 1)");
    if (!m_snapshot.present || keys != m_snapshot.keys) {
        execute(m_db, "DELETE FROM domain_keys");
        Statement insert(m_db, "INSERT INTO domain_keys(position, key, value) VALUES (?, ?, ?)");
        for (std::size_t position = 0; position < keys.size(); ++position) {
            insert.bind(1, static_cast<std::int64_t>(position)).bind(2, keys[position].key);
            if (keys[position].text)
                insert.bind(3, *keys[position].text);
            else
                insert.bindNull(3);
            insert.run();
        }
    }
    // Lists that are gone, or are no longer lists.
    Statement dropList(m_db, "DELETE FROM list_rows WHERE key = ?");
    for (const auto& [key, ords] : m_snapshot.ords) {
        const Value* now = domain.find(key);
        if (!now || !now->isArray())
            dropList.bind(1, key).run();
    }

    std::map<std::string, std::vector<std::int64_t>, std::less<>> ords;
    for (const auto& [key, value] : domain.entries()) {
        if (!value.isArray())
            continue;
        const auto beforeOrds = m_snapshot.present ? m_snapshot.ords.find(key) : m_snapshot.ords.end();
        const bool hadList = beforeOrds != m_snapshot.ords.end();
        // The texts are compared, so that only what differs is written; a list stored afresh is written as it is
        // encoded, one element at a time.
        std::vector<std::string> storedTexts;
        std::vector<std::string> texts;
        ListPlan plan;
        if (hadList) {
            storedTexts.reserve(beforeOrds->second.size());
            visitRows(key, [&](std::string_view text) { storedTexts.emplace_back(text); });
            texts.reserve(value.count());
            for (const Value& element : value.elements())
                texts.push_back(valueText(element));
            m_elementsEncoded += value.count();
            plan = planList(storedTexts, beforeOrds->second, texts);
            if (plan.rewrite)
                dropList.bind(1, key).run();
        }
        if (!hadList || plan.rewrite)
            plan = freshPlan(value.count());
        Statement remove(m_db, "DELETE FROM list_rows WHERE key = ? AND ord = ?");
        for (const std::int64_t ord : plan.removed)
            remove.bind(1, key).bind(2, ord).run();
        m_rowsWritten += plan.removed.size() + plan.written.size();
        Statement put(m_db, "INSERT OR REPLACE INTO list_rows(key, ord, value) VALUES (?, ?, ?)");
        for (const std::size_t j : plan.written) {
            if (texts.empty())
                ++m_elementsEncoded;
            const std::string text = texts.empty() ? valueText(value.at(j)) : std::move(texts[j]);
            put.bind(1, key).bind(2, plan.ords[j]).bind(3, text).run();
        }
        ords.emplace(key, std::move(plan.ords));
    }
    m_snapshot.present = true;
    m_snapshot.unimported.reset();
    m_snapshot.keys = std::move(keys);
    m_snapshot.scalars = std::move(scalars);
    m_snapshot.ords = std::move(ords);
    m_snapshot.valid = true;
}

void PreferenceDatabase::remove()
{
    try {
        if (m_db && fileChangedUnderUs())
            close();
        if (!open(false))
            return;
        execute(m_db, "BEGIN IMMEDIATE");
        try {
            execute(m_db, "DELETE FROM list_rows; DELETE FROM domain_keys;"
                          "INSERT OR REPLACE INTO domain_state(id, present) VALUES (1, 0)");
            execute(m_db, "COMMIT");
        } catch (...) {
            sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
            throw;
        }
        m_snapshot = Snapshot();
        m_snapshot.valid = true;
        m_snapshot.dataVersion = dataVersion();
    } catch (const SqliteFailure& failure) {
        if (!failure.meansDamagedFile())
            throw PreferenceDatabaseError(failure.what());
        moveAside(failure.what());
    }
}

void PreferenceDatabase::moveAside(const std::string& reason)
{
    close();
    const std::string aside = m_file.string() + ".corrupt-" + timestampForName();
    const bool moved = std::rename(m_file.c_str(), aside.c_str()) == 0;
    // The write-ahead log and its index belong to the damaged file.
    for (const char* suffix : { "-wal", "-shm" })
        std::rename((m_file.string() + suffix).c_str(), (aside + suffix).c_str());
    if (moved)
        log("Preference database %@ is not valid and was moved to %@; the domain reads as absent: %@",
            m_file.string(), aside, reason);
    else
        log("Preference database %@ is not valid and could not be moved aside (%@); the domain reads as absent: %@",
            m_file.string(), std::strerror(errno), reason);
}

}
