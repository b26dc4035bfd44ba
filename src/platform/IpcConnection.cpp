#include "platform/IpcConnection.h"

#include "platform/IpcRuntime.h"
#include "platform/IpcServiceSocket.h"
#include "platform/IpcWire.h"
#include "platform/Log.h"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace platform::ipc {

namespace asio = boost::asio;

namespace {

    // Messages read ahead of delivery; beyond this many the connection stops reading until its handler catches up.
    constexpr std::size_t maxWaitingEvents = 16;

    // The first room made for a frame body; it doubles as the body arrives, up to the size the header announces.
    constexpr std::size_t firstBodyRoom = 64 * 1024;

    std::chrono::milliseconds frameTimeLimit()
    {
        static const std::chrono::milliseconds limit = [] {
            const char* text = std::getenv("KORBANHOLD_IPC_FRAME_TIMEOUT_MS");
            char* end = nullptr;
            const long long milliseconds = text && *text ? std::strtoll(text, &end, 10) : 0;
            return end && *end == '\0' && milliseconds > 0 ? std::chrono::milliseconds(milliseconds) : limits::frameTimeout;
        }();
        return limit;
    }

}

const char* errorEventDescription(ErrorEvent event)
{
    switch (event) {
    case ErrorEvent::ConnectionInterrupted:
        return "Connection interrupted";
    case ErrorEvent::ConnectionInvalid:
        return "Connection invalid";
    case ErrorEvent::TerminationImminent:
        return "Termination imminent";
    }
    return "";
}

Object makeErrorEvent(ErrorEvent event)
{
    return Object::error(event, { { errorDescriptionKey, Object::string(errorEventDescription(event)) } });
}

struct Connection::Private { };

// The socket side of a connection. Every member is used on the I/O thread only.
struct Connection::Io {
    Connection& connection;
    std::optional<asio::posix::stream_descriptor> socket;
    // Counts the sockets this connection has had, so that a wait on a socket that is gone is recognised.
    std::uint64_t generation = 0;

    // The frame being read: its header, then its body; the descriptors that came with its first bytes. The body's
    // buffer grows with the bytes that arrive, never ahead of them by more than the bytes already there.
    std::array<std::uint8_t, frameHeaderSize> header {};
    std::size_t headerRead = 0;
    std::optional<FrameHeader> frame;
    std::unique_ptr<std::uint8_t[]> body;
    std::size_t bodyRoom = 0;
    std::size_t bodyRead = 0;
    std::vector<OwnedFd> descriptors;
    bool readWaiting = false;
    // A frame must be whole within frameTimeLimit() of its first byte.
    asio::steady_timer frameDeadline { ioContext() };
    // Tells the socket's owner that it closed: a server counts its open peers by it.
    std::function<void()> whenClosed;

    std::deque<Frame> outbox;
    std::size_t sentOfFirst = 0;
    bool writeWaiting = false;
    bool closeWhenSent = false;
    // The connection can never have a socket again: its peer is gone, or its service could not be reached.
    bool over = false;

    explicit Io(Connection& owner) : connection(owner) { }
    ~Io()
    {
        if (socket && whenClosed)
            whenClosed();
    }

    void open(OwnedFd fd)
    {
        socket.emplace(ioContext(), fd.release());
        ++generation;
    }

    void close()
    {
        const bool wasOpen = socket.has_value();
        socket.reset();
        readWaiting = writeWaiting = false;
        forgetFrame();
        descriptors.clear();
        outbox.clear();
        sentOfFirst = 0;
        if (wasOpen && whenClosed)
            std::exchange(whenClosed, {})();
    }

    void forgetFrame()
    {
        headerRead = bodyRead = bodyRoom = 0;
        frame.reset();
        body.reset();
        frameDeadline.cancel();
    }

    // Connects a connection made by service name when it has no socket; then reads and writes.
    void start()
    {
        if (!socket && connection.m_name) {
            int error = 0;
            OwnedFd fd;
            try {
                fd = connectUnixSocket(serviceSocketPath(*connection.m_name).string(), error);
            } catch (const ListenError&) {
            }
            if (!fd) {
                outbox.clear();
                over = true;
                connection.end(ErrorEvent::ConnectionInvalid);
                return;
            }
            connection.setCredentials(readPeerCredentials(fd.get()));
            open(std::move(fd));
        }
        read();
        write();
    }

