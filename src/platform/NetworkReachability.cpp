#include "platform/NetworkReachability.h"

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace platform {

namespace {

std::atomic<std::size_t> liveTargets { 0 };

struct PinState {
    std::mutex mutex;
    bool pinned = false;
    std::optional<ReachabilityFlags> flags;
};

PinState& pinState()
{
    static PinState state;
    return state;
}

// A route netlink socket, closed when it goes.
class NetlinkSocket {
public:
    NetlinkSocket(int flags, unsigned groups)
        : m_socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | flags))
    {
        if (m_socket && mnl_socket_bind(m_socket, groups, MNL_SOCKET_AUTOPID) < 0) {
            mnl_socket_close(m_socket);
            m_socket = nullptr;
        }
    }
    ~NetlinkSocket()
    {
        if (m_socket)
            mnl_socket_close(m_socket);
    }
    NetlinkSocket(const NetlinkSocket&) = delete;
    NetlinkSocket& operator=(const NetlinkSocket&) = delete;

    explicit operator bool() const { return m_socket != nullptr; }
    mnl_socket* get() const { return m_socket; }
    // Hands the socket over to the caller, who closes it with mnl_socket_close.
    mnl_socket* release() { return std::exchange(m_socket, nullptr); }

private:
    mnl_socket* m_socket;
};

Route routeOf(const nlmsghdr* message)
{
    const auto* header = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
    Route route { header->rtm_type, false };
    const auto onAttribute = [](const nlattr* attribute, void* context) -> int {
        const auto type = mnl_attr_get_type(attribute);
        if (type == RTA_GATEWAY || type == RTA_VIA || type == RTA_MULTIPATH)
            static_cast<Route*>(context)->hasGateway = true;
        return MNL_CB_OK;
    };
    mnl_attr_parse(message, sizeof(rtmsg), onAttribute, &route);
    return route;
}

// Sends `request` and runs `callback` over every reply message until the kernel is done. False when the table
// cannot be read at all; an error the kernel answers (no route, for one) is an empty answer, not a failure.
bool exchange(nlmsghdr* request, mnl_cb_t callback, void* context)
{
    NetlinkSocket socket(0, 0);
    if (!socket)
        return false;
    const unsigned sequence = 1;
    request->nlmsg_seq = sequence;
    if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0)
        return false;
    std::vector<char> buffer(MNL_SOCKET_BUFFER_SIZE);
    const unsigned portId = mnl_socket_get_portid(socket.get());
    for (;;) {
        const ssize_t received = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        if (received < 0 && errno == EINTR)
            continue;
        if (received < 0)
            return false;
        const int outcome = mnl_cb_run(buffer.data(), static_cast<std::size_t>(received), sequence, portId, callback,
            context);
        // A lookup is answered by one message; a dump ends with a message of its own.
        const bool dump = request->nlmsg_flags & NLM_F_DUMP;
        if (!dump || outcome <= MNL_CB_STOP)
            return true;
    }
}

nlmsghdr* routeRequest(std::vector<char>& buffer, unsigned char family, std::uint16_t flags)
{
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = RTM_GETROUTE;
    request->nlmsg_flags = NLM_F_REQUEST | flags;
    auto* header = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
    header->rtm_family = family;
    return request;
}

// The route the kernel would use for `address`.
bool lookupRoute(const sockaddr_storage& address, std::optional<Route>& route)
{
    std::vector<char> buffer(MNL_SOCKET_BUFFER_SIZE);
    nlmsghdr* request = routeRequest(buffer, static_cast<unsigned char>(address.ss_family), 0);
    auto* header = static_cast<rtmsg*>(mnl_nlmsg_get_payload(request));
    if (address.ss_family == AF_INET) {
        const auto& ipv4 = reinterpret_cast<const sockaddr_in&>(address);
        header->rtm_dst_len = 32;
        mnl_attr_put(request, RTA_DST, sizeof(ipv4.sin_addr), &ipv4.sin_addr);
    } else {
        const auto& ipv6 = reinterpret_cast<const sockaddr_in6&>(address);
        header->rtm_dst_len = 128;
        mnl_attr_put(request, RTA_DST, sizeof(ipv6.sin6_addr), &ipv6.sin6_addr);
    }
    const auto onRoute = [](const nlmsghdr* message, void* context) -> int {
        if (message->nlmsg_type == RTM_NEWROUTE)
            *static_cast<std::optional<Route>*>(context) = routeOf(message);
        return MNL_CB_OK;
    };
    return exchange(request, onRoute, &route);
}

// The first unicast default route of any table but the local one.
bool lookupDefaultRoute(unsigned char family, std::optional<Route>& route)
{
    std::vector<char> buffer(MNL_SOCKET_BUFFER_SIZE);
    nlmsghdr* request = routeRequest(buffer, family, NLM_F_DUMP);
    const auto onRoute = [](const nlmsghdr* message, void* context) -> int {
        auto& found = *static_cast<std::optional<Route>*>(context);
        const auto* header = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
        if (!found && message->nlmsg_type == RTM_NEWROUTE && header->rtm_dst_len == 0
            && header->rtm_table != RT_TABLE_LOCAL && header->rtm_type == RTN_UNICAST)
            found = routeOf(message);
        return MNL_CB_OK;
    };
    return exchange(request, onRoute, &route);
}

