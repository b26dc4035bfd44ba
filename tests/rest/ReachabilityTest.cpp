#include "rest/Reachability.h"

#include "platform/Exception.h"
#include "platform/NotificationCenter.h"
#include "support/LogCapture.h"
#include "support/Eventually.h"
#include "support/NetworkNamespace.h"
#include "platform/Queue.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

using namespace rest;
using namespace platform::reachability;
using platform::PinnedReachabilityFlags;

namespace {

// Every combination of the six flags the readings look at.
constexpr ReachabilityFlags readFlags[]
    = { Reachable, ConnectionRequired, ConnectionOnTraffic, InterventionRequired, ConnectionOnDemand, IsDirect };

std::vector<ReachabilityFlags> everyCombination()
{
    std::vector<ReachabilityFlags> combinations;
    for (unsigned mask = 0; mask < (1u << std::size(readFlags)); ++mask) {
        ReachabilityFlags flags = 0;
        for (std::size_t bit = 0; bit < std::size(readFlags); ++bit) {
            if (mask & (1u << bit))
                flags |= readFlags[bit];
        }
        combinations.push_back(flags);
    }
    return combinations;
}

// True when this machine's main routing table has an IPv4 default route.
bool machineHasDefaultRoute()
{
    std::ifstream routes("/proc/net/route");
    std::string line;
    std::getline(routes, line);
    while (std::getline(routes, line)) {
        std::istringstream fields(line);
        std::string interface, destination, gateway, flags, references, use, metric, mask;
        fields >> interface >> destination >> gateway >> flags >> references >> use >> metric >> mask;
        if (destination == "00000000" && mask == "00000000")
            return true;
    }
    return false;
}

std::unique_ptr<Reachability> reachabilityFor(const char* ipv4)
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, ipv4, &address.sin_addr);
    return Reachability::reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&address));
}

// Calls `operation` on an object without a handle and expects the assertion handler's log line and exception.
void expectAssertionFailure(
    const std::function<void(const Reachability&)>& operation, const std::string& reason, const std::string& logLine)
{
    testsupport::LogCapture log;
    Reachability withoutHandle;
    try {
        operation(withoutHandle);
        ADD_FAILURE() << "no assertion failure";
    } catch (const platform::Exception& exception) {
        EXPECT_EQ(exception.name(), "NSInternalInconsistencyException");
        EXPECT_EQ(exception.reason(), reason);
    }
    EXPECT_TRUE(log.contains(logLine)) << logLine;
}

}

// --- The readings of the flags.

TEST(ReachabilityFlagsReading, OnlyTheReachableFlagMeansReachable)
{
    EXPECT_EQ(Reachability::networkStatusForFlags(Reachable), ReachableViaNetwork);
}

TEST(ReachabilityFlagsReading, ReachableButConnectionRequiredWithoutOnDemandOrOnTrafficIsNotReachable)
{
    EXPECT_EQ(Reachability::networkStatusForFlags(Reachable | ConnectionRequired), NotReachable);
    EXPECT_EQ(Reachability::networkStatusForFlags(Reachable | ConnectionRequired | IsDirect), NotReachable);
}

TEST(ReachabilityFlagsReading, InterventionRequiredOnTrafficIsNotReachableButTheOneCallCheckAcceptsItWhenDirect)
{
    const ReachabilityFlags flags = Reachable | ConnectionRequired | ConnectionOnTraffic | InterventionRequired;
    EXPECT_EQ(Reachability::networkStatusForFlags(flags), NotReachable);
    EXPECT_EQ(Reachability::networkStatusForFlags(flags | IsDirect), NotReachable);
    EXPECT_FALSE(NetWorkConnectionStatus::connectionStatusForFlags(flags));
    EXPECT_TRUE(NetWorkConnectionStatus::connectionStatusForFlags(flags | IsDirect));
}

