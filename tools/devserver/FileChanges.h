#pragma once

// What the server does with one change of a batch report: "Created" and "Modified" insert or update the path,
// "Renamed" moves the old path and everything below it, "Deleted" removes the path and everything below it.

#include "devserver/FileTable.h"
#include "messages/Queries.h"

#include <string>

namespace devserver {

struct ChangeResult {
    // The path's file id after the change, as text: the kept or new id, the id a deleted path had, or the id the
    // change carried when there is no row to speak for it.
    std::string fileId;
    bool applied = false;
};

// Applies one change to the file table. A change that cannot be applied (unknown type, no computer or path, a
// rename of a path the table does not hold) changes nothing and says so; removing nothing is not a failure.
ChangeResult applyChange(FileTable& files, const messages::SyncFilesInTableAndCloudQuery& change);

}
