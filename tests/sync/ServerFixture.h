#pragma once

// The engine against a real korbanhold-devserver process: the client pointed at it, the network taken as
// reachable (the server is on loopback, whatever the machine's routes), and ways to see what the server received
// and to wait for the completions of the engine's requests.

#include "SyncFixture.h"

#include "platform/NetworkReachability.h"
#include "support/DevServerProcess.h"
#include "support/ScopedEnvironment.h"

#include <map>
#include <string>
#include <vector>

namespace synctest {

// Counts, by name, the files of a folder that are written whole (a new file renamed over the old one, as the
// preference store writes a domain), from the moment the object is made.
class FileReplacements {
public:
    explicit FileReplacements(const std::string& folder);
    ~FileReplacements();
    FileReplacements(const FileReplacements&) = delete;
    FileReplacements& operator=(const FileReplacements&) = delete;

    std::size_t count(const std::string& name);

private:
    int m_fd;
    std::map<std::string, std::size_t> m_counts;
};

class ServerFixture : public SyncFixture {
protected:
    ServerFixture();
    ~ServerFixture() override;

    // The request bodies the server received for `methodPath` (such as "MAC/ErrorLog.svc/LogError"), oldest first,
    // read as JSON.
    std::vector<platform::Value> bodiesOf(const std::string& methodPath) const;
    // The rows of an admin route ("errors", "shared-changes", "files?computer=C-7").
    platform::Value admin(const std::string& route) const;
    // Scripts a fault for the next request of `methodPath` ("error-json", "not-json", "drop", "delay" with `ms`).
    void addFault(const std::string& kind, const std::string& methodPath, int ms = 0) const;

    // Waits until the transport has handed `count` replies (or failures) in all to their completions, and those
    // completions have run on the main queue. The transport logs "response ..." or "network error" on the main
    // queue in the task that calls the completion, so once the line is there, draining the queue finishes it.
    bool waitForReplies(std::size_t count);

    // The shared-files entry of a folder directly in the synced folder (its name holding "(Shared)") that is active
    // and owned by this user ("OwnerFileID" "0", "Blocked" "0"), with the mapping "M-1".
    platform::Value sharedFolderRecord(const std::string& relative) const;
    // Makes that folder and stores a shared-files list holding only its entry.
    void makeActiveSharedFolder(const std::string& relative) const;
    // The shared-files list as stored in its domain (absent when not stored).
    std::optional<platform::Value> storedSharedList() const;
    void storeSharedList(const platform::Value& list) const;

    testsupport::DevServerProcess server;
    testsupport::ScopedEnvironment serverVariable;
    platform::PinnedReachabilityFlags reachable { platform::reachability::Reachable };
};

}