TEST(ReachabilityFlagsReading, LocalWiFiReadingWithReachableButNotDirectIsNotReachable)
{
    EXPECT_EQ(Reachability::localWiFiStatusForFlags(Reachable), NotReachable);
    EXPECT_EQ(Reachability::localWiFiStatusForFlags(Reachable | IsDirect), ReachableViaNetwork);
}

TEST(ReachabilityFlagsReading, NoFlagsAtAllIsNotReachable)
{
    EXPECT_EQ(Reachability::networkStatusForFlags(0), NotReachable);
    EXPECT_EQ(Reachability::localWiFiStatusForFlags(0), NotReachable);
    EXPECT_FALSE(NetWorkConnectionStatus::connectionStatusForFlags(0));
}

TEST(ReachabilityFlagsReading, ConnectionOnDemandOrOnTrafficWithoutInterventionMakesARequiredConnectionReachable)
{
    EXPECT_EQ(
        Reachability::networkStatusForFlags(Reachable | ConnectionRequired | ConnectionOnDemand), ReachableViaNetwork);
    EXPECT_EQ(
        Reachability::networkStatusForFlags(Reachable | ConnectionRequired | ConnectionOnTraffic), ReachableViaNetwork);
    EXPECT_EQ(
        Reachability::networkStatusForFlags(Reachable | ConnectionRequired | ConnectionOnDemand | InterventionRequired),
        NotReachable);
}

TEST(ReachabilityFlagsReading, WithoutTheReachableFlagNoCombinationIsReachable)
{
    for (ReachabilityFlags flags : everyCombination()) {
        if (flags & Reachable)
            continue;
        EXPECT_EQ(Reachability::networkStatusForFlags(flags), NotReachable) << flags;
        EXPECT_EQ(Reachability::localWiFiStatusForFlags(flags), NotReachable) << flags;
        EXPECT_FALSE(NetWorkConnectionStatus::connectionStatusForFlags(flags)) << flags;
    }
}

TEST(ReachabilityFlagsReading, TheOneCallCheckAcceptsEveryCombinationTheStatusReadingAccepts)
{
    for (ReachabilityFlags flags : everyCombination()) {
        if (Reachability::networkStatusForFlags(flags) == ReachableViaNetwork) {
            EXPECT_TRUE(NetWorkConnectionStatus::connectionStatusForFlags(flags)) << flags;
        }
    }
}

TEST(ReachabilityFlagsReading, TheOneCallCheckDiffersFromTheStatusReadingOnlyByAcceptingDirectRoutes)
{
    for (ReachabilityFlags flags : everyCombination()) {
        const bool statusReachable = Reachability::networkStatusForFlags(flags) == ReachableViaNetwork;
        const bool oneCallReachable = NetWorkConnectionStatus::connectionStatusForFlags(flags);
        if (statusReachable != oneCallReachable) {
            EXPECT_TRUE((flags & Reachable) && (flags & IsDirect)) << flags;
        }
    }
}

TEST(ReachabilityFlagsReading, TheLocalWiFiReadingLooksOnlyAtReachableAndDirect)
{
    for (ReachabilityFlags flags : everyCombination()) {
        const bool expected = (flags & Reachable) && (flags & IsDirect);
        EXPECT_EQ(Reachability::localWiFiStatusForFlags(flags) == ReachableViaNetwork, expected) << flags;
    }
}

// --- Objects and their handles.

TEST(Reachability, NoFlagsAtAllMakeIsReachableAnswerNo)
{
    PinnedReachabilityFlags pin(ReachabilityFlags { 0 });
    EXPECT_FALSE(Reachability::isReachable());
    EXPECT_FALSE(NetWorkConnectionStatus::ConectionStatus());
}

TEST(Reachability, OnlyTheReachableFlagMakesIsReachableAnswerYes)
{
    PinnedReachabilityFlags pin(Reachable);
    EXPECT_TRUE(Reachability::isReachable());
}