    template<typename Then>
    void wait(asio::posix::descriptor_base::wait_type type, bool& waiting, Then then)
    {
        waiting = true;
        socket->async_wait(type,
            [self = connection.shared_from_this(), generation = generation, &waiting, then](const boost::system::error_code& error) {
                Io& io = *self->m_io;
                if (generation != io.generation)
                    return; // a wait on a socket that has been closed since
                waiting = false;
                if (error)
                    return io.lost();
                (io.*then)();
            });
    }

    void read()
    {
        try {
            readAvailable();
        } catch (const std::bad_alloc&) {
            // Memory ran out for this connection's frame: the connection goes, the process and its other
            // connections stay.
            log("IPC: closing the connection %@: out of memory while reading a frame", connection.peerDescription());
            lost();
        }
    }

    void readAvailable()
    {
        while (socket && !readWaiting && connection.mayRead()) {
            const bool frameStart = !frame && headerRead == 0;
            const std::span<std::uint8_t> target = frame ? bodyTarget() : std::span(header).subspan(headerRead);
            Received received = receiveWithDescriptors(socket->native_handle(), target, limits::maxDescriptors);
            if (received.size == -EAGAIN || received.size == -EWOULDBLOCK)
                return wait(asio::posix::descriptor_base::wait_read, readWaiting, &Io::read);
            if (received.size == -EINTR)
                continue;
            if (received.size < 0)
                return lost();
            if (received.descriptorsTruncated)
                return refuse("a frame came with more than " + std::to_string(limits::maxDescriptors) + " descriptors");
            if (!received.descriptors.empty() && !frameStart)
                return refuse("descriptors came in the middle of a frame");
            if (received.size == 0)
                return frameStart ? lost() : refuse("the peer stopped in the middle of a frame");
            for (auto& descriptor : received.descriptors)
                descriptors.push_back(std::move(descriptor));
            if (frameStart)
                startFrameDeadline();
            (frame ? bodyRead : headerRead) += static_cast<std::size_t>(received.size);
            try {
                takeCompleteFrame();
            } catch (const WireError& error) {
                return refuse(error.what());
            }
        }
    }

    // Where the next bytes of the body go: the room left in its buffer, which doubles (starting at firstBodyRoom)
    // when the bytes that arrived have filled it, so that a header announcing a large body costs nothing until the
    // body comes. Untouched room takes no memory.
    std::span<std::uint8_t> bodyTarget()
    {
        if (bodyRead == bodyRoom) {
            const std::size_t room = std::min<std::size_t>(frame->bodySize, std::max(firstBodyRoom, 2 * bodyRoom));
            auto grown = std::make_unique_for_overwrite<std::uint8_t[]>(room);
            if (bodyRead > 0)
                std::memcpy(grown.get(), body.get(), bodyRead);
            body = std::move(grown);
            bodyRoom = room;
        }
        return { body.get() + bodyRead, std::min<std::size_t>(frame->bodySize, bodyRoom) - bodyRead };
    }

    void takeCompleteFrame()
    {
        if (!frame && headerRead == header.size()) {
            frame = decodeFrameHeader(header);
            checkDescriptorCount(*frame, descriptors.size());
        }
        if (!frame || bodyRead != frame->bodySize)
            return;
        Object message = decodeFrameBody({ body.get(), bodyRead }, std::move(descriptors));
        forgetFrame();
        descriptors.clear();
        connection.enqueueEvent(std::move(message));
    }

    // A peer that starts a frame and does not finish it is closed after frameTimeLimit(), so that slow or stalled
    // peers cannot hold the memory and the descriptor of a connection for ever. Time during which reading waits for
    // this side (its handler or a suspension) does not count against the peer.
    void startFrameDeadline()
    {
        frameDeadline.expires_after(frameTimeLimit());
        frameDeadline.async_wait([self = connection.shared_from_this(), generation = generation](const boost::system::error_code& error) {
            Io& io = *self->m_io;
            if (error || generation != io.generation || !io.socket || (!io.frame && io.headerRead == 0))
                return;
            if (!io.readWaiting)
                return io.startFrameDeadline();
            io.refuse("the frame did not finish within " + std::to_string(frameTimeLimit().count()) + " ms");
        });
    }

