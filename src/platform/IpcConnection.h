#pragma once

// platform::ipc::Connection: one IPC connection over a Unix stream socket.
//
// A connection is created suspended. Once resumed it delivers events to its event handler on its target queue, one
// at a time and in order: every message that arrives (a dictionary), and the error events
//   - ConnectionInterrupted: the service went away; a connection made by service name connects anew on its next
//     send;
//   - ConnectionInvalid: the connection is over (cancelled, the service cannot be reached, or the peer of a served
//     connection went away). It is always the last event, and the event handler is released after it;
//   - TerminationImminent: the serving process is about to exit.
// Each error event carries its description under errorDescriptionKey.
//
// suspend() and resume() nest: events flow while every suspend() has been matched by a resume(). While a connection
// is suspended, its messages wait (and, beyond a few, stay unread in the socket, so that a fast sender is held back
// rather than buffered without bound).
//
// Messages are sent asynchronously and in order; a message already handed to sendMessage() is still sent when the
// connection is cancelled afterwards. A frame that breaks the wire format, does not finish within
// limits::frameTimeout, or cannot be held in memory closes the connection with one log line.

#include "platform/IpcObject.h"
#include "platform/IpcSocket.h"
#include "platform/Queue.h"

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace platform::ipc {

using EventHandler = std::function<void(const Object& event)>;

// The description that error event `event` carries: "Connection interrupted", "Connection invalid",
// "Termination imminent".
const char* errorEventDescription(ErrorEvent event);
// The error event as a connection delivers it, with its description.
Object makeErrorEvent(ErrorEvent event);

class Connection : public std::enable_shared_from_this<Connection> {
    struct Private;

public:
    // A connection to the service named `serviceName`, at its socket path (see serviceSocketPath). It connects when
    // first resumed; if the service cannot be reached it delivers ConnectionInvalid.
    static std::shared_ptr<Connection> createToService(std::string serviceName);
    // A connection over a socket that is already connected, as a server makes for each peer it accepts. Its
    // credentials are read from the socket at once. `whenClosed`, if given, is called once when the socket closes
    // (or the connection goes with it still open).
    static std::shared_ptr<Connection> createForPeer(OwnedFd socket, std::function<void()> whenClosed = {});

    Connection(Private, std::optional<std::string> serviceName, OwnedFd socket);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // The service name of a connection made by name; absent for the connection of a peer.
    const std::optional<std::string>& name() const { return m_name; }
    // The credentials of the process at the other end; zero while not connected.
    PeerCredentials credentials() const;

    void setEventHandler(EventHandler handler);
    // The queue on which events are delivered. Until one is set, a serial queue of the connection's own.
    void setTargetQueue(std::shared_ptr<Queue> queue);
    std::shared_ptr<Queue> targetQueue() const;

    void resume();
    void suspend();
    // Ends the connection: no more messages are delivered, ConnectionInvalid is, and the socket closes once the
    // messages already sent have gone.
    void cancel();
    // Sends a message dictionary. A message that cannot be encoded is dropped with a log line.
    void sendMessage(const Object& message);

    // Delivers TerminationImminent; the serving side calls it for each of its peers before the process exits.
    void deliverTerminationImminent();

private:
    struct Io;

    void onIoThread(void (Io::*operation)());
    void setCredentials(const PeerCredentials& credentials);
    // Who the other end is, for log lines.
    std::string peerDescription() const;
    std::string peerDescriptionLocked() const;
    void enqueueEvent(Object event);
    // The other end is gone: delivers `event` after the messages already read; ConnectionInvalid ends the connection.
    void end(ErrorEvent event);
    // Whether the socket may be read now; when not, notes that reading waits for resume() or for delivery.
    bool mayRead();
    void scheduleDelivery();
    void deliverEvents();

    const std::optional<std::string> m_name;
    const std::unique_ptr<Io> m_io; // touched on the I/O thread only

    mutable std::mutex m_mutex;
    std::shared_ptr<const EventHandler> m_handler;
    std::shared_ptr<Queue> m_targetQueue;
    PeerCredentials m_credentials;
    int m_suspendCount = 1;
    bool m_started = false;
    bool m_cancelled = false;
    bool m_delivering = false;
    bool m_readingPaused = false;
    std::deque<Object> m_events;

    friend struct Io;
};

}