TEST(Reachability, ARequiredConnectionWithInterventionIsNotReachableButTheOneCallCheckSaysYesWhenDirect)
{
    const ReachabilityFlags flags = Reachable | ConnectionRequired | ConnectionOnTraffic | InterventionRequired;
    {
        PinnedReachabilityFlags pin(flags);
        EXPECT_FALSE(Reachability::isReachable());
        EXPECT_FALSE(NetWorkConnectionStatus::ConectionStatus());
    }
    PinnedReachabilityFlags pin(flags | IsDirect);
    EXPECT_FALSE(Reachability::isReachable());
    EXPECT_TRUE(NetWorkConnectionStatus::ConectionStatus());
}

TEST(Reachability, FlagsThatCannotBeReadCountAsNotReachable)
{
    PinnedReachabilityFlags unreadable(std::nullopt);
    const auto internet = Reachability::reachabilityForInternetConnection();
    EXPECT_EQ(internet->currentReachabilityStatus(), NotReachable);
    EXPECT_FALSE(internet->connectionRequired());
    EXPECT_FALSE(Reachability::isReachable());
    EXPECT_FALSE(NetWorkConnectionStatus::ConectionStatus());
}

TEST(Reachability, ConnectionRequiredReadsItsFlag)
{
    const auto internet = Reachability::reachabilityForInternetConnection();
    {
        PinnedReachabilityFlags pin(Reachable | ConnectionRequired);
        EXPECT_TRUE(internet->connectionRequired());
    }
    PinnedReachabilityFlags pin(Reachable);
    EXPECT_FALSE(internet->connectionRequired());
}

TEST(Reachability, TheLocalWiFiObjectReadsItsFlagsTheLocalWay)
{
    const auto wifi = Reachability::reachabilityForLocalWiFi();
    const auto internet = Reachability::reachabilityForInternetConnection();
    ASSERT_TRUE(wifi && internet);
    EXPECT_TRUE(wifi->localWiFiRef);
    EXPECT_FALSE(internet->localWiFiRef);
    {
        PinnedReachabilityFlags pin(Reachable);
        EXPECT_EQ(wifi->currentReachabilityStatus(), NotReachable);
        EXPECT_EQ(internet->currentReachabilityStatus(), ReachableViaNetwork);
    }
    PinnedReachabilityFlags pin(Reachable | IsDirect);
    EXPECT_EQ(wifi->currentReachabilityStatus(), ReachableViaNetwork);
}

TEST(Reachability, FactoriesAnswerNothingWhenNoHandleCanBeMade)
{
    sockaddr unixAddress {};
    unixAddress.sa_family = AF_UNIX;
    EXPECT_EQ(Reachability::reachabilityWithAddress(&unixAddress), nullptr);
    EXPECT_EQ(Reachability::reachabilityWithHostName(""), nullptr);
    const auto named = Reachability::reachabilityWithHostName("localhost");
    ASSERT_NE(named, nullptr);
    EXPECT_FALSE(named->localWiFiRef);
}

TEST(Reachability, AHostNameIsReadThroughItsAddress)
{
    EXPECT_EQ(Reachability::reachabilityWithHostName("localhost")->currentReachabilityStatus(), ReachableViaNetwork);
    EXPECT_EQ(
        Reachability::reachabilityWithHostName("no-such-host.invalid")->currentReachabilityStatus(), NotReachable);
}

TEST(Reachability, ConnectionRequiredWithoutAHandleFailsItsAssertion)
{
    expectAssertionFailure([](const Reachability& withoutHandle) { withoutHandle.connectionRequired(); },
        "connectionRequired called with NULL reachabilityRef",
        "*** Assertion failure in -[Reachability connectionRequired], Services/Reachability/Reachability:245");
}

TEST(Reachability, CurrentReachabilityStatusWithoutAHandleFailsItsAssertion)
{
    expectAssertionFailure([](const Reachability& withoutHandle) { withoutHandle.currentReachabilityStatus(); },
        "currentNetworkStatus called with NULL reachabilityRef",
        "*** Assertion failure in -[Reachability currentReachabilityStatus], Services/Reachability/Reachability:256");
}

