#include "platform/NetworkReachability.h"

#include "support/NetworkNamespace.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

using namespace platform;
using namespace platform::reachability;

namespace {

std::unique_ptr<NetworkReachability> targetFor(const char* ipv4)
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, ipv4, &address.sin_addr);
    return NetworkReachability::createWithAddress(reinterpret_cast<const sockaddr*>(&address));
}

ReachabilityFlags flagsOf(const char* ipv4)
{
    const auto flags = targetFor(ipv4)->flags();
    EXPECT_TRUE(flags.has_value()) << ipv4;
    return flags.value_or(0xFFFFFFFF);
}

// Collects what a watched target reports.
class FlagsRecorder {
public:
    NetworkReachability::Callback callback()
    {
        return [this](ReachabilityFlags flags) {
            std::lock_guard lock(m_mutex);
            m_reports.push_back(flags);
            m_changed.notify_all();
        };
    }
    // Waits (at most two seconds) until `count` reports have arrived.
    std::vector<ReachabilityFlags> waitFor(std::size_t count)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(2), [&] { return m_reports.size() >= count; });
        return m_reports;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<ReachabilityFlags> m_reports;
};

}

TEST(RouteFlags, NoRouteMeansNoFlags)
{
    EXPECT_EQ(flagsForRoute(std::nullopt), 0u);
}

TEST(RouteFlags, AnOnLinkRouteIsReachableAndDirect)
{
    EXPECT_EQ(flagsForRoute(Route { RTN_UNICAST, false }), Reachable | IsDirect);
}

TEST(RouteFlags, ARouteThroughAGatewayIsReachableButNotDirect)
{
    EXPECT_EQ(flagsForRoute(Route { RTN_UNICAST, true }), Reachable);
}

TEST(RouteFlags, AnAddressOfThisMachineIsReachableLocalAndDirect)
{
    EXPECT_EQ(flagsForRoute(Route { RTN_LOCAL, false }), Reachable | IsLocalAddress | IsDirect);
}

TEST(RouteFlags, RoutesThatRefuseTheDestinationAreNotReachable)
{
    for (unsigned char type : { RTN_UNREACHABLE, RTN_BLACKHOLE, RTN_PROHIBIT, RTN_THROW })
        EXPECT_EQ(flagsForRoute(Route { type, false }), 0u) << int(type);
}

TEST(RouteFlags, TheDialUpFlagsNeverComeFromTheRoutingTable)
{
    const ReachabilityFlags dialUp = ConnectionRequired | ConnectionOnTraffic | InterventionRequired | ConnectionOnDemand;
    for (unsigned char type = 0; type <= RTN_MAX; ++type) {
        for (bool gateway : { false, true })
            EXPECT_EQ(flagsForRoute(Route { type, gateway }) & dialUp, 0u);
    }
}

TEST(NetworkReachability, ATargetMustBeAnIPv4OrIPv6AddressOrANonEmptyName)
{
    sockaddr unixAddress {};
    unixAddress.sa_family = AF_UNIX;
    EXPECT_EQ(NetworkReachability::createWithAddress(&unixAddress), nullptr);
    EXPECT_EQ(NetworkReachability::createWithAddress(nullptr), nullptr);
    EXPECT_EQ(NetworkReachability::createWithName(""), nullptr);
    EXPECT_NE(NetworkReachability::createWithName("localhost"), nullptr);
}

TEST(NetworkReachability, TheLoopbackAddressIsReachableLocalAndDirect)
{
    EXPECT_EQ(flagsOf("127.0.0.1"), Reachable | IsLocalAddress | IsDirect);
}

TEST(NetworkReachability, ANameIsResolvedWhenTheFlagsAreRead)
{
    EXPECT_EQ(*NetworkReachability::createWithName("localhost")->flags() & (Reachable | IsLocalAddress),
        Reachable | IsLocalAddress);
    EXPECT_EQ(NetworkReachability::createWithName("no-such-host.invalid")->flags(), ReachabilityFlags { 0 });
}

TEST(NetworkReachability, PinnedFlagsReplaceTheRoutingTableAndPinsNest)
{
    const auto loopback = targetFor("127.0.0.1");
    {
        PinnedReachabilityFlags pin(ConnectionRequired);
        EXPECT_EQ(loopback->flags(), ConnectionRequired);
        {
            PinnedReachabilityFlags unreadable(std::nullopt);
            EXPECT_EQ(loopback->flags(), std::nullopt);
        }
        EXPECT_EQ(loopback->flags(), ConnectionRequired);
    }
    EXPECT_EQ(loopback->flags(), Reachable | IsLocalAddress | IsDirect);
}

