#pragma once

// Reachability: whether the network can be reached, read from the reachability flags of an address or a host
// name (platform::NetworkReachability), and a notifier that posts "kNetworkReachabilityChangedNotification" on the
// default notification centre when they change. The transports ask isReachable() before every request.
//
// NetWorkConnectionStatus: a second, one-call check of the zero address.

#include "platform/NetworkReachability.h"

#include <memory>
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

    // Posts the notification, with this object as its object, whenever the flags change; the posts come from the
    // handle's watching thread. The object must outlive its notifier (destruction stops it).
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
