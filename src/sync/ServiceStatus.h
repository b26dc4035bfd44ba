#pragma once

// What the service has done lately, for `korbanhold status` and `korbanhold sync --wait`: a small JSON file of the
// service's own, status.json in the state folder (platform/StateFolder.h), kept apart from the preference domains so
// that those stay exactly as the host application and the file watcher know them. The engine records into it at a
// few points; once the program has named the file (recordTo), every record rewrites it whole and atomically, so a
// reader never sees half of it. Until then records stay in memory, so that an engine run inside another program
// (a test) writes no file. Recording never fails a pass: a file that cannot be written is logged once, and the
// engine goes on without it.
//
//   { "pid": 4242,                                            the process that wrote the file
//     "mode": "guarded",                                      "strict" or "guarded" (SyncPolicy), once it serves
//     "retryPending": { "at": 1795000002.5 },                 when a failed report's retry raises the status
//     "lastPass":   { "pid": 4242, "pass": 7, "at": 1795000000.5, "records": 3 },
//     "lastStored": { "pid": 4242, "pass": 7, "at": ..., "records": 3 },
//     "lastFailed": { "pid": 4242, "pass": 6, "at": ..., "error": "...", "url": "http://host:port/Korbanhold..." },
//     "skippedNames": [ "/home/ann/Korbanhold/a:b", ... ] }  the latest ones, oldest first, each once
//
// "pass" counts the passes that ran (the file watcher's status was "1") from 1 in the process "pid", "at" is seconds
// since 1970, "records" the number of change records the pass handed to the report. A report's "pass" is the latest
// pass that handed records to a report when the report ended. The file keeps what an earlier process recorded
// until this one records something new of the same kind.

#include <boost/json/object.hpp>

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace engine::status {

inline constexpr std::size_t skippedNamesKept = 20;

// status.json in this process's state folder.
std::filesystem::path filePath();

// From now on records go to `file`, which keeps what was in it until something new of the same kind is recorded.
void recordTo(std::filesystem::path file);

// The service serves in `mode` ("strict" or "guarded").
void modeChosen(std::string_view mode);
// A failed report's retry will raise the status `delaySeconds` from now.
void retryScheduled(double delaySeconds);
// The retry that waited has raised the status.
void retryCleared();
// A pass that ran has ended, handing `records` change records to the report (0: nothing to report).
void passEnded(std::size_t records);
// The server accepted the report of `records` records, and the table is stored.
void reportStored(std::size_t records);
// The report did not reach the server or was not understood: why, and the URL it went to.
void reportFailed(std::string_view error, std::string_view url);
// The folder walk left out `path` because its name holds characters the server refuses. Written to the file with
// the next record (the pass's end), not one write per name.
void nameSkipped(std::string_view path);

// The file at filePath() as it stands: an empty object when there is none or it is not a JSON object.
boost::json::object read();
boost::json::object read(const std::filesystem::path& file);

}