TEST(NetworkReachability, FlagsCannotBeReadWhenNoSocketCanBeOpened)
{
    const auto loopback = targetFor("127.0.0.1");
    rlimit limit {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = limit;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto flags = loopback->flags();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(flags, std::nullopt);
}

TEST(NetworkReachabilityInAFreshNetworkNamespace, NothingIsReachableWithoutRoutes)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    EXPECT_EQ(flagsOf("127.0.0.1"), 0u);
    EXPECT_EQ(flagsOf("0.0.0.0"), 0u);
    EXPECT_EQ(flagsOf("192.0.2.1"), 0u);
}

TEST(NetworkReachabilityInAFreshNetworkNamespace, FlagsFollowTheRoutesOfTheTable)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    ASSERT_TRUE(testsupport::runCommand("ip link set lo up"));
    EXPECT_EQ(flagsOf("127.0.0.1"), Reachable | IsLocalAddress | IsDirect);
    // Loopback up is no way out: the zero address asks for a default route.
    EXPECT_EQ(flagsOf("0.0.0.0"), 0u);

    ASSERT_TRUE(testsupport::runCommand("ip route add 10.1.0.0/16 dev lo"));
    ASSERT_TRUE(testsupport::runCommand("ip route add 10.2.0.0/16 via 10.1.0.1"));
    ASSERT_TRUE(testsupport::runCommand("ip route add unreachable 10.3.0.0/16"));
    ASSERT_TRUE(testsupport::runCommand("ip route add blackhole 10.4.0.0/16"));
    EXPECT_EQ(flagsOf("10.1.2.3"), Reachable | IsDirect);
    EXPECT_EQ(flagsOf("10.2.2.3"), Reachable);
    EXPECT_EQ(flagsOf("10.3.2.3"), 0u);
    EXPECT_EQ(flagsOf("10.4.2.3"), 0u);
    EXPECT_EQ(flagsOf("0.0.0.0"), 0u);

    ASSERT_TRUE(testsupport::runCommand("ip route add default via 10.1.0.1"));
    EXPECT_EQ(flagsOf("0.0.0.0"), Reachable);
    EXPECT_EQ(flagsOf("192.0.2.1"), Reachable);
}

TEST(NetworkReachabilityInAFreshNetworkNamespace, AWatchedTargetReportsEachChangeOfItsFlags)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    ASSERT_TRUE(testsupport::runCommand("ip link set lo up"));
    const auto target = targetFor("10.5.0.1");
    FlagsRecorder recorder;
    ASSERT_TRUE(target->setCallback(recorder.callback()));
    ASSERT_TRUE(target->schedule());
    ASSERT_TRUE(target->schedule()) << "watching again is harmless";

    ASSERT_TRUE(testsupport::runCommand("ip route add 10.5.0.0/16 dev lo"));
    EXPECT_EQ(recorder.waitFor(1), std::vector<ReachabilityFlags> { Reachable | IsDirect });
    // A change elsewhere in the table leaves the target's flags as they are: no report.
    ASSERT_TRUE(testsupport::runCommand("ip route add 10.6.0.0/16 dev lo"));
    ASSERT_TRUE(testsupport::runCommand("ip route del 10.5.0.0/16"));
    EXPECT_EQ(recorder.waitFor(2), (std::vector<ReachabilityFlags> { Reachable | IsDirect, 0 }));

    target->unschedule();
    ASSERT_TRUE(testsupport::runCommand("ip route add 10.5.0.0/16 dev lo"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(recorder.waitFor(2).size(), 2u) << "no report once watching has stopped";
}

TEST(NetworkReachabilityInAFreshNetworkNamespace, ALinkGoingDownTakesItsRoutesAlong)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    ASSERT_TRUE(testsupport::runCommand("ip link set lo up && ip route add 10.1.0.0/16 dev lo"));
    const auto onLink = targetFor("10.1.0.1");
    ASSERT_EQ(onLink->flags(), Reachable | IsDirect);
    FlagsRecorder recorder;
    onLink->setCallback(recorder.callback());
    ASSERT_TRUE(onLink->schedule());
    ASSERT_TRUE(testsupport::runCommand("ip link set lo down"));
    EXPECT_EQ(recorder.waitFor(1), std::vector<ReachabilityFlags> { 0 });
}
