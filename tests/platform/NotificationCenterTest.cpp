#include "platform/NotificationCenter.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

using platform::Notification;
using platform::NotificationCenter;
using platform::Queue;
using namespace std::chrono_literals;

TEST(NotificationCenter, ObserversOfANameHearItsNotificationsInTheOrderTheyRegistered)
{
    NotificationCenter center;
    std::vector<std::string> heard;
    center.addObserver("Changed", nullptr, [&](const Notification& n) { heard.push_back("first " + n.name); });
    center.addObserver("Other", nullptr, [&](const Notification& n) { heard.push_back("other " + n.name); });
    center.addObserver("Changed", nullptr, [&](const Notification& n) { heard.push_back("second " + n.name); });
    center.post("Changed");
    EXPECT_EQ(heard, (std::vector<std::string> { "first Changed", "second Changed" }));
}

TEST(NotificationCenter, AnObserverWithoutANameHearsEveryNotification)
{
    NotificationCenter center;
    std::vector<std::string> heard;
    center.addObserver("", nullptr, [&](const Notification& n) { heard.push_back(n.name); });
    center.post("One");
    center.post("Two");
    EXPECT_EQ(heard, (std::vector<std::string> { "One", "Two" }));
}

TEST(NotificationCenter, TheObjectTravelsWithTheNotification)
{
    NotificationCenter center;
    int poster = 0;
    const int* received = nullptr;
    center.addObserver("Changed", nullptr, [&](const Notification& n) { received = std::any_cast<int*>(n.object); });
    center.post("Changed", &poster);
    EXPECT_EQ(received, &poster);
}

TEST(NotificationCenter, AnObserverWithoutAQueueRunsOnThePostingThreadBeforePostReturns)
{
    NotificationCenter center;
    std::thread::id ranOn;
    center.addObserver("Changed", nullptr, [&](const Notification&) { ranOn = std::this_thread::get_id(); });
    center.post("Changed");
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(NotificationCenter, AnObserverWithAQueueRunsOnThatQueueAndPostDoesNotWait)
{
    NotificationCenter center;
    auto queue = Queue::makeSerial("observer");
    std::promise<void> release;
    auto released = release.get_future().share();
    std::promise<bool> ranOnQueue;
    center.addObserver("Changed", queue, [&](const Notification&) {
        released.wait();
        ranOnQueue.set_value(queue->isCurrent());
    });
    center.post("Changed"); // returns although the observer waits
    release.set_value();
    auto future = ranOnQueue.get_future();
    ASSERT_EQ(future.wait_for(10s), std::future_status::ready);
    EXPECT_TRUE(future.get());
}

TEST(NotificationCenter, ARemovedObserverHearsNothingMoreEvenWhatWasOnItsWay)
{
    NotificationCenter center;
    auto queue = Queue::makeSerial("observer");
    std::atomic<int> heard { 0 };
    const auto token = center.addObserver("Changed", queue, [&](const Notification&) { ++heard; });
    std::promise<void> release;
    auto released = release.get_future().share();
    queue->async([released] { released.wait(); });
    center.post("Changed"); // waits on the queue behind the blocked task
    center.removeObserver(token);
    release.set_value();
    queue->sync([] { });
    center.post("Changed");
    queue->sync([] { });
    EXPECT_EQ(heard, 0);
    center.removeObserver(token); // removing twice is harmless
}

TEST(NotificationCenter, TheDefaultCenterIsOneForTheProcess)
{
    // An observer registered on one thread hears what another thread posts to the default centre.
    std::atomic<int> heard { 0 };
    const auto token = NotificationCenter::defaultCenter().addObserver(
        "TheDefaultCenterIsOneForTheProcess", nullptr, [&](const Notification&) { ++heard; });
    std::thread([] { NotificationCenter::defaultCenter().post("TheDefaultCenterIsOneForTheProcess"); }).join();
    EXPECT_EQ(heard, 1);
    NotificationCenter::defaultCenter().removeObserver(token);
}

TEST(NotificationCenter, PostsFromManyThreadsAreAllHeard)
{
    NotificationCenter center;
    std::atomic<int> heard { 0 };
    center.addObserver("Changed", nullptr, [&](const Notification&) { ++heard; });
    std::vector<std::thread> posters;
    for (int thread = 0; thread < 4; ++thread) {
        posters.emplace_back([&] {
            for (int post = 0; post < 250; ++post)
                center.post("Changed");
        });
    }
    std::vector<NotificationCenter::ObserverToken> extra;
    for (int index = 0; index < 50; ++index)
        extra.push_back(center.addObserver("Elsewhere", nullptr, [](const Notification&) { }));
    for (auto token : extra)
        center.removeObserver(token);
    for (auto& poster : posters)
        poster.join();
    EXPECT_EQ(heard, 1000);
}
