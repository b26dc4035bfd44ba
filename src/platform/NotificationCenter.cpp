#include "platform/NotificationCenter.h"

#include <algorithm>

namespace platform {

NotificationCenter& NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

NotificationCenter::ObserverToken NotificationCenter::addObserver(std::string name, std::shared_ptr<Queue> queue,
    Observer observer)
{
    std::lock_guard lock(m_mutex);
    const ObserverToken token = m_nextToken++;
    m_registrations.push_back(Registration { token, std::move(name), std::move(queue), std::move(observer),
        std::make_shared<std::atomic<bool>>(false) });
    return token;
}

void NotificationCenter::removeObserver(ObserverToken token)
{
    std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_registrations.begin(), m_registrations.end(),
        [token](const Registration& registration) { return registration.token == token; });
    if (found == m_registrations.end())
        return;
    *found->removed = true;
    m_registrations.erase(found);
}

void NotificationCenter::post(std::string name, std::any object)
{
    std::vector<Registration> matching;
    {
        std::lock_guard lock(m_mutex);
        for (const Registration& registration : m_registrations) {
            if (registration.name.empty() || registration.name == name)
                matching.push_back(registration);
        }
    }
    const auto notification = std::make_shared<const Notification>(Notification { std::move(name), std::move(object) });
    for (Registration& registration : matching) {
        auto deliver = [notification, observer = std::move(registration.observer), removed = registration.removed] {
            if (!*removed)
                observer(*notification);
        };
        if (registration.queue)
            registration.queue->async(std::move(deliver));
        else
            deliver();
    }
}

}
