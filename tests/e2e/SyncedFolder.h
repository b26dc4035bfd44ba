#pragma once

// The product end to end on one machine: korbanhold-devserver with its database in a temporary folder, a user and a
// computer registered on it, the settings written into the preference domains, korbanhold-sync-service pointed at
// the server and started by `korbanhold sync`. A test then changes the synced folder with ordinary tools and runs a
// sync step: it raises the file watcher's status as the file watcher would, waits until the pass has run and its
// report is done, and compares what the server holds with the folder.
//
// How a step knows that the service is done, without fixed sleeps: the pass has ended when the status is back to
// "0" and the service has logged one more "Final List changed list"; when that list was not empty, the report has
// been accepted and stored when the service has logged one more "filde ID updayted" (its last line after the
// second store of the table).

#include "Account.h"
#include "Defaults.h"
#include "ServerRecords.h"
#include "ServiceProcess.h"

#include "support/DevServerProcess.h"
#include "support/Eventually.h"
#include "support/TempDir.h"

#include "platform/Value.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace e2etest {

inline constexpr const char* passEnded = "Final List changed list";
inline constexpr const char* reportStored = "filde ID updayted";

// How long a step waits for the service; generous for the sanitizer builds on a busy machine.
inline constexpr std::chrono::seconds serviceTimeLimit { 30 };

class SyncedFolder : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Called before the service starts, with the synced folder in place and the settings written; a fixture that
    // needs items or shared-file records from the start puts them there.
    virtual void prepare() { }

    const std::filesystem::path& syncedFolder() const { return m_syncedFolder; }
    // A folder outside the synced folder, for sources of copies, archives and trees.
    std::filesystem::path scratch() const { return m_workspace / "scratch"; }

    // Runs `command` with /bin/sh inside the synced folder; succeeds when the command does.
    testing::AssertionResult run(const std::string& command) const;
    // Runs `command`, syncs, and succeeds when the server then matches the folder.
    testing::AssertionResult changeAndSync(const std::string& command);

    // Raises the status and waits until the pass has ended; true when it ended, and when its change list was not
    // empty also the report was accepted and the table stored.
    testing::AssertionResult syncStep();
    // Raises the status and waits only until the pass has ended (the report may still be on its way or fail).
    testing::AssertionResult passStep();
    // True when the last pass's change list was empty (no report was started).
    bool lastChangeListWasEmpty() const;

    // The server's file table for this computer equals the syncable items of the folder (paths and kinds).
    testing::AssertionResult serverFilesMatchFolder() const;
    // The same, and the stored table too, and every server file identifier is the "FileIDKey" of the stored table's
    // entry for that path.
    testing::AssertionResult serverMatchesFolder() const;
    // The same, for the stored table alone: the table's paths equal the syncable items of the folder.
    testing::AssertionResult storedTableMatchesFolder() const;

    // Stops the server (SIGTERM) and starts a new one on the same database, then restarts the service pointed at the
    // new port and calls SyncFile on it again (which raises the status and runs a pass).
    void restartServerAndService();
    // Stops the service with `signal` (SIGKILL: as a crash) and starts it again without calling SyncFile: it listens,
    // but no polling loop runs. `launcher` is put in front of the new service (unshare ...), when given.
    void restartServiceWithoutSyncFile(int signal = SIGTERM, const std::vector<std::string>& launcher = {});
    // Kills the service (SIGKILL) wherever it is, starts it again and calls SyncFile on it, as after a crash; waits
    // until that first pass has ended and its report, if any, is stored.
    void killAndRestartService();
    // Raises the file watcher's status, as the file watcher does, without waiting for the pass.
    void raiseStatus() const;
    // The end of the service's log, for failure messages.
    std::string logTail() const;
    // The changes of the last batch report (type, path, file number), one per line, for failure messages.
    std::string lastReportDescription() const;
    // Stops the server with `signal` (SIGKILL: as a crash; its database keeps what it committed).
    void stopServer(int signal = SIGTERM);
    // Starts the server again on the same database and on `port` (the one it had), so that the running service
    // reaches it without a restart.
    void startServerOnPort(int port);

    ServiceFolders m_folders;
    Defaults m_defaults { m_folders };
    Account m_account;
    std::unique_ptr<testsupport::DevServerProcess> m_server;
    std::unique_ptr<ServerRecords> m_records;

private:
    void startServer();
    void startService();
    testing::AssertionResult waitForPassEnd(std::size_t passesBefore);
    testing::AssertionResult finishStep(std::size_t passesBefore, std::size_t storesBefore);

    testsupport::TempDir m_workspace;
    std::filesystem::path m_syncedFolder;
    std::unique_ptr<ServiceProcess> m_service;
};

// Waits for a condition the service brings about; the conditions read files or ask the server, so they are polled
// every 20 ms rather than as fast as possible.
template<typename Condition>
bool eventuallyWithinServiceTime(Condition condition)
{
    return testsupport::eventually(condition, serviceTimeLimit, std::chrono::milliseconds(20));
}

}
