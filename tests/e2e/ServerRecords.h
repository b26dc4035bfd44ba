#pragma once

// What the local server holds, read through its admin interface: a computer's file table, the request log, the
// error log and the shared changes; and the faults it is told to script.

#include "support/DevServerProcess.h"

#include "platform/Value.h"

#include <map>
#include <string>
#include <vector>

namespace e2etest {

inline constexpr const char* batchReportPath = "SyncFileChanges.svc/SyncFilesInTableAndCloud";
inline constexpr const char* insertFilePath = "SyncFileChanges.svc/InsertFile";
inline constexpr const char* sharedTransferPath = "SyncFileChanges.svc/InsertSharedFilesTransfer";

struct ServerFile {
    std::string fileId;
    // "1" for a file, "0" for a folder.
    std::string isFile;
    // The client's file number and modification date text, as the last change of the file sent them.
    std::string fileNumber;
    std::string modifiedDate;
};

class ServerRecords {
public:
    explicit ServerRecords(const testsupport::DevServerProcess& server) : m_server(server) { }

    // The file table of `computerId`, by path in the server's form.
    std::map<std::string, ServerFile> files(const std::string& computerId) const;
    // The request log of one method path, oldest first.
    platform::Value requests(const std::string& methodPath) const;
    std::size_t requestCount(const std::string& methodPath) const { return requests(methodPath).count(); }
    // The bodies of those requests, read as JSON (null for a body that is not JSON).
    std::vector<platform::Value> requestBodies(const std::string& methodPath) const;
    // The rows of an admin table ("errors", "shared-changes", ...).
    platform::Value rows(const std::string& route) const;
    // Adds one fault (docs/devserver.md, Faults) and fails the calling test when the server refuses it.
    void addFault(const platform::Value& fault) const;
    // True when every fault added so far has been used up.
    bool faultsUsedUp() const;

private:
    const testsupport::DevServerProcess& m_server;
};

// A value of an admin reply as text: the server answers some columns as numbers, the service's fields as text.
std::string textOf(const platform::Value* value);

}
