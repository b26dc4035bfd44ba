#pragma once

// A synced folder and the product's preference domains in a real temporary folder, and a service whose server
// operations are recorded, for tests that run real passes.

#include "platform/Queue.h"
#include "platform/Value.h"
#include "support/LogCapture.h"
#include "support/MainQueueThread.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDir.h"
#include "sync/SyncFilesXpcService.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace platform {
// Values print as their description in test failure messages.
inline void PrintTo(const Value& value, std::ostream* out) { *out << value.description(); }
}

namespace synctest {

// Records every call of the operations that talk to the server, with its arguments, in call order. The shared-file
// processes always go on to their own work; the batch report and the error report do so only when
// `talksToServer` is set (before the first pass), so that the tests of the pass see the change list without a
// server.
class RecordingService : public engine::SyncFilesXpcService {
public:
    using SyncFilesXpcService::SyncFilesXpcService;

    bool talksToServer = false;

    struct Call {
        std::string operation;
        std::vector<std::string> arguments;
        platform::Value changes;
    };

    void performSharedFilesRenameProcess(const std::string& path, const std::string& fileID) override;
    void performSharedFilesCreationProcess(const std::string& path) override;
    void SyncFilesWithTableAndCloudProcess(platform::Value changedListArray) override;
    void logErrorMethod() override;

    std::vector<Call> calls() const;
    std::size_t countOf(const std::string& operation) const;
    // Waits (up to 10 s) until `operation` has been called `count` times in all.
    bool waitFor(const std::string& operation, std::size_t count) const;
    // Runs inside the next call of performSharedFilesCreationProcess, on the pass's thread.
    std::function<void()> duringSharedCreation;
    // Runs inside every call of performSharedFilesCreationProcess, on the pass's thread.
    std::function<void()> duringEverySharedCreation;
    // Runs at the start of the next call of SyncFilesWithTableAndCloudProcess, on the thread of the report.
    std::function<void()> duringBatchReport;

private:
    void record(Call call);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<Call> m_calls;
};

// Every request of a test goes to the server the test names: to a loopback port where nothing listens unless it
// points $KORBANHOLD_SERVER elsewhere. The main queue, where the completions of requests run, runs meanwhile.
//
// The engine runs in the mode $KORBANHOLD_STRICT gives (guarded unless it is "1"), so that the whole suite can be run
// in strict mode; a test of what differs between the modes fixes its mode first thing with useStrictMode() or
// useGuardedMode().
class SyncFixture : public ::testing::Test {
protected:
    SyncFixture();
    ~SyncFixture() override;

    // Replaces the service by one in the given mode; before anything else of the test uses the service.
    void useStrictMode() { usePolicy(engine::SyncPolicy::strict()); }
    void useGuardedMode() { usePolicy(engine::SyncPolicy::guarded()); }
    void usePolicy(engine::SyncPolicy policy)
    {
        bool talksToServer = service->talksToServer;
        service = std::make_shared<RecordingService>(defaults, policy);
        service->talksToServer = talksToServer;
    }

    // The synced folder ("<home>/Korbanhold") and paths in it.
    std::string synced() const { return m_home + "/Korbanhold"; }
    std::string path(const std::string& relative) const { return synced() + "/" + relative; }
    std::string home() const { return m_home; }
    // The file number of an item, as records write it.
    std::string fileNumber(const std::string& relative) const;
    // The item's modification date as records write it ("yyyy-MM-dd hh:mm:ss", 12-hour clock, no AM/PM).
    std::string modifiedDate(const std::string& relative) const;

    // Runs a shell command in the synced folder; fails the test when it does not exit with 0.
    void sh(const std::string& command) const;
    void writeFile(const std::string& relative, const std::string& contents) const;
    void makeFolder(const std::string& relative) const;

    // Preference domains, read and written as whole files the way the other programs of the product do.
    void writeDomain(const std::string& name, const platform::Value& domain) const;
    std::optional<platform::Value> readDomain(const std::string& name) const;
    // The settings domain with "korbanholdPathKey", "computerIdKey" = "C-7", "userIdKey" = "U-3".
    void writeSettings(std::initializer_list<platform::Entry> extra = {}) const;
    void raiseStatus(const std::string& status = "1") const;
    std::optional<platform::Value> status() const;
    // The watched-files table in the service's own defaults.
    void storeTable(const platform::Value& table) const;
    std::optional<platform::Value> storedTable() const;

    // The first pass (SyncFile), or a later one (raises the status, then one pass).
    void firstPass();
    void nextPass();
    // Stores the table of the last pass as an accepted batch report does, giving every item without a server
    // identifier the identifier "S" + its file number.
    void acceptReport();
    // A first pass over the folder as it is, accepted by the server.
    void settle()
    {
        firstPass();
        acceptReport();
    }

    // "Created a/b.txt", "Renamed a.txt -> b.txt", "Deleted x/a.txt": one line per record, paths below the synced
    // folder.
    std::vector<std::string> summary(const platform::Value& records) const;

    platform::Value changes() const { return service->changedListArray(); }
    platform::Value table() const { return service->userDefaultsArray(); }

    testsupport::ScopedEnvironment noServer;
    testsupport::MainQueueThread mainQueue;
    testsupport::TempDir root;
    platform::TestClock clock;
    testsupport::LogCapture log;
    // The service's standard defaults, in this test's own preferences folder.
    platform::UserDefaults defaults { "Ulmaridon.SyncFilesXpcService", root.path() / "Preferences" };
    std::shared_ptr<RecordingService> service = std::make_shared<RecordingService>(defaults);

private:
    std::string m_home;
};

using Lines = std::vector<std::string>;

// A table entry as a pass stores it, of an item that was 4 KB and last modified 2023-01-02 03:04:05; the file
// number is one no real file has.
platform::Value tableRecord(const std::string& fileNumber, const std::string& path, const std::string& fileID);

// A record with these text values (the order of the keys is not compared by ==).
platform::Value record(std::initializer_list<std::pair<std::string, std::string>> fields);
// The keys of a record in their insertion order.
std::vector<std::string> keysOf(const platform::Value& record);
// The text value of `key`, or "<absent>".
std::string text(const platform::Value& record, const std::string& key);
// The record of `records` whose "BaseSystemFilePathKey" is `path`; a test failure when there is none.
platform::Value entryWithPath(const platform::Value& records, const std::string& path);

}
