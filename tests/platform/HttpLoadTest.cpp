#include "platform/HttpSession.h"

#include "HttpTestServers.h"
#include "support/Descriptors.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <map>

using namespace platform::http;
using namespace std::chrono_literals;

TEST(HttpLoad, AThousandRequestsInFlightEachReportOnceAndLeaveNoDescriptorOpen)
{
    constexpr int requestCount = 1000;
    testsupport::raiseDescriptorLimit(8192);

    httptest::LoopbackHttpServer server;
    server.server.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
        response.set_content("{\"echo\":" + request.body + "}", "application/json");
    });
    server.start();
    auto queue = platform::Queue::makeSerial("http-load-test");

    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, int> reports;
    std::map<int, std::string> bodies;
    int errors = 0;
    const auto send = [&](int index) {
        // One session per request, as every request of the service gets.
        auto session = Session::make(Configuration::defaultConfiguration(), {}, queue);
        Request request;
        request.url = server.url("/echo");
        request.httpMethod = "POST";
        const std::string body = std::to_string(index);
        request.httpBody.assign(body.begin(), body.end());
        session->dataTask(request, [&, index](const Result& result) {
            std::lock_guard lock(mutex);
            ++reports[index];
            if (result.error)
                ++errors;
            else
                bodies[index] = std::string(result.data->begin(), result.data->end());
            changed.notify_all();
        })->resume();
    };
    const auto waitForReports = [&](std::size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 60s, [&] { return reports.size() >= count; });
    };
    const auto waitForNoTransfers = [] {
        for (int waited = 0; testhooks::transferCounts().current != 0 && waited < 500; ++waited)
            std::this_thread::sleep_for(10ms);
        return testhooks::transferCounts().current;
    };

    // A first request starts the I/O thread and the server's workers, which live on.
    send(-1);
    ASSERT_TRUE(waitForReports(1));
    ASSERT_EQ(waitForNoTransfers(), 0u);
    std::this_thread::sleep_for(100ms);
    const std::size_t descriptorsBefore = testsupport::openDescriptorCount();
    testhooks::resetPeakTransferCount();

    testsupport::PeakDescriptorSampler descriptorSampler;

    const auto started = std::chrono::steady_clock::now();
    for (int index = 0; index < requestCount; ++index)
        send(index);
    ASSERT_TRUE(waitForReports(requestCount + 1));
    const auto elapsed = std::chrono::steady_clock::now() - started;
    const std::size_t peakDescriptors = descriptorSampler.stop();
    queue->sync([] { });

    EXPECT_EQ(waitForNoTransfers(), 0u);
    // The server's side of each connection closes when it sees the client's end.
    std::size_t descriptorsAfter = testsupport::openDescriptorCount();
    for (int waited = 0; descriptorsAfter != descriptorsBefore && waited < 500; ++waited) {
        std::this_thread::sleep_for(10ms);
        descriptorsAfter = testsupport::openDescriptorCount();
    }

    const auto peak = testhooks::transferCounts().peak;
    std::cout << "[ figures  ] " << requestCount << " requests in "
              << std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count() << " ms; peak transfers "
              << peak << "; descriptors before " << descriptorsBefore << ", peak " << peakDescriptors << ", after "
              << descriptorsAfter << std::endl;

    std::lock_guard lock(mutex);
    EXPECT_EQ(errors, 0);
    EXPECT_EQ(reports.size(), static_cast<std::size_t>(requestCount + 1));
    for (const auto& [index, count] : reports)
        EXPECT_EQ(count, 1) << "request " << index;
    for (int index = 0; index < requestCount; ++index)
        EXPECT_EQ(bodies[index], "{\"echo\":" + std::to_string(index) + "}");
    EXPECT_GT(peak, 1u) << "the requests were in flight together";
    EXPECT_EQ(descriptorsAfter, descriptorsBefore);
}
