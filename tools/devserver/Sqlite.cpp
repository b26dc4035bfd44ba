#include "devserver/Sqlite.h"

#include <sqlite3.h>

namespace devserver::sqlite {

static Error errorOf(sqlite3* db, std::string_view what)
{
    return Error(std::string(what) + ": " + sqlite3_errmsg(db));
}

Statement::Statement(sqlite3* db, std::string_view sql)
    : m_db(db)
{
    if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &m_statement, nullptr) != SQLITE_OK)
        throw errorOf(db, "cannot prepare \"" + std::string(sql) + "\"");
}

Statement::~Statement() { sqlite3_finalize(m_statement); }

Statement::Statement(Statement&& other) noexcept
    : m_db(other.m_db)
    , m_statement(other.m_statement)
{
    other.m_statement = nullptr;
}

Statement& Statement::bind(int index, std::string_view text)
{
    if (sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT) != SQLITE_OK)
        throw errorOf(m_db, "cannot bind a parameter");
    return *this;
}

Statement& Statement::bind(int index, const std::optional<std::string>& text)
{
    if (text)
        return bind(index, std::string_view(*text));
    if (sqlite3_bind_null(m_statement, index) != SQLITE_OK)
        throw errorOf(m_db, "cannot bind a parameter");
    return *this;
}

Statement& Statement::bind(int index, std::int64_t number)
{
    if (sqlite3_bind_int64(m_statement, index, number) != SQLITE_OK)
        throw errorOf(m_db, "cannot bind a parameter");
    return *this;
}

Statement& Statement::bindBlob(int index, std::string_view bytes)
{
    if (sqlite3_bind_blob64(m_statement, index, bytes.data(), bytes.size(), SQLITE_STATIC) != SQLITE_OK)
        throw errorOf(m_db, "cannot bind a parameter");
    return *this;
}

bool Statement::step()
{
    switch (sqlite3_step(m_statement)) {
    case SQLITE_ROW:
        return true;
    case SQLITE_DONE:
        return false;
    default:
        // The statement must be usable again after a failed step (a constraint refused, say).
        Error error = errorOf(m_db, "statement failed");
        sqlite3_reset(m_statement);
        throw error;
    }
}

void Statement::run()
{
    while (step()) { }
    reset();
}

void Statement::reset()
{
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

int Statement::columnCount() const { return sqlite3_column_count(m_statement); }

std::string Statement::columnName(int column) const { return sqlite3_column_name(m_statement, column); }

bool Statement::isInteger(int column) const { return sqlite3_column_type(m_statement, column) == SQLITE_INTEGER; }

std::string Statement::text(int column) const
{
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
    const int size = sqlite3_column_bytes(m_statement, column);
    return bytes ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

std::int64_t Statement::integer(int column) const { return sqlite3_column_int64(m_statement, column); }

bool Statement::isNull(int column) const { return sqlite3_column_type(m_statement, column) == SQLITE_NULL; }

Database::Database(const std::string& path)
{
    // The server serialises every use of the connection itself, so SQLite's own mutexes are not needed.
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.c_str(), &m_db, flags, nullptr) != SQLITE_OK) {
        Error error = errorOf(m_db, "cannot open " + path);
        sqlite3_close(m_db);
        throw error;
    }
    sqlite3_extended_result_codes(m_db, 1);
}

Database::~Database() { sqlite3_close_v2(m_db); }

void Database::execute(std::string_view sql)
{
    char* message = nullptr;
    if (sqlite3_exec(m_db, std::string(sql).c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        Error error(std::string("statement failed: ") + (message ? message : "unknown error"));
        sqlite3_free(message);
        throw error;
    }
}

std::int64_t Database::lastInsertRowid() const { return sqlite3_last_insert_rowid(m_db); }

std::int64_t Database::changes() const { return sqlite3_changes64(m_db); }

Transaction::Transaction(Database& db)
    : m_db(db)
{
    m_db.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction()
{
    if (!m_open)
        return;
    try {
        m_db.execute("ROLLBACK");
    } catch (const Error&) {
        // SQLite has already rolled the transaction back when a statement failed in a way that ends it.
    }
}

void Transaction::commit()
{
    m_db.execute("COMMIT");
    m_open = false;
}

}
