#pragma once

// Helpers for the tests of the IPC runtime and of what is built on it.

#include "platform/IpcConnection.h"
#include "platform/IpcObject.h"
#include "platform/IpcServer.h"
#include "platform/IpcServiceSocket.h"
#include "support/Eventually.h"
#include "support/Process.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDir.h"

#include <dirent.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ipctest {

// Records the events a connection delivers. Hand out handler(): it keeps the recorder alive for as long as the
// connection keeps the handler.
class EventRecorder : public std::enable_shared_from_this<EventRecorder> {
public:
    static std::shared_ptr<EventRecorder> make() { return std::make_shared<EventRecorder>(); }

    platform::ipc::EventHandler handler()
    {
        return [self = shared_from_this()](const platform::ipc::Object& event) {
            std::lock_guard lock(self->m_mutex);
            self->m_events.push_back(event);
        };
    }

    std::vector<platform::ipc::Object> events() const
    {
        std::lock_guard lock(m_mutex);
        return m_events;
    }

    std::size_t count() const
    {
        std::lock_guard lock(m_mutex);
        return m_events.size();
    }

    // Waits until `count` events have come.
    bool waitFor(std::size_t count) const
    {
        return testsupport::eventually([&] { return this->count() >= count; });
    }

private:
    mutable std::mutex m_mutex;
    std::vector<platform::ipc::Object> m_events;
};

// Two peer connections over the two ends of one socket pair, not yet resumed; both are cancelled when the pair goes.
struct ConnectedPair {
    std::shared_ptr<platform::ipc::Connection> sender;
    std::shared_ptr<platform::ipc::Connection> receiver;

    ConnectedPair()
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
            throw std::runtime_error("socketpair failed");
        sender = platform::ipc::Connection::createForPeer(platform::OwnedFd(ends[0]));
        receiver = platform::ipc::Connection::createForPeer(platform::OwnedFd(ends[1]));
    }
    ~ConnectedPair()
    {
        sender->cancel();
        receiver->cancel();
    }
    ConnectedPair(const ConnectedPair&) = delete;
    ConnectedPair& operator=(const ConnectedPair&) = delete;
};

// A private runtime folder (a fresh temporary folder, 0700) named by KORBANHOLD_RUNTIME_DIR while the object lives.
class ScopedRuntimeFolder {
public:
    const std::filesystem::path& path() const { return m_folder.path(); }

private:
    testsupport::TempDir m_folder;
    testsupport::ScopedEnvironment m_variable { "KORBANHOLD_RUNTIME_DIR", m_folder.string() };
};

// The helper program that plays the other process in these tests.
inline std::filesystem::path peerProgram() { return testsupport::builtProgram("tests/helpers/ipc_peer"); }

// A server of the service `name` in a private runtime folder; it resumes every peer it accepts with an event recorder
// of its own.
class RecordingServer {
public:
    explicit RecordingServer(std::string name) : m_name(std::move(name))
    {
        m_server = platform::ipc::Server::start(platform::ipc::listenForService(m_name),
            [this](const std::shared_ptr<platform::ipc::Connection>& peer) {
                auto recorder = EventRecorder::make();
                peer->setEventHandler(recorder->handler());
                peer->resume();
                std::lock_guard lock(m_mutex);
                m_peers.push_back(peer);
                m_recorders.push_back(recorder);
            });
    }

    ~RecordingServer()
    {
        m_server->stop();
        std::lock_guard lock(m_mutex);
        for (auto& peer : m_peers)
            peer->cancel();
    }

    RecordingServer(const RecordingServer&) = delete;
    RecordingServer& operator=(const RecordingServer&) = delete;

    const std::string& name() const { return m_name; }
    void announceTerminationImminent() { m_server->announceTerminationImminent(); }

    std::size_t peerCount()
    {
        std::lock_guard lock(m_mutex);
        return m_peers.size();
    }

    std::shared_ptr<platform::ipc::Connection> peer(std::size_t index)
    {
        std::lock_guard lock(m_mutex);
        return m_peers.at(index);
    }

    // The recorder of the peer accepted `index`th, or null while there is none.
    std::shared_ptr<EventRecorder> recorder(std::size_t index)
    {
        std::lock_guard lock(m_mutex);
        return index < m_recorders.size() ? m_recorders[index] : nullptr;
    }

    // How many events the peer accepted `index`th has delivered so far.
    std::size_t eventCount(std::size_t index)
    {
        auto found = recorder(index);
        return found ? found->count() : 0;
    }

private:
    ScopedRuntimeFolder m_folder;
    const std::string m_name;
    std::shared_ptr<platform::ipc::Server> m_server;
    std::mutex m_mutex;
    std::vector<std::shared_ptr<platform::ipc::Connection>> m_peers;
    std::vector<std::shared_ptr<EventRecorder>> m_recorders;
};

// How many descriptors this process has open.
inline std::size_t openDescriptorCount()
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        (void)entry;
        ++count;
    }
    return count;
}

// Waits until this process has `count` descriptors open again (closing happens on the runtime's threads).
inline bool descriptorsReturnTo(std::size_t count)
{
    return testsupport::eventually([&] { return openDescriptorCount() == count; });
}

inline const std::string* descriptionOf(const platform::ipc::Object& event)
{
    return event.stringForKey(platform::ipc::errorDescriptionKey);
}

}