TEST(Reachability, AnObjectReleasesItsHandleWhenItGoes)
{
    const std::size_t before = platform::NetworkReachability::liveCount();
    auto internet = Reachability::reachabilityForInternetConnection();
    EXPECT_EQ(platform::NetworkReachability::liveCount(), before + 1);
    internet.reset();
    EXPECT_EQ(platform::NetworkReachability::liveCount(), before);
}

TEST(Reachability, IsReachableMakesAndReleasesAnObjectOnEveryCall)
{
    const std::size_t before = platform::NetworkReachability::liveCount();
    Reachability::isReachable();
    Reachability::isReachable();
    EXPECT_EQ(platform::NetworkReachability::liveCount(), before);
}

TEST(Reachability, TheOneCallCheckNeverReleasesItsHandle)
{
    const std::size_t before = platform::NetworkReachability::liveCount();
    NetWorkConnectionStatus::ConectionStatus();
    NetWorkConnectionStatus::ConectionStatus();
    EXPECT_EQ(platform::NetworkReachability::liveCount(), before + 2);
}

TEST(Reachability, IsReachableAnswersWhetherThisMachineHasADefaultRoute)
{
    EXPECT_EQ(Reachability::isReachable(), machineHasDefaultRoute());
    EXPECT_EQ(NetWorkConnectionStatus::ConectionStatus(), machineHasDefaultRoute());
}

TEST(Reachability, TheLoopbackAddressIsReachable)
{
    EXPECT_EQ(reachabilityFor("127.0.0.1")->currentReachabilityStatus(), ReachableViaNetwork);
}

TEST(Reachability, StartNotifierNeedsAHandle)
{
    Reachability withoutHandle;
    EXPECT_FALSE(withoutHandle.startNotifier());
    withoutHandle.stopNotifier();
}

// --- Real namespaces.

TEST(ReachabilityInAFreshNetworkNamespace, TheNetworkIsNotReachable)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    EXPECT_FALSE(Reachability::isReachable());
    EXPECT_FALSE(NetWorkConnectionStatus::ConectionStatus());
    EXPECT_EQ(Reachability::reachabilityForInternetConnection()->currentReachabilityStatus(), NotReachable);
    EXPECT_EQ(Reachability::reachabilityForLocalWiFi()->currentReachabilityStatus(), NotReachable);
    EXPECT_EQ(reachabilityFor("127.0.0.1")->currentReachabilityStatus(), NotReachable);
}

TEST(ReachabilityInAFreshNetworkNamespace, ADefaultRouteMakesTheNetworkReachable)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    ASSERT_TRUE(testsupport::runCommand("ip link set lo up && ip route add 10.1.0.0/16 dev lo"
                                        " && ip route add default via 10.1.0.1"));
    EXPECT_TRUE(Reachability::isReachable());
    EXPECT_TRUE(NetWorkConnectionStatus::ConectionStatus());
    // Through a gateway: not the link-local network.
    EXPECT_EQ(Reachability::reachabilityForLocalWiFi()->currentReachabilityStatus(), NotReachable);
    ASSERT_TRUE(testsupport::runCommand("ip route add 169.254.0.0/16 dev lo"));
    EXPECT_EQ(Reachability::reachabilityForLocalWiFi()->currentReachabilityStatus(), ReachableViaNetwork);
}

