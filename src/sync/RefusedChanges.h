#pragma once

// What the stored table must not claim after a batch report whose server refused some changes: the table stored
// describes the folder as the server has accepted it, so each refused change is left undone in it, and a later pass
// finds the same difference again and reports it once more.

#include "platform/Value.h"
#include "sync/WatchedTable.h"

#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace engine {

// Renames as (old path, new path).
using RenameSet = std::set<std::pair<std::string, std::string>>;

// The renames that the server refused in the last report it answered. A rename that two answered reports in a row
// refused is not one the server will apply: it may already hold the item at its new path (a report it applied, and
// a service killed before storing the table, leave the rename to be reported again), or refuse the move for a
// reason of its own. Reported once more the same way, it would be refused for ever; reported as its old path
// deleted and its new path created, it is applied whatever the server holds.
class RefusedRenames {
public:
    // Remembers the renames among `refused` (the refused changes of one answered report, possibly none) in place of
    // the last report's, and answers those that the last report's refusals held too.
    RenameSet refusedAgain(const platform::Value& refused);

private:
    std::mutex m_mutex;
    RenameSet m_lastRefused;
};

// Undoes each change record of `refused` in `table`, entry by entry, so that storing the table afterwards writes
// only the entries undone:
// - "Created": the entry of its path and file number is taken out (the item is new again);
// - "Modified": the entry of its path loses its size and date texts (the item has changed again);
// - "Renamed": the entry of its new path goes back to its old path (the item is renamed again); for a rename in
//   `splitRenames` it also loses its file number, so that the next pass reports the old path "Deleted" and the new
//   one "Created" instead of the same rename;
// - "Deleted": the record comes back as an entry (the item is deleted again).
void leaveRefusedChangesUndone(WatchedTable& table, const platform::Value& refused, const RenameSet& splitRenames);

// True when a result's "ReturnStatus" says that the server applied the change: the text "0" (or the number 0).
bool isAcceptedReturnStatus(const std::optional<platform::Value>& returnStatus);

}
