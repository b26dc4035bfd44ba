#pragma once

// An HTTP server on loopback that answers every request with a reply no service should hold whole: a body that
// announces and sends 1 GiB, or a chunked body that never ends. It sends until the client hangs up, and counts what
// it sent. One thread; one connection at a time.

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace e2etest {

class HostileHttpServer {
public:
    enum class Reply {
        // "Content-Length: 1073741824", then that many bytes.
        Gigabyte,
        // "Transfer-Encoding: chunked", then chunks of 1 MiB for ever.
        EndlessChunks,
    };

    explicit HostileHttpServer(Reply reply);
    ~HostileHttpServer();
    HostileHttpServer(const HostileHttpServer&) = delete;
    HostileHttpServer& operator=(const HostileHttpServer&) = delete;

    // "127.0.0.1:<port>".
    std::string address() const;
    // Requests answered so far (the whole request read, the reply begun).
    std::size_t requests() const { return m_requests; }
    // Requests whose client hung up in the middle of the reply.
    std::size_t abandonedReplies() const { return m_abandoned; }
    std::uint64_t bytesSent() const { return m_bytesSent; }

private:
    void serve();
    void answer(int client);

    const Reply m_reply;
    int m_listener = -1;
    int m_port = 0;
    std::atomic<bool> m_stopping { false };
    std::atomic<std::size_t> m_requests { 0 };
    std::atomic<std::size_t> m_abandoned { 0 };
    std::atomic<std::uint64_t> m_bytesSent { 0 };
    std::thread m_thread;
};

}