    void write()
    {
        while (socket && !writeWaiting && !outbox.empty()) {
            const Frame& first = outbox.front();
            const auto descriptors = sentOfFirst == 0 ? std::span<const int>(first.descriptors) : std::span<const int>();
            const long sent = sendWithDescriptors(socket->native_handle(), std::span(first.bytes).subspan(sentOfFirst), descriptors);
            if (sent == -EAGAIN || sent == -EWOULDBLOCK)
                return wait(asio::posix::descriptor_base::wait_write, writeWaiting, &Io::write);
            if (sent == -EINTR)
                continue;
            if (sent < 0)
                return lost();
            sentOfFirst += static_cast<std::size_t>(sent);
            if (sentOfFirst == first.bytes.size()) {
                outbox.pop_front();
                sentOfFirst = 0;
            }
        }
        if (socket && closeWhenSent && outbox.empty())
            close();
    }

    // A frame broke the wire format: the connection ends, with one log line.
    void refuse(const std::string& reason)
    {
        log("IPC: closing the connection %@ after a bad frame: %@", connection.peerDescription(), reason);
        lost();
    }

    // The other end is gone (or must be treated as gone).
    void lost()
    {
        close();
        over = !connection.m_name;
        connection.end(connection.m_name ? ErrorEvent::ConnectionInterrupted : ErrorEvent::ConnectionInvalid);
    }
};

std::shared_ptr<Connection> Connection::createToService(std::string serviceName)
{
    return std::make_shared<Connection>(Private {}, std::move(serviceName), OwnedFd());
}

std::shared_ptr<Connection> Connection::createForPeer(OwnedFd socket, std::function<void()> whenClosed)
{
    auto connection = std::make_shared<Connection>(Private {}, std::nullopt, std::move(socket));
    connection->m_io->whenClosed = std::move(whenClosed);
    return connection;
}

Connection::Connection(Private, std::optional<std::string> serviceName, OwnedFd socket)
    : m_name(std::move(serviceName))
    , m_io(std::make_unique<Io>(*this))
    , m_targetQueue(Queue::makeSerial(m_name ? "ipc.connection." + *m_name : "ipc.peer"))
{
    if (socket) {
        m_credentials = readPeerCredentials(socket.get());
        m_io->open(std::move(socket));
    }
}

Connection::~Connection() = default;

PeerCredentials Connection::credentials() const
{
    std::lock_guard lock(m_mutex);
    return m_credentials;
}

void Connection::setCredentials(const PeerCredentials& credentials)
{
    std::lock_guard lock(m_mutex);
    m_credentials = credentials;
}

void Connection::setEventHandler(EventHandler handler)
{
    auto shared = std::make_shared<const EventHandler>(std::move(handler));
    {
        std::lock_guard lock(m_mutex);
        std::swap(m_handler, shared);
    }
    // The handler replaced goes here, outside the lock: what it holds may use this connection as it goes.
}

void Connection::setTargetQueue(std::shared_ptr<Queue> queue)
{
    if (!queue)
        return;
    {
        std::lock_guard lock(m_mutex);
        m_targetQueue = std::move(queue);
    }
    // Events waiting for a task of the old queue are delivered on the new one.
    scheduleDelivery();
}

std::shared_ptr<Queue> Connection::targetQueue() const
{
    std::lock_guard lock(m_mutex);
    return m_targetQueue;
}

void Connection::onIoThread(void (Io::*operation)())
{
    asio::post(ioContext(), [self = shared_from_this(), operation] { (self->m_io.get()->*operation)(); });
}

void Connection::resume()
{
    bool starting = false;
    {
        std::lock_guard lock(m_mutex);
        if (m_suspendCount == 0) {
            log("IPC: resume of the connection %@ that is not suspended, ignored", peerDescriptionLocked());
            return;
        }
        if (--m_suspendCount > 0)
            return;
        starting = !std::exchange(m_started, true);
        m_readingPaused = false;
    }
    onIoThread(starting ? &Io::start : &Io::read);
    scheduleDelivery();
}

