#pragma once

// A thin layer over the SQLite C interface: a connection, prepared statements with typed binding and reading, and
// errors as exceptions that carry SQLite's own message.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace devserver::sqlite {

class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Statement {
public:
    Statement(sqlite3* db, std::string_view sql);
    ~Statement();
    Statement(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    Statement& operator=(Statement&&) = delete;

    // Parameters count from 1, as in SQL. An absent text binds SQL NULL.
    Statement& bind(int index, std::string_view text);
    Statement& bind(int index, const std::string& text) { return bind(index, std::string_view(text)); }
    Statement& bind(int index, const std::optional<std::string>& text);
    Statement& bind(int index, std::int64_t number);
    // The bytes are not copied: they must stay as they are until the statement has run.
    Statement& bindBlob(int index, std::string_view bytes);

    // Binds every argument in order, from parameter 1.
    template<typename... Arguments>
    Statement& bindAll(const Arguments&... arguments)
    {
        int index = 0;
        (bind(++index, arguments), ...);
        return *this;
    }

    // Advances to the next row; false when the statement has run to its end.
    bool step();
    // Runs the statement to its end and makes it ready for new parameters.
    void run();
    // Makes the statement ready to run again with new parameters.
    void reset();

    int columnCount() const;
    std::string columnName(int column) const;
    // Columns of the current row count from 0. A NULL reads as empty text or 0.
    bool isInteger(int column) const;
    std::string text(int column) const;
    std::int64_t integer(int column) const;
    bool isNull(int column) const;

private:
    sqlite3* m_db;
    sqlite3_stmt* m_statement = nullptr;
};

class Database {
public:
    // Opens (creating when missing) the database at `path`; ":memory:" is a private in-memory database.
    explicit Database(const std::string& path);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Runs one or more statements that take no parameters.
    void execute(std::string_view sql);
    Statement prepare(std::string_view sql) { return Statement(m_db, sql); }
    std::int64_t lastInsertRowid() const;
    // Rows changed by the last INSERT, UPDATE or DELETE.
    std::int64_t changes() const;

private:
    sqlite3* m_db = nullptr;
};

// BEGIN IMMEDIATE on construction; COMMIT by commit(), ROLLBACK when it goes without one (an exception).
class Transaction {
public:
    explicit Transaction(Database& db);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

private:
    Database& m_db;
    bool m_open = true;
};

}
