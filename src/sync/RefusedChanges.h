#pragma once

// What the stored table must not claim after a batch report whose server refused some changes: the table stored
// describes the folder as the server has accepted it, so each refused change is left undone in it, and a later pass
// finds the same difference again and reports it once more.

#include "platform/Value.h"

namespace engine {

// Undoes each change record of `refused` in `table` (a list of table records):
// - "Created": the entry of its path and file number is taken out (the item is new again);
// - "Modified": the entry of its path loses its size and date texts (the item has changed again);
// - "Renamed": the entry of its new path goes back to its old path (the item is renamed again);
// - "Deleted": the record comes back as an entry (the item is deleted again).
void leaveRefusedChangesUndone(platform::Value& table, const platform::Value& refused);

// True when a result's "ReturnStatus" says that the server applied the change: the text "0" (or the number 0).
bool isAcceptedReturnStatus(const std::optional<platform::Value>& returnStatus);

}