bool isZeroAddress(const sockaddr_storage& address)
{
    if (address.ss_family == AF_INET)
        return reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr == INADDR_ANY;
    return IN6_IS_ADDR_UNSPECIFIED(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

std::optional<ReachabilityFlags> flagsForAddress(const sockaddr_storage& address)
{
    std::optional<Route> route;
    const bool readable = isZeroAddress(address)
        ? lookupDefaultRoute(static_cast<unsigned char>(address.ss_family), route)
        : lookupRoute(address, route);
    if (!readable)
        return std::nullopt;
    return flagsForRoute(route);
}

std::optional<ReachabilityFlags> flagsForName(const std::string& name)
{
    addrinfo hints {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, &hints, &addresses) != 0 || !addresses)
        return ReachabilityFlags { 0 };
    sockaddr_storage address {};
    std::memcpy(&address, addresses->ai_addr, addresses->ai_addrlen);
    freeaddrinfo(addresses);
    return flagsForAddress(address);
}

}

ReachabilityFlags flagsForRoute(const std::optional<Route>& route)
{
    if (!route)
        return 0;
    switch (route->type) {
    case RTN_LOCAL:
        return reachability::Reachable | reachability::IsLocalAddress | reachability::IsDirect;
    case RTN_UNICAST:
    case RTN_BROADCAST:
    case RTN_ANYCAST:
    case RTN_MULTICAST:
        return reachability::Reachable | (route->hasGateway ? 0 : reachability::IsDirect);
    default:
        // Unreachable, blackhole, prohibit and the like: the table holds the destination only to refuse it.
        return 0;
    }
}

NetworkReachability::NetworkReachability(std::optional<sockaddr_storage> address, std::string name)
    : m_address(address)
    , m_name(std::move(name))
{
    ++liveTargets;
}

NetworkReachability::~NetworkReachability()
{
    unschedule();
    --liveTargets;
}

std::unique_ptr<NetworkReachability> NetworkReachability::createWithAddress(const sockaddr* address)
{
    if (!address || (address->sa_family != AF_INET && address->sa_family != AF_INET6))
        return nullptr;
    sockaddr_storage copy {};
    std::memcpy(&copy, address, address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
    return std::unique_ptr<NetworkReachability>(new NetworkReachability(copy, {}));
}

std::unique_ptr<NetworkReachability> NetworkReachability::createWithName(std::string name)
{
    if (name.empty())
        return nullptr;
    return std::unique_ptr<NetworkReachability>(new NetworkReachability(std::nullopt, std::move(name)));
}

std::size_t NetworkReachability::liveCount()
{
    return liveTargets.load();
}

std::optional<ReachabilityFlags> NetworkReachability::flags() const
{
    {
        auto& pin = pinState();
        std::lock_guard lock(pin.mutex);
        if (pin.pinned)
            return pin.flags;
    }
    return m_address ? flagsForAddress(*m_address) : flagsForName(m_name);
}

bool NetworkReachability::setCallback(Callback callback)
{
    std::lock_guard lock(m_callbackMutex);
    m_callback = std::move(callback);
    return true;
}

bool NetworkReachability::schedule()
{
    if (m_watcher.joinable())
        return true;
    NetlinkSocket socket(SOCK_NONBLOCK,
        RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE);
    if (!socket)
        return false;
    const int stopSignal = ::eventfd(0, EFD_CLOEXEC);
    if (stopSignal < 0)
        return false;
    m_stopSignal = stopSignal;
    // Read after subscribing and before returning, so that every change from here on is seen as one.
    const std::optional<ReachabilityFlags> initial = flags();
    m_watcher = std::thread([this, subscription = socket.release(), stopSignal, initial] {
        watch(subscription, stopSignal, initial);
    });
    return true;
}

void NetworkReachability::unschedule()
{
    if (!m_watcher.joinable())
        return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_stopSignal, &one, sizeof(one));
    m_watcher.join();
    ::close(m_stopSignal);
    m_stopSignal = -1;
}

void NetworkReachability::watch(mnl_socket* subscription, int stopSignal, std::optional<ReachabilityFlags> last)
{
    const int netlinkSocket = mnl_socket_get_fd(subscription);
    std::vector<char> buffer(MNL_SOCKET_BUFFER_SIZE);
    for (;;) {
        pollfd watched[] = { { netlinkSocket, POLLIN, 0 }, { stopSignal, POLLIN, 0 } };
        if (::poll(watched, 2, -1) < 0 && errno != EINTR)
            break;
        if (watched[1].revents)
            break;
        if (!watched[0].revents)
            continue;
        // A burst of messages is one change: read them all, then look at the flags once. An overflow of the
        // socket's buffer (ENOBUFS) also means that something changed.
        for (;;) {
            const ssize_t received = ::recv(netlinkSocket, buffer.data(), buffer.size(), 0);
            if (received <= 0 && !(received < 0 && (errno == EINTR || errno == ENOBUFS)))
                break;
        }
        const std::optional<ReachabilityFlags> current = flags();
        if (current == last)
            continue;
        last = current;
        Callback callback;
        {
            std::lock_guard lock(m_callbackMutex);
            callback = m_callback;
        }
        if (callback)
            callback(current.value_or(0));
    }
    mnl_socket_close(subscription);
}

PinnedReachabilityFlags::PinnedReachabilityFlags(std::optional<ReachabilityFlags> flags)
{
    auto& pin = pinState();
    std::lock_guard lock(pin.mutex);
    m_hadPrevious = std::exchange(pin.pinned, true);
    m_previous = std::exchange(pin.flags, flags);
}

PinnedReachabilityFlags::~PinnedReachabilityFlags()
{
    auto& pin = pinState();
    std::lock_guard lock(pin.mutex);
    pin.pinned = m_hadPrevious;
    pin.flags = m_previous;
}

}
