#include "core/KTSafeBoolValue.h"
#include "platform/archive/PropertyList.h"
#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/logging/FileLogManager.h"
#include "platform/logging/FileLogger.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "server/KTSystemStateProvidingCallbacksAdapter.h"
#include "server/KTTesselServer.h"
#include "store/KTNotificationStore.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <tessel/Tessel.h>
#include <thread>

using namespace tessel;

namespace {

class SwitchLogger : public FileLogger {
public:
    std::string name() const override { return "SwitchLog"; }
    std::string logPreferenceName() const override { return "SwitchLogging"; }
    std::string logPreferenceDomain() const override { return "com.tamber.tessel"; }
};

TEST(ServerStart, RunsOnceAndPublishesTheServer)
{
    SimulatedDevice device;
    EXPECT_EQ(KTTesselServer::sharedInstance(), nullptr);
    auto old = Path::appendingComponent(KTNotificationStore::storeDirectory(), "com.a.vysnote");
    FileManager::createDirectoryAtPath(KTNotificationStore::storeDirectory(), true);
    auto list = PropertyList::data(
        Value(Value::Array { Value(Value::Dictionary { { KTNotificationStoreMessageKey, "m" } }) }),
        PropertyList::Format::Binary);
    ASSERT_TRUE(list && FileManager::writeAtomically(old, *list));

    std::vector<std::thread> starters;
    for (int i = 0; i < 4; ++i)
        starters.emplace_back([] { KTTesselServerStart(std::shared_ptr<KTSystemStateProviding>()); });
    for (auto& starter : starters)
        starter.join();

    auto server = KTTesselServer::sharedInstance();
    ASSERT_NE(server, nullptr);
    EXPECT_FALSE(FileManager::fileExistsAtPath(old)) << "the old store was migrated during start";
    EXPECT_EQ(device.systemLog().count("Migrating push store:"), 1u);

    KTTesselServerStart(std::shared_ptr<KTSystemStateProviding>());
    EXPECT_EQ(KTTesselServer::sharedInstance(), server);
    EXPECT_EQ(device.systemLog().count("Migrating push store:"), 1u);
}

TEST(ServerStart, PreferencesChangeReloadsTheLoggers)
{
    SimulatedDevice device;
    auto logger = std::make_shared<SwitchLogger>();
    device.platform().fileLogManager->registerLogger(logger);
    KTTesselServerStart(std::shared_ptr<KTSystemStateProviding>());
    EXPECT_FALSE(logger->isEnabled());

    // Another process flips the switch, then announces it.
    Preferences other(device.platform().preferences->directory());
    ASSERT_TRUE(other.setValue(true, "SwitchLogging", "com.tamber.tessel"));
    device.systemNotificationCenter().postNotification("com.tamber.tessel.prefsChanged");
    device.waitUntilIdle();
    EXPECT_TRUE(logger->isEnabled());
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
    // A badge set by the system registers the application, which asks the user first.
    KTSystemDidSetBadgeForBundleIdentifier("com.example.app");
    device.waitUntilIdle();
    EXPECT_EQ(device.systemAlerts().shown().size(), 1u);
}

TEST(ExportedFunctions, TheCallbackTableAnswersThroughTheAdapter)
{
    struct Host {
        std::vector<std::string> asked;
        std::vector<uint8_t> payload;
        int completions = 0;
    } host;
    KTSystemStateProvidingCallbacks callbacks {};
    callbacks.context = &host;
    callbacks.isApplicationInstalled = [](void* context, const char* bundleIdentifier) {
        static_cast<Host*>(context)->asked.push_back(bundleIdentifier);
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
              static_cast<Host*>(context)->payload.assign(userInfo, userInfo + length);
              completion(completionContext);
          };
    KTSystemStateProvidingCallbacksAdapter adapter(callbacks);

    EXPECT_TRUE(adapter.isApplicationInstalled("com.installed"));
    EXPECT_FALSE(adapter.isApplicationInstalled("com.other"));
    EXPECT_FALSE(adapter.isApplicationRestricted("com.installed")) << "a missing callback answers false";
    EXPECT_EQ(host.asked, (std::vector<std::string> { "com.installed", "com.other" }));

    int64_t count = 2;
    int64_t day = 0;
    EXPECT_TRUE(
        adapter.shouldThrottleContentNotificationForApplicatin("com.installed", Date(86400 * 3), count, day));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(day, 3);

    Value payload(Value::Dictionary { { "aps", Value(Value::Dictionary { { "content-available", 1 } }) } });
    adapter.handleContentAvailableNotificationForApplication(
        "com.installed", payload, 10, [&host] { host.completions++; });
    EXPECT_EQ(host.completions, 1);
    EXPECT_EQ(PropertyList::read(host.payload), payload);
    adapter.handleGazetteNotificationForApplication("com.installed", payload);
}

TEST(SafeBoolValue, AnswersOnlyForNumbersAndStrings)
{
    EXPECT_TRUE(kt_safeBoolValue(Value("YES")));
    EXPECT_TRUE(kt_safeBoolValue(Value(2)));
    EXPECT_FALSE(kt_safeBoolValue(Value()));
    EXPECT_FALSE(kt_safeBoolValue(Value(Value::Array { Value(1) })));
    EXPECT_FALSE(kt_safeBoolValue(Value(Date(1))));
}

} // namespace
