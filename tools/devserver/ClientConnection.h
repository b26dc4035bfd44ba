#pragma once

// The connection a request came in on, for the faults that must act on the socket itself: closing it without a
// reply, and keeping it open without a reply until the client gives up. cpp-httplib does not hand its socket to a
// request handler, so the socket is found among the process's descriptors by the request's two addresses.

#include <atomic>
#include <optional>

namespace httplib {
struct Request;
}

namespace devserver {

class ClientConnection {
public:
    // The connection of `request`, which must be the request of the calling handler (its socket stays open while
    // the handler runs). Nothing when it cannot be found.
    static std::optional<ClientConnection> of(const httplib::Request& request);

    // Waits until the client closes its end of the connection, or until `stopping` is set.
    void waitUntilClosedByClient(const std::atomic<bool>& stopping) const;
    // Ends the connection in both directions without sending anything: the client sees it closed with no reply.
    // cpp-httplib still owns the descriptor and closes it when the handler has returned.
    void shutDown() const;

private:
    explicit ClientConnection(int socket) : m_socket(socket) { }
    int m_socket;
};

}
