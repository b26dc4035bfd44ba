#pragma once

// Reachability: whether the network can be reached, read from the reachability flags of an address or a host
// name (platform::NetworkReachability), and a notifier that posts "kNetworkReachabilityChangedNotification" on the
// default notification centre when they change. The transports ask isReachable() before every request.
//
// NetWorkConnectionStatus: a second, one-call check of the zero address.

#include "platform/NetworkReachability.h"

#include <memory>
#include <mutex>
#include <string>

struct sockaddr;

namespace rest {

using platform::ReachabilityFlags;

enum NetworkStatus : int {
    NotReachable = 0,
    ReachableViaNetwork = 1,
};

inline constexpr const char* kNetworkReachabilityChangedNotification = "kNetworkReachabilityChangedNotification";

class Reachability {
public:
    // An object without a handle; its status operations fail their assertion.
    Reachability() = default;
    // Stops the notifier and releases the handle.
    ~Reachability();
    Reachability(const Reachability&) = delete;
    Reachability& operator=(const Reachability&) = delete;

    // Nothing when the handle cannot be made (an empty name, an address that is neither IPv4 nor IPv6).
    static std::unique_ptr<Reachability> reachabilityWithHostName(const std::string& hostName);
    static std::unique_ptr<Reachability> reachabilityWithAddress(const sockaddr* hostAddress);
    // The zero IPv4 address: is there a route out at all.
    static std::unique_ptr<Reachability> reachabilityForInternetConnection();
    // The link-local network 169.254.0.0, read with localWiFiStatusForFlags.
    static std::unique_ptr<Reachability> reachabilityForLocalWiFi();

    // Posts the notification, with this object as its object, whenever the flags change. The posts are made on the
    // queue of the thread that started the notifier (a serial queue of its own when that thread runs no queue),
    // never on the handle's watching thread. Once stopNotifier (or destruction, which stops it) has returned nothing
    // more is posted; an observer may stop the notifier or destroy the object from inside the notification.
    bool startNotifier();
    void stopNotifier();

    bool connectionRequired() const;
    NetworkStatus currentReachabilityStatus() const;

    static NetworkStatus networkStatusForFlags(ReachabilityFlags flags);
    static NetworkStatus localWiFiStatusForFlags(ReachabilityFlags flags);

    // A new object for the zero address on every call; true when its status is not NotReachable.
    static bool isReachable();

    bool localWiFiRef = false;
    std::unique_ptr<platform::NetworkReachability> reachabilityRef;

private:
    struct Notifier;
    // Once this returns, `notifier` posts nothing more.
    static void stopPosting(Notifier& notifier);

    // What the started notifier shares with the posts on their way to its queue. The lock guards the pointer only;
    // it is never held while waiting for a notifier's own lock.
    std::mutex m_notifierMutex;
    std::shared_ptr<Notifier> m_notifier;

    // A new object that owns `handle`, or nothing when there is no handle.
    static std::unique_ptr<Reachability> holding(std::unique_ptr<platform::NetworkReachability> handle);
    // A debugging hook of the two readings; it prints nothing.
    static void PrintReachabilityFlags(ReachabilityFlags flags, const char* comment);
    static void ReachabilityCallback(platform::NetworkReachability& target, ReachabilityFlags flags, void* info);
};

class NetWorkConnectionStatus {
public:
    // The one-call check of the zero address. The handle it makes is never released.
    static bool ConectionStatus();
    // Its reading of the flags.
    static bool connectionStatusForFlags(ReachabilityFlags flags);
};

}
