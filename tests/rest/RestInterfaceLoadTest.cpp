#include "rest/RestInterface.h"

#include "RestTestSupport.h"
#include "support/DevServerProcess.h"
#include "platform/HttpSession.h"
#include "support/Descriptors.h"
#include "support/Eventually.h"

#include <iostream>
#include <map>

using namespace resttest;
using namespace rest;
using namespace messages;

namespace {

// Counts each call's callbacks by call number. The callbacks may outlive the counter.
class CallbackCounter {
public:
    template<typename Record>
    CompletionHandler<Record> callbackFor(int call)
    {
        return [state = m_state, call](const Outcome<Record>&, TransportStatus status) {
            std::lock_guard lock(state->mutex);
            ++state->calls[call];
            if (status != TransportSucceeded)
                ++state->failures;
            state->changed.notify_all();
        };
    }

    bool waitFor(std::size_t calls)
    {
        std::unique_lock lock(m_state->mutex);
        return m_state->changed.wait_for(lock, 60s, [&] { return m_state->calls.size() >= calls; });
    }

    std::map<int, int> calls() const
    {
        std::lock_guard lock(m_state->mutex);
        return m_state->calls;
    }
    int failures() const
    {
        std::lock_guard lock(m_state->mutex);
        return m_state->failures;
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::map<int, int> calls;
        int failures = 0;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

bool noTransferLeft()
{
    return testsupport::eventually([] { return platform::http::testhooks::transferCounts().current == 0; });
}

class RestFacadeLoad : public RestClientTest {
protected:
    RestFacadeLoad()
        : RestClientTest(RestServer::reply("{\"ReturnStatus\":\"1\",\"FileID\":\"7\"}"))
    {
    }

    // Starts call number `call`: one of four operations in turn.
    void start(int call)
    {
        const std::string id = std::to_string(call);
        switch (call % 4) {
        case 0:
            RestInterface::asyncRegisterComputer({ id, "/k" }, counter.callbackFor<RegisterComputerResponseData>(call));
            break;
        case 1:
            RestInterface::asyncLogError(
                { "Class", "method", id, "c", "u" }, counter.callbackFor<LogErrorResponseData>(call));
            break;
        case 2:
            RestInterface::asyncInsertFile(InsertFileQuery {}, counter.callbackFor<InsertFileResponseData>(call));
            break;
        default:
            RestInterface::asyncSyncFilesInTableAndCloud(
                {}, counter.callbackFor<std::vector<SyncFilesInTableAndCloudResponseData>>(call));
        }
    }

    // Makes `callCount` calls at once, after a first one that starts the HTTP thread and the server's workers, and
    // expects every callback exactly once with status 0, no transfer left and every descriptor of this process
    // closed again. Prints the time, the peak of transfers in flight and the descriptors.
    void expectAllCallsAnsweredOnce(int callCount, const char* against)
    {
        testsupport::raiseDescriptorLimit(8192);
        start(-1);
        ASSERT_TRUE(counter.waitFor(1));
        MainQueueThread::drain();
        ASSERT_TRUE(noTransferLeft());
        std::this_thread::sleep_for(100ms);
        const std::size_t descriptorsBefore = testsupport::openDescriptorCount();
        platform::http::testhooks::resetPeakTransferCount();

        testsupport::PeakDescriptorSampler descriptorSampler;

        const auto started = std::chrono::steady_clock::now();
        for (int call = 0; call < callCount; ++call)
            start(call);
        const bool allCalledBack = counter.waitFor(callCount + 1);
        const auto elapsed = std::chrono::steady_clock::now() - started;
        const std::size_t peakDescriptors = descriptorSampler.stop();
        MainQueueThread::drain();

        EXPECT_TRUE(allCalledBack);
        EXPECT_TRUE(noTransferLeft());
        // A server in this process closes its side of each connection when it sees the client's end.
        std::size_t descriptorsAfter = 0;
        testsupport::eventually(
            [&] { return (descriptorsAfter = testsupport::openDescriptorCount()) == descriptorsBefore; });
        const auto peakTransfers = platform::http::testhooks::transferCounts().peak;
        std::cout << "[ figures  ] " << callCount << " façade calls against " << against << " in "
                  << std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()
                  << " ms; peak transfers (connections) " << peakTransfers << "; descriptors before "
                  << descriptorsBefore << ", peak " << peakDescriptors << ", after " << descriptorsAfter << std::endl;

        const auto calls = counter.calls();
        EXPECT_EQ(calls.size(), static_cast<std::size_t>(callCount + 1));
        for (const auto& [call, count] : calls)
            EXPECT_EQ(count, 1) << "call " << call;
        EXPECT_EQ(counter.failures(), 0);
        EXPECT_GT(peakTransfers, 1u) << "the calls were in flight together";
        EXPECT_EQ(descriptorsAfter, descriptorsBefore);
    }

    CallbackCounter counter;
};

constexpr int thousandCalls = 1000;

}

TEST_F(RestFacadeLoad, AThousandCallsInFlightAtOnceEachCallBackExactlyOnceAndLeaveNoDescriptorOpen)
{
    expectAllCallsAnsweredOnce(thousandCalls, "an in-test server");
    EXPECT_EQ(server.received().size(), static_cast<std::size_t>(thousandCalls + 1));
}

TEST_F(RestFacadeLoad, AThousandCallsInFlightAtOnceAgainstTheDevServerEachCallBackExactlyOnce)
{
    testsupport::DevServerProcess devserver;
    const auto pointAtDevserver = serverAt(devserver.url("/"));
    expectAllCallsAnsweredOnce(thousandCalls, "korbanhold-devserver");
}
