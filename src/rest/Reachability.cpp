#include "rest/Reachability.h"

#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/Queue.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <mutex>
#include <utility>
#include <vector>

namespace rest {

namespace {

using namespace platform::reachability;

// The file and lines the assertions of this class report, as the service has always reported them.
constexpr const char* assertionFile = "Services/Reachability/Reachability";
constexpr int connectionRequiredAssertionLine = 245;
constexpr int currentReachabilityStatusAssertionLine = 256;

// An assertion failure as the assertion handler reports it: a log line naming the operation, file and line, then
// the internal-inconsistency exception with the assertion's text.
[[noreturn]] void failAssertion(const char* method, int line, const char* description)
{
    platform::log("*** Assertion failure in %@, %@:%d", method, assertionFile, line);
    throw platform::Exception("NSInternalInconsistencyException", description);
}

sockaddr_in ipv4Address(in_addr_t address)
{
    sockaddr_in socketAddress {};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_addr.s_addr = htonl(address);
    return socketAddress;
}

constexpr in_addr_t linkLocalNetwork = 0xA9FE0000; // 169.254.0.0

}

// A started notifier. The posts on their way to its queue are made only while it is started, under its lock, and
// stopping takes that lock, so no post runs once stopNotifier has returned and the object the posts name is alive
// while one runs. The lock is recursive because an observer that runs inside the post may stop the notifier.
struct Reachability::Notifier {
    std::recursive_mutex mutex;
    bool started = true;
    Reachability* object;
    std::shared_ptr<platform::Queue> queue;
};

Reachability::~Reachability()
{
    stopNotifier();
}

std::unique_ptr<Reachability> Reachability::holding(std::unique_ptr<platform::NetworkReachability> handle)
{
    if (!handle)
        return nullptr;
    auto reachability = std::make_unique<Reachability>();
    reachability->reachabilityRef = std::move(handle);
    return reachability;
}

std::unique_ptr<Reachability> Reachability::reachabilityWithHostName(const std::string& hostName)
{
    return holding(platform::NetworkReachability::createWithName(hostName));
}

std::unique_ptr<Reachability> Reachability::reachabilityWithAddress(const sockaddr* hostAddress)
{
    return holding(platform::NetworkReachability::createWithAddress(hostAddress));
}

std::unique_ptr<Reachability> Reachability::reachabilityForInternetConnection()
{
    const sockaddr_in zeroAddress = ipv4Address(INADDR_ANY);
    return reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&zeroAddress));
}

std::unique_ptr<Reachability> Reachability::reachabilityForLocalWiFi()
{
    const sockaddr_in linkLocal = ipv4Address(linkLocalNetwork);
    auto reachability = reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&linkLocal));
    if (reachability)
        reachability->localWiFiRef = true;
    return reachability;
}

bool Reachability::startNotifier()
{
    if (!reachabilityRef)
        return false;
    auto queue = platform::Queue::current();
    auto notifier = std::make_shared<Notifier>();
    notifier->object = this;
    // A thread that runs no queue has nothing to post on; its notifier gets a serial queue of its own.
    notifier->queue = queue ? std::move(queue) : platform::Queue::makeSerial("reachability.notifier");
    std::shared_ptr<Notifier> previous;
    {
        std::lock_guard lock(m_notifierMutex);
        previous = std::exchange(m_notifier, notifier);
    }
    if (previous)
        stopPosting(*previous);
    // The watching thread only hands the change on to the notifier's queue.
    const bool registered = reachabilityRef->setCallback([notifier](ReachabilityFlags flags) {
        notifier->queue->async([notifier, flags] {
            std::lock_guard lock(notifier->mutex);
            if (notifier->started)
                ReachabilityCallback(*notifier->object->reachabilityRef, flags, notifier->object);
        });
    });
    return registered && reachabilityRef->schedule();
}

void Reachability::stopNotifier()
{
    std::shared_ptr<Notifier> notifier;
    {
        std::lock_guard lock(m_notifierMutex);
        notifier = std::move(m_notifier);
    }
    if (notifier)
        stopPosting(*notifier);
    // The watching thread never runs an observer, so waiting for it here cannot wait for the calling thread.
    if (reachabilityRef)
        reachabilityRef->unschedule();
}

void Reachability::stopPosting(Notifier& notifier)
{
    std::lock_guard lock(notifier.mutex);
    notifier.started = false;
}

bool Reachability::connectionRequired() const
{
    if (!reachabilityRef)
        failAssertion("-[Reachability connectionRequired]", connectionRequiredAssertionLine,
            "connectionRequired called with NULL reachabilityRef");
    const auto flags = reachabilityRef->flags();
    return flags && (*flags & ConnectionRequired);
}

NetworkStatus Reachability::currentReachabilityStatus() const
{
    if (!reachabilityRef)
        failAssertion("-[Reachability currentReachabilityStatus]", currentReachabilityStatusAssertionLine,
            "currentNetworkStatus called with NULL reachabilityRef");
    const auto flags = reachabilityRef->flags();
    if (!flags)
        return NotReachable;
    return localWiFiRef ? localWiFiStatusForFlags(*flags) : networkStatusForFlags(*flags);
}

NetworkStatus Reachability::networkStatusForFlags(ReachabilityFlags flags)
{
    PrintReachabilityFlags(flags, "networkStatusForFlags");
    if (!(flags & Reachable))
        return NotReachable;
    NetworkStatus status = NotReachable;
    if (!(flags & ConnectionRequired))
        status = ReachableViaNetwork;
    if ((flags & (ConnectionOnDemand | ConnectionOnTraffic)) && !(flags & InterventionRequired))
        status = ReachableViaNetwork;
    return status;
}

NetworkStatus Reachability::localWiFiStatusForFlags(ReachabilityFlags flags)
{
    PrintReachabilityFlags(flags, "localWiFiStatusForFlags");
    return (flags & Reachable) && (flags & IsDirect) ? ReachableViaNetwork : NotReachable;
}

bool Reachability::isReachable()
{
    const auto reachability = reachabilityForInternetConnection();
    return reachability && reachability->currentReachabilityStatus() != NotReachable;
}

void Reachability::PrintReachabilityFlags(ReachabilityFlags, const char*)
{
}

void Reachability::ReachabilityCallback(platform::NetworkReachability&, ReachabilityFlags, void* info)
{
    platform::NotificationCenter::defaultCenter().post(kNetworkReachabilityChangedNotification,
        static_cast<Reachability*>(info));
}

bool NetWorkConnectionStatus::ConectionStatus()
{
    const sockaddr_in zeroAddress = ipv4Address(INADDR_ANY);
    auto handle = platform::NetworkReachability::createWithAddress(reinterpret_cast<const sockaddr*>(&zeroAddress));
    if (!handle)
        return false;
    const auto flags = handle->flags();
    // The check never releases its handle. The handles are kept in a list that lives as long as the process, so
    // that leak checkers do not report a leak that is meant to be there.
    static std::mutex unreleasedMutex;
    static auto* unreleased = new std::vector<std::unique_ptr<platform::NetworkReachability>>();
    {
        std::lock_guard lock(unreleasedMutex);
        unreleased->push_back(std::move(handle));
    }
    return flags && connectionStatusForFlags(*flags);
}

bool NetWorkConnectionStatus::connectionStatusForFlags(ReachabilityFlags flags)
{
    if (!(flags & Reachable))
        return false;
    if (!(flags & ConnectionRequired))
        return true;
    if ((flags & (ConnectionOnDemand | ConnectionOnTraffic)) && !(flags & InterventionRequired))
        return true;
    return flags & IsDirect;
}

}
