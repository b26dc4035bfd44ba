#include "devserver/Schema.h"

#include <string>

namespace devserver {

// Bumped whenever a table changes; a database of another version is refused rather than misread.
static constexpr int schemaVersion = 1;

std::string_view schemaSql()
{
    return R"sql(-- Every request the server received and what it answered (admin requests are not logged).
CREATE TABLE IF NOT EXISTS requests (
    id           INTEGER PRIMARY KEY,
    time         TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now')),
    method_path  TEXT NOT NULL,               -- the path below /KorbanholdRestService/, or the whole path
    headers      TEXT NOT NULL,               -- JSON object of the request headers
    body         BLOB NOT NULL,
    http_status  INTEGER NOT NULL,            -- 0 when no reply was sent (dropped or withheld)
    reply_body   BLOB NOT NULL,
    fault        TEXT NOT NULL DEFAULT ''     -- the fault applied to this request, if any
);
CREATE INDEX IF NOT EXISTS requests_by_method ON requests (method_path, id);

CREATE TABLE IF NOT EXISTS users (
    user_id           INTEGER PRIMARY KEY AUTOINCREMENT,
    mail_id           TEXT NOT NULL UNIQUE,
    password          TEXT NOT NULL DEFAULT '',
    first_name        TEXT NOT NULL DEFAULT '',
    last_name         TEXT NOT NULL DEFAULT '',
    nick_name         TEXT NOT NULL DEFAULT '',
    activated         INTEGER NOT NULL DEFAULT 0,
    cloud_computer_id INTEGER
);

CREATE TABLE IF NOT EXISTS computers (
    computer_id     INTEGER PRIMARY KEY AUTOINCREMENT,
    user_id         INTEGER NOT NULL,
    korbanhold_path TEXT NOT NULL DEFAULT '',
    is_cloud        INTEGER NOT NULL DEFAULT 0,
    status_time     TEXT NOT NULL DEFAULT '',     -- last "DateTime" of a status update
    version_number  TEXT NOT NULL DEFAULT ''
);

-- The file table of each computer. Paths are in the server's form: backslash-separated, no leading separator.
-- The unique index on (computer_id, full_path) also serves the range queries that find everything below a folder.
CREATE TABLE IF NOT EXISTS files (
    file_id             INTEGER PRIMARY KEY AUTOINCREMENT,
    computer_id         TEXT NOT NULL,
    full_path           TEXT NOT NULL,
    is_file             TEXT NOT NULL DEFAULT '',
    file_size           TEXT NOT NULL DEFAULT '',
    modified_date       TEXT NOT NULL DEFAULT '',
    base_system_file_id TEXT NOT NULL DEFAULT '',
    UNIQUE (computer_id, full_path)
);

-- Folders shared with a user, and by whom.
CREATE TABLE IF NOT EXISTS shared_files (
    shared_file_id INTEGER PRIMARY KEY AUTOINCREMENT,
    user_id        TEXT NOT NULL,                 -- the user the folder is shared with
    owner_user_id  TEXT NOT NULL,
    file_id        TEXT NOT NULL,                 -- the shared folder's file id
    shared_status  TEXT NOT NULL DEFAULT ''
);

-- Files to send ("FileToTransfer") or to receive ("RecFileFromTransfer") through a shared folder.
CREATE TABLE IF NOT EXISTS shared_transfers (
    shared_file_transfer_id INTEGER PRIMARY KEY AUTOINCREMENT,
    kind        TEXT NOT NULL CHECK (kind IN ('FileToTransfer', 'RecFileFromTransfer')),
    user_id     TEXT NOT NULL,
    computer_id TEXT NOT NULL,
    record      TEXT NOT NULL CHECK (json_type(record) = 'object'),  -- the transfer's fields as the reply carries them
    state       TEXT NOT NULL DEFAULT 'pending',
    updated     TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now'))
);

-- Changes in shared folders that computers reported.
CREATE TABLE IF NOT EXISTS shared_changes (
    id          INTEGER PRIMARY KEY,
    time        TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now')),
    computer_id TEXT NOT NULL,
    record      TEXT NOT NULL                     -- JSON object of the reported fields
);

-- Files the server wants a computer to upload.
CREATE TABLE IF NOT EXISTS uploads (
    file_upload_id      INTEGER PRIMARY KEY AUTOINCREMENT,
    to_computer_id      TEXT NOT NULL,
    file_name           TEXT NOT NULL DEFAULT '',
    server_path         TEXT NOT NULL DEFAULT '',
    transit_upload_path TEXT NOT NULL DEFAULT '',
    is_file             TEXT NOT NULL DEFAULT '1',
    attachment          TEXT NOT NULL DEFAULT '',
    content             BLOB NOT NULL DEFAULT x'',  -- what the stream download of this upload returns
    state               TEXT NOT NULL DEFAULT 'pending',
    updated             TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now'))
);

-- Files the server wants a computer to send (download requests).
CREATE TABLE IF NOT EXISTS downloads (
    file_request_id       INTEGER PRIMARY KEY AUTOINCREMENT,
    from_computer_id      TEXT NOT NULL,
    file_path             TEXT NOT NULL DEFAULT '',
    transit_download_path TEXT NOT NULL DEFAULT '',
    from_shared           TEXT NOT NULL DEFAULT '0',
    file_id               TEXT NOT NULL DEFAULT '',
    byte_start_pos        TEXT NOT NULL DEFAULT '0',
    attachment            TEXT NOT NULL DEFAULT '',
    state                 TEXT NOT NULL DEFAULT 'pending',
    updated               TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now'))
);

-- Bytes received by the stream upload, with its three headers.
CREATE TABLE IF NOT EXISTS received_streams (
    id                    INTEGER PRIMARY KEY,
    time                  TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now')),
    file_path             TEXT NOT NULL,
    transit_download_path TEXT NOT NULL,
    file_request_id       TEXT NOT NULL,
    content               BLOB NOT NULL
);

-- Files the server wants a computer to delete.
CREATE TABLE IF NOT EXISTS delete_requests (
    delete_request_id INTEGER PRIMARY KEY AUTOINCREMENT,
    from_computer_id  TEXT NOT NULL,
    file_path         TEXT NOT NULL DEFAULT '',
    state             TEXT NOT NULL DEFAULT 'pending',
    updated           TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now'))
);

-- Errors that computers reported.
CREATE TABLE IF NOT EXISTS error_log (
    id            INTEGER PRIMARY KEY,
    time          TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ', 'now')),
    error_class   TEXT NOT NULL DEFAULT '',
    error_method  TEXT NOT NULL DEFAULT '',
    error_message TEXT NOT NULL DEFAULT '',
    computer_id   TEXT NOT NULL DEFAULT '',
    user_id       TEXT NOT NULL DEFAULT ''
);
)sql";
}

void applySchema(sqlite::Database& db)
{
    // WAL lets readers (the sqlite3 shell during a demo, say) look at the database while the server writes.
    // ":memory:" databases stay in their own journal mode; the statement is harmless there.
    db.execute("PRAGMA journal_mode = WAL");
    db.execute("PRAGMA synchronous = NORMAL");
    // A batch of 100,000 changes touches tens of megabytes of pages; spilling them mid-transaction costs time.
    db.execute("PRAGMA cache_size = -65536");

    auto version = db.prepare("PRAGMA user_version");
    version.step();
    const auto found = version.integer(0);
    version.reset();
    if (found != 0 && found != schemaVersion)
        throw sqlite::Error("the database has schema version " + std::to_string(found) + ", this server writes version "
            + std::to_string(schemaVersion));

    sqlite::Transaction transaction(db);
    db.execute(schemaSql());
    db.execute("PRAGMA user_version = " + std::to_string(schemaVersion));
    transaction.commit();
}

}