TEST(ReachabilityInAFreshNetworkNamespace, TheNotifierPostsTheChangeNotificationWithTheWatchingObject)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    auto internet = Reachability::reachabilityForInternetConnection();
    std::atomic<int> posts { 0 };
    std::atomic<bool> objectWasTheWatcher { false };
    auto& center = platform::NotificationCenter::defaultCenter();
    const auto token = center.addObserver(
        kNetworkReachabilityChangedNotification, nullptr, [&](const platform::Notification& notification) {
            const auto* object = std::any_cast<Reachability*>(&notification.object);
            objectWasTheWatcher = object && *object == internet.get();
            ++posts;
        });
    ASSERT_TRUE(internet->startNotifier());
    ASSERT_TRUE(testsupport::runCommand("ip link set lo up && ip route add 10.1.0.0/16 dev lo"
                                        " && ip route add default via 10.1.0.1"));
    for (int waited = 0; posts == 0 && waited < 200; ++waited)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(posts, 1);
    EXPECT_TRUE(objectWasTheWatcher);
    EXPECT_EQ(internet->currentReachabilityStatus(), ReachableViaNetwork);

    internet->stopNotifier();
    ASSERT_TRUE(testsupport::runCommand("ip route del default"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(posts, 1) << "nothing is posted once the notifier has stopped";
    center.removeObserver(token);
}

namespace {

// The notifier of the zero address started by a task of a serial queue, with one observer of its notification that
// runs on the posting thread; a default route added then changes the flags once.
class NotifierInAFreshNamespace {
public:
    explicit NotifierInAFreshNamespace(std::function<void(NotifierInAFreshNamespace&)> onNotification)
        : m_onNotification(std::move(onNotification))
    {
        m_token = platform::NotificationCenter::defaultCenter().addObserver(
            kNetworkReachabilityChangedNotification, nullptr, [this](const platform::Notification&) {
                m_onNotification(*this);
                ++posts;
            });
    }
    ~NotifierInAFreshNamespace() { platform::NotificationCenter::defaultCenter().removeObserver(m_token); }

    bool start()
    {
        bool started = false;
        queue->sync([&] { started = internet->startNotifier(); });
        return started;
    }
    bool changeTheRoutes() const
    {
        return testsupport::runCommand(
            "ip link set lo up && ip route add 10.1.0.0/16 dev lo && ip route add default via 10.1.0.1");
    }
    bool waitForPosts(int count) const
    {
        return testsupport::eventually([&] { return posts >= count; }, std::chrono::seconds(30));
    }

    std::shared_ptr<platform::Queue> queue = platform::Queue::makeSerial("test.reachability");
    std::unique_ptr<Reachability> internet = Reachability::reachabilityForInternetConnection();
    std::atomic<int> posts { 0 };

private:
    std::function<void(NotifierInAFreshNamespace&)> m_onNotification;
    platform::NotificationCenter::ObserverToken m_token = 0;
};

}

TEST(ReachabilityInAFreshNetworkNamespace, TheNotificationIsPostedOnTheQueueOfTheThreadThatStartedTheNotifier)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    std::atomic<bool> onStartingQueue { false };
    NotifierInAFreshNamespace notifier([&](NotifierInAFreshNamespace& self) { onStartingQueue = self.queue->isCurrent(); });
    ASSERT_TRUE(notifier.start());
    ASSERT_TRUE(notifier.changeTheRoutes());
    ASSERT_TRUE(notifier.waitForPosts(1));
    EXPECT_TRUE(onStartingQueue);
    notifier.queue->sync([&] { notifier.internet->stopNotifier(); });
}

TEST(ReachabilityInAFreshNetworkNamespace, AnObserverMayStopTheNotifierFromInsideTheNotification)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    NotifierInAFreshNamespace notifier([](NotifierInAFreshNamespace& self) { self.internet->stopNotifier(); });
    ASSERT_TRUE(notifier.start());
    ASSERT_TRUE(notifier.changeTheRoutes());
    ASSERT_TRUE(notifier.waitForPosts(1));
    EXPECT_EQ(notifier.internet->currentReachabilityStatus(), ReachableViaNetwork);
}

TEST(ReachabilityInAFreshNetworkNamespace, AnObserverMayDestroyTheWatchingObjectFromInsideTheNotification)
{
    RUN_IN_FRESH_NETWORK_NAMESPACE();
    NotifierInAFreshNamespace notifier([](NotifierInAFreshNamespace& self) { self.internet.reset(); });
    ASSERT_TRUE(notifier.start());
    ASSERT_TRUE(notifier.changeTheRoutes());
    ASSERT_TRUE(notifier.waitForPosts(1));
    EXPECT_EQ(notifier.internet, nullptr);
}
