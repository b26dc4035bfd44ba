#pragma once

// What the REST client's tests share: a REST server on loopback that records what it receives, the main queue run
// on a thread of its own, recorders of callbacks (what they got, on which thread and queue, how often), and a
// fixture that points the client at the server.

#include "platform/HttpTestServers.h"
#include "platform/NetworkReachability.h"
#include "platform/Queue.h"
#include "rest/TransportStatus.h"
#include "support/LogCapture.h"
#include "support/MainQueueThread.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace resttest {

using namespace std::chrono_literals;

inline constexpr const char* servicePrefix = "/KorbanholdRestService/";

// The "host:port" of a loopback server's URL ("http://127.0.0.1:port/").
inline std::string hostOf(const std::string& url)
{
    const std::string withoutScheme = url.substr(std::string("http://").size());
    return withoutScheme.substr(0, withoutScheme.find('/'));
}

// Points the client at the server of `url` while the object lives.
inline testsupport::ScopedEnvironment serverAt(const std::string& url)
{
    return testsupport::ScopedEnvironment("KORBANHOLD_SERVER", hostOf(url));
}

using testsupport::MainQueueThread;

// An HTTP server on loopback that answers every request under the service's path with `respond` and records each
// request it receives.
class RestServer {
public:
    using Respond = std::function<void(const httplib::Request&, httplib::Response&)>;

    struct Received {
        std::string method;
        // Relative to the service's base path, as the client named the server method.
        std::string path;
        std::string body;
        httplib::Headers headers;

        std::string header(const std::string& name) const
        {
            const auto found = headers.find(name);
            return found == headers.end() ? std::string("(none)") : found->second;
        }
    };

    explicit RestServer(Respond respond)
        : m_respond(std::move(respond))
    {
        const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            {
                std::lock_guard lock(m_mutex);
                m_received.push_back({ request.method, request.path.substr(std::string(servicePrefix).size()),
                    request.body, request.headers });
            }
            m_respond(request, response);
        };
        m_server.server.Post(std::string(servicePrefix) + ".*", handler);
        m_server.server.Get(std::string(servicePrefix) + ".*", handler);
        m_server.start();
    }

    // The server's "host:port", as $KORBANHOLD_SERVER names it.
    std::string host() const { return hostOf(m_server.url("")); }
    std::string url(const std::string& path) const { return m_server.url(path); }

    std::vector<Received> received() const
    {
        std::lock_guard lock(m_mutex);
        return m_received;
    }

    // A reply of `body` with `status` and `contentType`.
    static Respond reply(std::string body, int status = 200, std::string contentType = "application/json")
    {
        return [=](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            response.set_content(body, contentType);
        };
    }

    // A reply that asks for credentials: 401 with a "WWW-Authenticate" field, or 407 with a "Proxy-Authenticate" one,
    // and a JSON body.
    static Respond challenge(int status)
    {
        return [=](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            response.set_header(status == 407 ? "Proxy-Authenticate" : "WWW-Authenticate", "Basic realm=\"Korbanhold\"");
            response.set_content("{\"ReturnStatus\":\"1\"}", "application/json");
        };
    }

private:
    Respond m_respond;
    mutable std::mutex m_mutex;
    std::vector<Received> m_received;
    // Last, so that it stops (and its handlers end) before the members they use go.
    httptest::LoopbackHttpServer m_server;
};

// Where a callback ran.
struct CallPlace {
    std::thread::id thread;
    bool onMainQueue = false;

    static CallPlace here() { return { std::this_thread::get_id(), platform::Queue::main()->isCurrent() }; }
};

// Records the calls of callbacks taking `Arguments`, from any thread.
template<typename... Arguments>
class Recorder {
public:
    struct Call {
        std::tuple<std::decay_t<Arguments>...> arguments;
        CallPlace place;
    };

    // A callback that records its calls here; it may outlive the recorder.
    std::function<void(Arguments...)> callback() const
    {
        return [state = m_state](Arguments... arguments) {
            std::lock_guard lock(state->mutex);
            state->calls.push_back({ { arguments... }, CallPlace::here() });
            state->changed.notify_all();
        };
    }

    // Waits until `count` calls have been made (at most `limit`); true when they were.
    bool waitFor(std::size_t count = 1, std::chrono::milliseconds limit = 10s) const
    {
        std::unique_lock lock(m_state->mutex);
        return m_state->changed.wait_for(lock, limit, [&] { return m_state->calls.size() >= count; });
    }

    std::vector<Call> calls() const
    {
        std::lock_guard lock(m_state->mutex);
        return m_state->calls;
    }
    std::size_t count() const { return calls().size(); }
    // The only call; fails the test when there was not exactly one.
    Call only() const
    {
        auto all = calls();
        EXPECT_EQ(all.size(), 1u);
        return all.empty() ? Call {} : all.front();
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<Call> calls;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

// Callbacks of transports: (object, status) and (first, second, status).
using FinishedRecorder = Recorder<const rest::TransportObject&, rest::TransportStatus>;
using StreamRecorder = Recorder<const rest::TransportObject&, const rest::TransportObject&, rest::TransportStatus>;

inline const platform::Error* errorIn(const rest::TransportObject& object)
{
    return std::get_if<platform::Error>(&object);
}
inline const platform::Value* valueIn(const rest::TransportObject& object)
{
    return std::get_if<platform::Value>(&object);
}
inline bool isNothing(const rest::TransportObject& object)
{
    return std::holds_alternative<std::monostate>(object);
}

// Expects the one call of a callback that was made at once (before the call that started the request returned) on
// this thread, with nothing and status 1.
inline void expectNotReachableAtOnce(const FinishedRecorder& finished)
{
    ASSERT_EQ(finished.count(), 1u) << "the callback came after the call returned";
    const auto call = finished.only();
    EXPECT_TRUE(isNothing(std::get<0>(call.arguments)));
    EXPECT_EQ(std::get<1>(call.arguments), rest::TransportNotReachable);
    EXPECT_EQ(call.place.thread, std::this_thread::get_id());
}

// The server's form of a local path: no leading separator, backslashes between components.
inline std::string serverForm(const std::filesystem::path& local)
{
    std::string path = local.string().substr(1);
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

// The base of the client's tests: a REST server that replies with `respond`, the client pointed at it, the main
// queue running, the home directory a temporary folder, and the log captured.
//
// The reachability flags are pinned to "reachable": the servers are on loopback, which is reachable whatever the
// machine's routes, while the client asks about the default route, which a build machine may lack. The tests of
// the unreachable network pin them the other way, or run in a network namespace without routes.
class RestClientTest : public ::testing::Test {
protected:
    explicit RestClientTest(RestServer::Respond respond = RestServer::reply("{}"))
        : server(std::move(respond))
        , serverVariable("KORBANHOLD_SERVER", server.host())
        , homeVariable("HOME", home.string())
    {
    }

    ~RestClientTest() override { MainQueueThread::drain(); }

    platform::PinnedReachabilityFlags reachable { platform::reachability::Reachable };
    testsupport::LogCapture log;
    testsupport::TempDir home;
    RestServer server;
    testsupport::ScopedEnvironment serverVariable;
    testsupport::ScopedEnvironment homeVariable;
    MainQueueThread mainQueue;
};

}
