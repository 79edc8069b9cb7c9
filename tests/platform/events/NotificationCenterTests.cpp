#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/events/NotificationCenter.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace tessel;

namespace {

TEST(NotificationCenter, MatchesByNameAndObject)
{
    int a = 0;
    int b = 0;
    // Observed name and object, posted name and object, whether it arrives.
    const std::tuple<std::string, const void*, std::string, const void*, bool> cases[] = {
        { "Changed", nullptr, "Changed", nullptr, true },
        { "Changed", nullptr, "Changed", &a, true },
        { "Changed", nullptr, "Other", nullptr, false },
        { "Changed", &a, "Changed", &a, true },
        { "Changed", &a, "Changed", &b, false },
        { "Changed", &a, "Changed", nullptr, false },
        { "", nullptr, "Anything", &b, true },
        { "", &a, "Anything", &a, true },
        { "", &a, "Anything", &b, false },
    };
    for (const auto& [observedName, observedObject, postedName, postedObject, delivered] : cases) {
        NotificationCenter center;
        std::vector<Notification> received;
        center.addObserver(this, observedName, observedObject,
            [&](const Notification& notification) { received.push_back(notification); });
        center.postNotification(postedName, postedObject, Value::Dictionary { { "k", 1 } });
        ASSERT_EQ(received.size(), delivered ? 1u : 0u) << observedName << " / " << postedName;
        if (delivered) {
            EXPECT_EQ(received[0].name, postedName);
            EXPECT_EQ(received[0].object, postedObject);
            EXPECT_EQ(received[0].userInfo["k"].integerValue(), 1);
        }
    }
}

TEST(NotificationCenter, RemovalByIdOwnerAndName)
{
    int ownerA = 0;
    int ownerB = 0;
    struct Case {
        const char* label;
        std::function<void(NotificationCenter&, NotificationCenter::ObserverId firstId)> remove;
        std::vector<int> expected;
    };
    const std::vector<Case> cases = {
        { "none", [](NotificationCenter&, auto) {}, { 1, 2, 3, 4 } },
        { "id", [](NotificationCenter& center, auto id) { center.removeObserver(id); }, { 2, 3, 4 } },
        { "owner", [&](NotificationCenter& center, auto) { center.removeObserver(&ownerA); }, { 4 } },
        { "owner and name", [&](NotificationCenter& center, auto) { center.removeObserver(&ownerA, "X"); },
            { 3, 4 } },
        { "owner and empty name",
            [&](NotificationCenter& center, auto) { center.removeObserver(&ownerA, ""); }, { 1, 2, 4 } },
        { "unknown id", [](NotificationCenter& center, auto id) { center.removeObserver(id + 100); },
            { 1, 2, 3, 4 } },
    };
    for (const auto& c : cases) {
        NotificationCenter center;
        std::vector<int> calls;
        auto first
            = center.addObserver(&ownerA, "X", nullptr, [&](const Notification&) { calls.push_back(1); });
        center.addObserver(&ownerA, "X", nullptr, [&](const Notification&) { calls.push_back(2); });
        center.addObserver(&ownerA, "", nullptr, [&](const Notification&) { calls.push_back(3); });
        center.addObserver(&ownerB, "X", nullptr, [&](const Notification&) { calls.push_back(4); });
        c.remove(center, first);
        center.postNotification("X");
        EXPECT_EQ(calls, c.expected) << c.label;
    }
}

TEST(NotificationCenter, ObserversMayChangeRegistrationsDuringDelivery)
{
    NotificationCenter center;
    std::vector<std::string> calls;
    NotificationCenter::ObserverId third = 0;
    center.addObserver(nullptr, "X", nullptr, [&](const Notification&) {
        calls.push_back("first");
        center.removeObserver(third);
        center.addObserver(nullptr, "X", nullptr, [&](const Notification&) { calls.push_back("added"); });
        center.postNotification("Nested");
    });
    center.addObserver(nullptr, "Nested", nullptr, [&](const Notification&) { calls.push_back("nested"); });
    third = center.addObserver(nullptr, "X", nullptr, [&](const Notification&) { calls.push_back("third"); });
    auto selfRemoving
        = center.addObserver(nullptr, "X", nullptr, [&](const Notification&) { calls.push_back("self"); });
    center.addObserver(nullptr, "X", nullptr, [&](const Notification&) {
        calls.push_back("last");
        center.removeObserver(selfRemoving);
    });

    center.postNotification("X");
    EXPECT_EQ(calls, (std::vector<std::string> { "first", "nested", "self", "last" }));
    calls.clear();
    center.postNotification("X");
    EXPECT_EQ(calls, (std::vector<std::string> { "first", "nested", "last", "added" }));
}

TEST(NotificationCenterConcurrent, PostsFromManyThreads)
{
    NotificationCenter center;
    std::atomic<int> delivered { 0 };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 200; ++i) {
                auto id = center.addObserver(&delivered, "T" + std::to_string(thread), nullptr,
                    [&](const Notification&) { ++delivered; });
                center.postNotification("T" + std::to_string(thread));
                center.removeObserver(id);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(delivered, 800);
}

TEST(InProcessSystemNotificationCenter, DeliversByExactNameAndRecordsPosts)
{
    InProcessSystemNotificationCenter center;
    std::vector<std::string> calls;
    SystemNotificationCenter::ObserverId removedLater = 0;
    auto first
        = center.addObserver("org.tessel.a", [&](const std::string& name) { calls.push_back("1:" + name); });
    center.addObserver("org.tessel.a", [&](const std::string& name) {
        calls.push_back("2:" + name);
        center.removeObserver(first);
        center.removeObserver(removedLater);
        center.addObserver("org.tessel.a", [&](const std::string& name) { calls.push_back("3:" + name); });
    });
    removedLater
        = center.addObserver("org.tessel.a", [&](const std::string& name) { calls.push_back("4:" + name); });
    center.addObserver("org.tessel.b", [&](const std::string& name) { calls.push_back("b:" + name); });
    center.addObserver("", [&](const std::string& name) { calls.push_back("empty:" + name); });

    center.postNotification("org.tessel.a");
    center.postNotification("org.tessel.c");
    center.postNotification("org.tessel.a");
    EXPECT_EQ(calls,
        (std::vector<std::string> {
            "1:org.tessel.a", "2:org.tessel.a", "2:org.tessel.a", "3:org.tessel.a" }));
    EXPECT_EQ(
        center.postedNames(), (std::vector<std::string> { "org.tessel.a", "org.tessel.c", "org.tessel.a" }));
}

} // namespace
