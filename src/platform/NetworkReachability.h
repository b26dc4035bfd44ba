#pragma once

// Network reachability read from the kernel's routing table (rtnetlink), in the flag words of the reachability
// service the product was written against.
//
// A target (an address or a host name) is reachable when the kernel has a route for it; the route is direct when
// it is on-link (no gateway) and the address is local when it is one of this machine's. The zero address asks
// whether there is a default route. Linux has no dial-on-demand connections, so the connection-required, on-demand,
// on-traffic and intervention flags are never set from the table; tests set them by pinning the flags.
//
// A watched target reports its flags to a callback, on a thread of its own, whenever a route, link or address
// change alters them.

#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

struct mnl_socket;

namespace platform {

using ReachabilityFlags = std::uint32_t;

namespace reachability {
inline constexpr ReachabilityFlags Reachable = 1u << 1;
inline constexpr ReachabilityFlags ConnectionRequired = 1u << 2;
inline constexpr ReachabilityFlags ConnectionOnTraffic = 1u << 3;
inline constexpr ReachabilityFlags InterventionRequired = 1u << 4;
inline constexpr ReachabilityFlags ConnectionOnDemand = 1u << 5;
inline constexpr ReachabilityFlags IsLocalAddress = 1u << 16;
inline constexpr ReachabilityFlags IsDirect = 1u << 17;
}

// What the routing table holds for a destination: the kernel's route type (RTN_*) and whether it goes through a
// gateway.
struct Route {
    unsigned char type = 0;
    bool hasGateway = false;
};

// The flags for a destination given the route the kernel chose for it (none: no route).
ReachabilityFlags flagsForRoute(const std::optional<Route>& route);

class NetworkReachability {
public:
    using Callback = std::function<void(ReachabilityFlags flags)>;

    // Nothing when the address is neither IPv4 nor IPv6.
    static std::unique_ptr<NetworkReachability> createWithAddress(const sockaddr* address);
    // Nothing for an empty name. The name is resolved each time the flags are read.
    static std::unique_ptr<NetworkReachability> createWithName(std::string name);

    ~NetworkReachability();
    NetworkReachability(const NetworkReachability&) = delete;
    NetworkReachability& operator=(const NetworkReachability&) = delete;

    // The target's flags, or nothing when the routing table cannot be read. A name that does not resolve has no
    // flags set.
    std::optional<ReachabilityFlags> flags() const;

    // The callback that a watched target calls; an empty one stops the calls.
    bool setCallback(Callback callback);
    // Starts watching: every change of the flags after this returns is reported. False when the route change
    // messages cannot be subscribed to. Watching again is harmless.
    bool schedule();
    // Stops watching and waits for the watching thread; not to be called from the callback.
    void unschedule();

    // How many targets exist in the process (tests use it to see which are released).
    static std::size_t liveCount();

private:
    NetworkReachability(std::optional<sockaddr_storage> address, std::string name);
    // The watching thread: reports each change of the flags from `last` on.
    void watch(mnl_socket* subscription, int stopSignal, std::optional<ReachabilityFlags> last);

    const std::optional<sockaddr_storage> m_address;
    const std::string m_name;

    std::mutex m_callbackMutex;
    Callback m_callback;
    std::thread m_watcher;
    int m_stopSignal = -1;
};

// While an object of this class lives, every target reads the pinned flags instead of the routing table
// (nothing: the table cannot be read). For tests; pins nest, the innermost wins.
class PinnedReachabilityFlags {
public:
    explicit PinnedReachabilityFlags(std::optional<ReachabilityFlags> flags);
    ~PinnedReachabilityFlags();
    PinnedReachabilityFlags(const PinnedReachabilityFlags&) = delete;
    PinnedReachabilityFlags& operator=(const PinnedReachabilityFlags&) = delete;

private:
    bool m_hadPrevious;
    std::optional<ReachabilityFlags> m_previous;
};

}
