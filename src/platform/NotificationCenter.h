#pragma once

// A process-local notification centre: code posts a named notification with an object, and observers registered
// for that name hear of it, each on the queue it asked for (or at once on the posting thread when it gave none).
// Observers are told in the order they were registered. Posting does not wait for queued observers.

#include "platform/Queue.h"

#include <any>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace platform {

struct Notification {
    std::string name;
    // The object the notification is about (for example the object that posted it); empty when there is none.
    std::any object;
};

class NotificationCenter {
public:
    using Observer = std::function<void(const Notification& notification)>;
    // Identifies one registration, for removeObserver.
    using ObserverToken = std::uint64_t;

    // The process's centre.
    static NotificationCenter& defaultCenter();

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // Registers `observer` for notifications called `name` (every notification when `name` is empty). With a
    // queue, the observer runs as a task of that queue; without one, on the posting thread before post returns.
    ObserverToken addObserver(std::string name, std::shared_ptr<Queue> queue, Observer observer);
    // Once this returns the observer is not started again, not even for notifications already on their way to
    // its queue (one that is running at that moment finishes).
    void removeObserver(ObserverToken token);

    void post(std::string name, std::any object = {});

private:
    struct Registration {
        ObserverToken token;
        std::string name;
        std::shared_ptr<Queue> queue;
        Observer observer;
        std::shared_ptr<std::atomic<bool>> removed;
    };

    mutable std::mutex m_mutex;
    std::vector<Registration> m_registrations;
    ObserverToken m_nextToken = 1;
};

}