void Connection::suspend()
{
    std::lock_guard lock(m_mutex);
    ++m_suspendCount;
}

void Connection::cancel()
{
    {
        std::lock_guard lock(m_mutex);
        if (m_cancelled)
            return;
        m_cancelled = true;
        m_events.clear();
        m_events.push_back(makeErrorEvent(ErrorEvent::ConnectionInvalid));
    }
    asio::post(ioContext(), [self = shared_from_this()] {
        Io& io = *self->m_io;
        io.closeWhenSent = true;
        io.write();
    });
    scheduleDelivery();
}

void Connection::sendMessage(const Object& message)
{
    std::optional<Frame> frame;
    try {
        frame = encodeFrame(message);
    } catch (const WireError& error) {
        log("IPC: a message for the connection %@ was not sent: %@", peerDescription(), error.what());
        return;
    }
    asio::post(ioContext(), [self = shared_from_this(), frame = std::move(*frame)]() mutable {
        Io& io = *self->m_io;
        if (io.over || io.closeWhenSent)
            return;
        bool started;
        {
            std::lock_guard lock(self->m_mutex);
            started = self->m_started;
        }
        io.outbox.push_back(std::move(frame));
        // Connects again when the service had gone away; frames sent before the first resume wait for it.
        if (started)
            io.start();
    });
}

void Connection::deliverTerminationImminent() { enqueueEvent(makeErrorEvent(ErrorEvent::TerminationImminent)); }

std::string Connection::peerDescription() const
{
    std::lock_guard lock(m_mutex);
    return peerDescriptionLocked();
}

std::string Connection::peerDescriptionLocked() const
{
    if (m_name)
        return "to " + *m_name;
    return "from process " + std::to_string(m_credentials.pid) + " (uid " + std::to_string(m_credentials.euid) + ")";
}

void Connection::enqueueEvent(Object event)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_cancelled)
            return;
        m_events.push_back(std::move(event));
    }
    scheduleDelivery();
}

void Connection::end(ErrorEvent event)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_cancelled)
            return;
        // A connection made by service name may connect again; any other connection is over.
        m_cancelled = event == ErrorEvent::ConnectionInvalid;
        m_events.push_back(makeErrorEvent(event));
    }
    scheduleDelivery();
}

bool Connection::mayRead()
{
    std::lock_guard lock(m_mutex);
    const bool may = !m_cancelled && m_suspendCount == 0 && m_events.size() < maxWaitingEvents;
    m_readingPaused = !may;
    return may;
}

void Connection::scheduleDelivery()
{
    targetQueue()->async([self = shared_from_this()] { self->deliverEvents(); });
}

void Connection::deliverEvents()
{
    std::unique_lock lock(m_mutex);
    // Events are delivered on the current target queue only, and one at a time, even while the target queue is
    // being changed: a task of the old queue stops after the event it is delivering.
    if (m_delivering || !m_targetQueue->isCurrent())
        return;
    m_delivering = true;
    while (m_suspendCount == 0 && !m_events.empty() && m_targetQueue->isCurrent()) {
        Object event = std::move(m_events.front());
        m_events.pop_front();
        auto handler = m_handler;
        if (event.errorEventIf() == ErrorEvent::ConnectionInvalid)
            m_handler.reset(); // Released after the last event, and with it whatever the handler holds.
        lock.unlock();
        if (handler && *handler) {
            try {
                (*handler)(event);
            } catch (const std::exception& exception) {
                log("IPC: the event handler of the connection %@ raised: %@", peerDescription(), exception.what());
            }
        }
        handler.reset();
        lock.lock();
    }
    m_delivering = false;
    const bool queueChanged = !m_targetQueue->isCurrent();
    const bool wakeReader = m_readingPaused && !m_cancelled && m_suspendCount == 0 && m_events.size() < maxWaitingEvents;
    if (wakeReader)
        m_readingPaused = false;
    lock.unlock();
    if (queueChanged)
        scheduleDelivery();
    if (wakeReader)
        onIoThread(&Io::read);
}

}
