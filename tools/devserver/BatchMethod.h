#pragma once

// "SyncFileChanges.svc/SyncFilesInTableAndCloud": a batch report. The body is a JSON array of changes; they are
// applied in order, in one transaction, to the file tables of the computers they name, and the reply is a JSON array
// with one result per change, in the same order.

#include "devserver/Exchange.h"
#include "devserver/Store.h"

namespace devserver {

Reply syncFilesInTableAndCloud(Store& store, const httplib::Request& request);

}
