#pragma once

// The server: an HTTP server on 127.0.0.1 that answers the service's methods under /KorbanholdRestService/, the
// admin interface under /devserver/, applies the scripted faults and logs every service request with its reply.

#include "devserver/AdminInterface.h"
#include "devserver/Faults.h"
#include "devserver/Store.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
}

namespace devserver {

inline constexpr std::string_view servicePrefix = "/KorbanholdRestService/";

struct DevServerOptions {
    std::string databasePath { ":memory:" };
    // 0 picks a free port.
    int port = 0;
    std::vector<Fault> faults {};
    // Bodies above this size are refused with HTTP 413 and not read.
    std::size_t maxBodyBytes = 256 * 1024 * 1024;
};

class DevServer {
public:
    explicit DevServer(DevServerOptions options);
    ~DevServer();
    DevServer(const DevServer&) = delete;
    DevServer& operator=(const DevServer&) = delete;

    // Binds 127.0.0.1 and serves on threads of its own; returns the port. Throws when the port cannot be bound.
    int start();
    // Ends the delays and withheld replies in progress, stops serving and waits for the request threads.
    void stop();

    int port() const { return m_port; }
    // "http://127.0.0.1:PORT/KorbanholdRestService/"
    std::string baseUrl() const;

private:
    void serve(const httplib::Request& request, httplib::Response& response);
    void serveMethod(const httplib::Request& request, httplib::Response& response, std::string_view methodPath);
    // Waits `delay`, or less when the server stops meanwhile.
    void pause(std::chrono::milliseconds delay);
    void record(const httplib::Request& request, int httpStatus, std::string_view replyBody, std::string_view fault);

    DevServerOptions m_options;
    Store m_store;
    FaultScript m_faults;
    AdminInterface m_admin;
    std::unique_ptr<httplib::Server> m_http;
    std::thread m_listener;
    int m_port = 0;

    std::mutex m_stopMutex;
    std::condition_variable m_stopped;
    std::atomic<bool> m_stopping { false };
};

}
