#include "platform/archive/PropertyList.h"
#include "platform/files/Path.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedDevice.h"
#include "server/KTSystemStateProvidingCallbacksAdapter.h"
#include "server/KTTesselServer.h"
#include "store/KTNotificationStore.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <tessel/Tessel.h>
#include <thread>

using namespace tessel;

namespace {

TEST(ServerStart, ConcurrentStartsRunOnceAndPublishTheServer)
{
    SimulatedDevice device;
    EXPECT_EQ(KTTesselServer::sharedInstance(), nullptr);

    std::vector<std::thread> starters;
    for (int i = 0; i < 4; ++i)
        starters.emplace_back([] { KTTesselServerStart(std::shared_ptr<KTSystemStateProviding>()); });
    for (auto& starter : starters)
        starter.join();

    auto server = KTTesselServer::sharedInstance();
    ASSERT_NE(server, nullptr);
    EXPECT_EQ(device.systemLog().count("Migrating push store:"), 1u)
        << "old stores are migrated during start";

    KTTesselServerStart(std::shared_ptr<KTSystemStateProviding>());
    EXPECT_EQ(KTTesselServer::sharedInstance(), server);
    EXPECT_EQ(device.systemLog().count("Migrating push store:"), 1u);
}

TEST(ExportedFunctions, ReachTheStoreOfTheInstalledPlatform)
{
    SimulatedDevice device;
    char* directory = _VYSAppNotificationStoreDirectory();
    ASSERT_NE(directory, nullptr);
    EXPECT_EQ(
        std::string(directory), Path::appendingComponent(device.libraryDirectory(), "Vantry/PushStore"));
    free(directory);

    auto store = KTNotificationStore::sharedInstance();
    store->saveRemoteNotificationWithTitle({}, "m", {}, {}, {}, {}, {}, {}, "com.example.app");
    KTClearNotificationsForBundleIdentifier("com.example.app");
    EXPECT_FALSE(store->savedNotificationDataForBundleID("com.example.app"));
    KTClearNotificationsForBundleIdentifier(nullptr);
}

TEST(ExportedFunctions, TheCallbackTableAnswersThroughTheAdapter)
{
    Bytes delivered;
    KTSystemStateProvidingCallbacks callbacks {};
    callbacks.context = &delivered;
    callbacks.isApplicationInstalled = [](void*, const char* bundleIdentifier) {
        return std::string(bundleIdentifier) == "com.installed";
    };
    callbacks.shouldThrottleContentNotificationForApplicatin
        = [](void*, const char*, double date, int64_t* count, int64_t* day) {
              *count += 1;
              *day = static_cast<int64_t>(date / 86400);
              return *count > 2;
          };
    callbacks.handleContentAvailableNotificationForApplication
        = [](void* context, const char*, const uint8_t* userInfo, size_t length, int64_t,
              void (*completion)(void*), void* completionContext) {
              static_cast<Bytes*>(context)->assign(userInfo, userInfo + length);
              completion(completionContext);
          };
    KTSystemStateProvidingCallbacksAdapter adapter(callbacks);

    EXPECT_TRUE(adapter.isApplicationInstalled("com.installed"));
    EXPECT_FALSE(adapter.isApplicationInstalled("com.other"));
    EXPECT_FALSE(adapter.isApplicationRestricted("com.installed")) << "a missing callback answers false";

    int64_t count = 2;
    int64_t day = 0;
    EXPECT_TRUE(
        adapter.shouldThrottleContentNotificationForApplicatin("com.installed", Date(86400 * 3), count, day));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(day, 3);

    Value payload(Value::Dictionary { { "aps", Value(Value::Dictionary { { "content-available", 1 } }) } });
    int completions = 0;
    adapter.handleContentAvailableNotificationForApplication(
        "com.installed", payload, 10, [&] { completions++; });
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(PropertyList::read(delivered), payload);
    adapter.handleGazetteNotificationForApplication("com.installed", payload);
}

} // namespace
