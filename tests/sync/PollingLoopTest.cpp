// The polling loop under the test clock: every pass schedules the next one 2 seconds later, whatever happened.

#include "SyncFixture.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <filesystem>
#include <thread>

using platform::Value;
using namespace synctest;
using namespace std::chrono_literals;

namespace {

class PollingLoop : public synctest::SyncFixture {
protected:
    void expectFailedPasses(std::size_t count, const std::string& reason)
    {
        EXPECT_EQ(service->countOf("logErrorMethod"), count);
        EXPECT_EQ(log.countStartingWith(reason), count);
        EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
        EXPECT_EQ(status(), Value("1"));
        EXPECT_EQ(clock.pendingCount(), 1u);
    }
};

TEST_F(PollingLoop, StatusZeroSkipsEveryPassAndTheLoopGoesOnEveryTwoSeconds)
{
    firstPass();
    writeFile("a.txt", "a");
    clock.advance(6s);
    EXPECT_EQ(log.countStartingWith("syncFileInTablenCloud: 0"), 3u);
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 1u);
    EXPECT_EQ(clock.pendingCount(), 1u);

    // Another program of the product raises the status: the next pass of the loop runs.
    raiseStatus("1");
    clock.advance(2s);
    EXPECT_EQ(summary(changes()), (Lines { "Created a.txt" }));
    EXPECT_EQ(status(), Value("0"));
}

TEST_F(PollingLoop, TableRecordWithoutOldPathEndsEveryPassThroughTheGuardUntilItIsFixed)
{
    useStrictMode();
    Value broken = tableRecord("18446744073709551012", path("x.txt"), "S-1");
    broken.removeObjectForKey("oldPathKey");
    storeTable(Value::array({ broken }));
    firstPass();
    std::string reason = "*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: oldPathKey)";
    expectFailedPasses(1, reason);
    clock.advance(2s);
    expectFailedPasses(2, reason);
    clock.advance(2s);
    expectFailedPasses(3, reason);

    storeTable(Value::array({ tableRecord("18446744073709551012", path("x.txt"), "S-1") }));
    clock.advance(2s);
    EXPECT_EQ(service->countOf("logErrorMethod"), 3u);
    EXPECT_EQ(summary(changes()), (Lines { "Deleted x.txt" }));
    EXPECT_EQ(status(), Value("0"));
}

TEST_F(PollingLoop, MissingComputerIdEndsEveryPassThroughTheGuard)
{
    storeTable(Value::array({ tableRecord("18446744073709551012", path("x.txt"), "S-1") }));
    writeDomain("Ulmaridon.Korbanhold", Value::dictionary({ { "korbanholdPathKey", Value(home()) } }));
    firstPass();
    std::string reason = "*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: computerIDKey)";
    expectFailedPasses(1, reason);
    clock.advance(2s);
    expectFailedPasses(2, reason);
}

TEST_F(PollingLoop, NullServerIdentifierInTheTableEndsEveryPassThroughTheGuard)
{
    Value broken = tableRecord("18446744073709551012", path("x.txt"), "S-1");
    broken.setObject(Value::null(), "FileIDKey");
    storeTable(Value::array({ broken }));
    firstPass();
    std::string reason = "-[NSNull isEqualToString:]: unrecognized selector sent to instance";
    expectFailedPasses(1, reason);
    clock.advance(2s);
    expectFailedPasses(2, reason);
}

// Lowers, for the calling thread and the threads it starts, the capabilities that let root read and search every
// folder, so that folder permissions apply as they do to a user; restores them when it goes.
class FolderPermissionsApply {
public:
    FolderPermissionsApply()
    {
        m_usable = syscall(SYS_capget, &m_header, m_saved) == 0;
        __user_cap_data_struct lowered[2] = { m_saved[0], m_saved[1] };
        lowered[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
        m_usable = m_usable && syscall(SYS_capset, &m_header, lowered) == 0;
    }
    ~FolderPermissionsApply() { syscall(SYS_capset, &m_header, m_saved); }
    bool usable() const { return m_usable; }

private:
    __user_cap_header_struct m_header { _LINUX_CAPABILITY_VERSION_3, 0 };
    __user_cap_data_struct m_saved[2] {};
    bool m_usable = false;
};

// The walk lists a folder's names first and reads each item's attributes after. An item whose attributes cannot be
// read then (it vanished after it was listed, or, as here, its folder may be read but not searched) has no file
// number to store.
TEST_F(PollingLoop, ItemListedWhoseAttributesCannotBeReadEndsThePassThroughTheGuard)
{
    writeFile("a.txt", "a");
    writeFile("locked/gone.txt", "g");
    std::filesystem::permissions(path("locked"), std::filesystem::perms::owner_read | std::filesystem::perms::group_read
            | std::filesystem::perms::others_read);
    {
        FolderPermissionsApply permissions;
        ASSERT_TRUE(permissions.usable());
        firstPass();
    }
    EXPECT_EQ(service->countOf("logErrorMethod"), 1u);
    EXPECT_EQ(log.countStartingWith("*** -[__NSDictionaryM setObject:forKey:]: object cannot be nil (key: BaseSystemFileIDKey)"), 1u);
    EXPECT_EQ(log.countStartingWith("Final List changed list"), 0u);
    EXPECT_EQ(status(), Value("1"));
    EXPECT_EQ(clock.pendingCount(), 1u);
}

TEST_F(PollingLoop, TwoLoopsOnOneObjectNeverRunTwoPassesAtOnce)
{
    useStrictMode();
    // Two loops on one object (a second SyncFile) whose passes start at the same moment on two threads. Each pass
    // stops in the middle, at the shared item, until another pass joins it there or 0.3 s have passed: passes
    // that could overlap are then seen inside the pass together. Costs about two seconds.
    writeFile("A (Shared)/f.txt", "f");
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0, mostInside = 0;
    service->duringEverySharedCreation = [&] {
        std::unique_lock lock(mutex);
        mostInside = std::max(mostInside, ++inside);
        changed.notify_all();
        changed.wait_for(lock, 300ms, [&] { return inside > 1; });
        --inside;
    };
    firstPass();
    raiseStatus("1");
    std::thread second([&] { service->SyncFile(); });
    service->syncFileInTablenCloud();
    second.join();
    service->duringEverySharedCreation = nullptr;
    EXPECT_EQ(mostInside, 1);
    EXPECT_GE(service->countOf("performSharedFilesCreationProcess"), 3u);
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
}

TEST_F(PollingLoop, ReadingThePropertiesWhileTwoLoopsRunIsSafe)
{
    useStrictMode();
    for (int index = 0; index < 20; ++index)
        writeFile("f" + std::to_string(index) + ".txt", "x");
    firstPass();
    service->SyncFile();
    std::atomic<bool> reading = true;
    std::thread reader([&] {
        while (reading) {
            service->userDefaultsArray();
            service->changedListArray();
            service->sharedFilesArray();
        }
    });
    for (int round = 0; round < 10; ++round) {
        if (round % 3 == 0)
            writeFile("late" + std::to_string(round) + ".txt", "y");
        raiseStatus("1");
        clock.advance(2s);
    }
    reading = false;
    reader.join();
    EXPECT_EQ(clock.pendingCount(), 2u);
    EXPECT_EQ(service->countOf("logErrorMethod"), 0u);
}

}
