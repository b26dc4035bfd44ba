#pragma once

// The server's database and the tables over it. One connection serves every request; the store's lock makes each
// use of it one transaction at a time, so concurrent batches apply one after the other, each in full or not at all.

#include "devserver/FileTable.h"
#include "devserver/RequestLog.h"
#include "devserver/Sqlite.h"

#include <mutex>
#include <string>
#include <type_traits>

namespace devserver {

struct Tables {
    explicit Tables(sqlite::Database& db);

    sqlite::Database& db;
    FileTable files;
    RequestLog requests;
};

class Store {
public:
    // Opens or creates the database (":memory:" for one that lives as long as the process) and its schema.
    explicit Store(const std::string& databasePath);

    // Runs `body` on the tables inside one transaction, under the store's lock. The transaction is committed when
    // `body` returns and rolled back when it throws.
    template<typename Body>
    auto transaction(Body&& body) -> std::invoke_result_t<Body, Tables&>
    {
        std::lock_guard lock(m_mutex);
        sqlite::Transaction transaction(m_db);
        if constexpr (std::is_void_v<std::invoke_result_t<Body, Tables&>>) {
            body(m_tables);
            transaction.commit();
        } else {
            auto result = body(m_tables);
            transaction.commit();
            return result;
        }
    }

    // Empties every table and restarts every id sequence: the server as it was on its first start.
    void reset();

private:
    std::mutex m_mutex;
    sqlite::Database m_db;
    Tables m_tables;
};

}
