#include "service/XPCService.h"

#include "platform/Queue.h"
#include "platform/helpers/IpcTestSupport.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using service::XPCConnection;
using service::XPCService;
using testsupport::eventually;

// Runs the main queue on a thread of its own while the test lives, as the service's main thread does.
class XPCServiceTest : public testing::Test {
protected:
    ~XPCServiceTest() override
    {
        platform::stopMainQueue();
        m_mainThread.join();
    }

    // Records the connections the handler is given and whether it ran on the main queue.
    struct Handled {
        std::mutex mutex;
        std::vector<std::shared_ptr<XPCConnection>> connections;
        bool onMainQueue = true;
        std::size_t count()
        {
            std::lock_guard lock(mutex);
            return connections.size();
        }
    };

    XPCService::ConnectionHandler recordingHandler()
    {
        return [handled = handled](const std::shared_ptr<XPCConnection>& connection) {
            std::lock_guard lock(handled->mutex);
            handled->onMainQueue = handled->onMainQueue && platform::Queue::main()->isCurrent();
            handled->connections.push_back(connection);
        };
    }

    std::shared_ptr<Handled> handled = std::make_shared<Handled>();

private:
    std::thread m_mainThread { [] { platform::runMainQueue(); } };
};

}

TEST_F(XPCServiceTest, ANewConnectionIsKeptAndHandedToTheHandlerOnTheMainQueue)
{
    auto host = XPCService::initWithConnectionHandler(recordingHandler());
    EXPECT_FALSE(host->connections().has_value()) << "the list is made on first use";
    ipctest::ConnectedPair pair;
    service::XPCServiceConnectionHandler(pair.receiver);
    ASSERT_TRUE(eventually([&] { return handled->count() == 1; }));
    EXPECT_TRUE(handled->onMainQueue);
    ASSERT_TRUE(host->connections().has_value());
    ASSERT_EQ(host->connections()->size(), 1u);
    EXPECT_EQ(host->connections()->front(), handled->connections.front());
}

TEST_F(XPCServiceTest, ConnectionsAreNeverRemovedAlsoAfterTheirPeersHaveGone)
{
    auto host = XPCService::initWithConnectionHandler(nullptr);
    {
        ipctest::ConnectedPair first;
        ipctest::ConnectedPair second;
        service::XPCServiceConnectionHandler(first.receiver);
        service::XPCServiceConnectionHandler(second.receiver);
        ASSERT_TRUE(eventually([&] { return host->connections() && host->connections()->size() == 2; }));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(host->connections()->size(), 2u);
}

TEST_F(XPCServiceTest, AMessageSentAtOnceWaitsForTheHandlerOfItsConnection)
{
    auto messages = std::make_shared<std::atomic<int>>(0);
    auto host = XPCService::initWithConnectionHandler([messages](const std::shared_ptr<XPCConnection>& connection) {
        connection->setEventHandler([messages](const service::Object&, const std::shared_ptr<XPCConnection>&) { ++*messages; });
    });
    ipctest::ConnectedPair pair;
    pair.sender->setEventHandler(ipctest::EventRecorder::make()->handler());
    pair.sender->resume();
    pair.sender->sendMessage(platform::ipc::Object::dictionary());
    // The message is already in the socket when the connection is handed over.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    service::XPCServiceConnectionHandler(pair.receiver);
    EXPECT_TRUE(eventually([&] { return *messages == 1; }));
}

TEST_F(XPCServiceTest, TheConnectionHandlerCanBeReplaced)
{
    auto host = XPCService::initWithConnectionHandler(nullptr);
    EXPECT_FALSE(host->connectionHandler());
    host->setConnectionHandler(recordingHandler());
    ipctest::ConnectedPair pair;
    service::XPCServiceConnectionHandler(pair.receiver);
    EXPECT_TRUE(eventually([&] { return handled->count() == 1; }));
}
