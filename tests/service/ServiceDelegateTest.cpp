#include "service/ServiceDelegate.h"

#include "platform/IpcConnection.h"
#include "platform/UserDefaults.h"
#include "platform/helpers/IpcTestSupport.h"
#include "service/SyncFilesXpcServiceProtocol.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "sync/SyncFilesXpcService.h"

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

namespace {

using platform::ipc::Connection;
using testsupport::eventually;

// A delegate whose services read and write preferences in a temporary folder, and which keeps every service it
// exports so that the test can tell them apart.
class RecordingDelegate : public service::ServiceDelegate {
public:
    explicit RecordingDelegate(platform::UserDefaults& defaults) : m_defaults(defaults) { }

    std::vector<std::shared_ptr<engine::SyncFilesXpcService>> exported() const
    {
        std::lock_guard lock(m_mutex);
        return m_exported;
    }

protected:
    std::shared_ptr<engine::SyncFilesXpcService> newSyncFilesXpcService() override
    {
        auto service = std::make_shared<engine::SyncFilesXpcService>(m_defaults);
        std::lock_guard lock(m_mutex);
        m_exported.push_back(service);
        return service;
    }

private:
    platform::UserDefaults& m_defaults;
    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<engine::SyncFilesXpcService>> m_exported;
};

// The services of every test keep polling for the rest of the process, so the store they read lives as long.
platform::UserDefaults& processStore()
{
    static testsupport::TempDir folder;
    static auto* store = new platform::UserDefaults(service::syncServiceName, folder.path());
    return *store;
}

class ServiceDelegateTest : public testing::Test {
protected:
    void SetUp() override
    {
        listener->setDelegate(delegate);
        listener->start();
    }
    void TearDown() override { listener->stop(); }

    // A client connection to the service, resumed, whose events nobody reads.
    std::shared_ptr<Connection> connect()
    {
        auto client = Connection::createToService(service::syncServiceName);
        client->setEventHandler(ipctest::EventRecorder::make()->handler());
        client->resume();
        return client;
    }

    // The lines that show SyncFile passes starting and ending.
    std::vector<std::string> passLines() const
    {
        std::vector<std::string> lines;
        for (const auto& line : log.lines()) {
            if (line == "FileWatcher 1 in syncfile initially")
                lines.push_back("start");
            else if (line.starts_with("Final List changed list"))
                lines.push_back("end");
        }
        return lines;
    }

    testsupport::LogCapture log;
    ipctest::ScopedRuntimeFolder runtime;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>(processStore());
    std::shared_ptr<platform::ipc::Listener> listener = platform::ipc::Listener::serviceListener(service::syncServiceName);
};

}

TEST_F(ServiceDelegateTest, TwoSyncFileCallsOnOneConnectionRunOnTheSameObjectOneAfterTheOther)
{
    auto client = connect();
    client->sendMessage(platform::ipc::makeInvocation("SyncFile"));
    client->sendMessage(platform::ipc::makeInvocation("SyncFile"));
    ASSERT_TRUE(eventually([&] { return passLines().size() >= 4; }));
    EXPECT_EQ(passLines(), (std::vector<std::string> { "start", "end", "start", "end" }));
    ASSERT_EQ(delegate->exported().size(), 1u);
    EXPECT_TRUE(delegate->exported()[0]->fileWatcherPrefs().has_value()) << "the exported object ran the passes";
    client->cancel();
}

TEST_F(ServiceDelegateTest, EveryConnectionIsAcceptedWithAnObjectOfItsOwn)
{
    auto first = connect();
    auto second = connect();
    first->sendMessage(platform::ipc::makeInvocation("SyncFile"));
    second->sendMessage(platform::ipc::makeInvocation("SyncFile"));
    ASSERT_TRUE(eventually([&] { return log.countStartingWith("FileWatcher 1 in syncfile initially") >= 2; }));
    const auto exported = delegate->exported();
    ASSERT_EQ(exported.size(), 2u);
    EXPECT_NE(exported[0], exported[1]);
    first->cancel();
    second->cancel();
}

TEST_F(ServiceDelegateTest, TheDelegateAnswersTrueForEveryConnectionItIsHanded)
{
    ipctest::ConnectedPair pair;
    auto accepted = std::make_shared<platform::ipc::ListenerConnection>(pair.receiver);
    EXPECT_TRUE(delegate->listener(*listener, accepted));
    EXPECT_EQ(delegate->exported().size(), 1u);
}
