// Push payloads as the network sends them, through the whole handling of an
// incoming message: nothing throws or crashes, an application in the foreground
// or without a registration never gets a stored notification, and what is
// stored has the types its readers rely on. A value that is not a dictionary
// is planted where the handler reads typed parts.
#include "core/KTSystemStateProviding.h"
#include "platform/archive/PropertyList.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/NotificationCenter.h"
#include "platform/processes/ApplicationStateMonitor.h"
#include "platform/push/PushEnvironment.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "platform/sim/SimulatedPushService.h"
#include "remote/KTRemoteNotificationServer.h"
#include "store/KTNotificationStore.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

constexpr const char* plainApp = "com.example.fuzz";
constexpr const char* gazetteApp = "com.example.gazette";
constexpr const char* foregroundApp = "com.example.foreground";
constexpr const char* unknownApp = "com.example.unknown";
constexpr const char* topics[]
    = { plainApp, gazetteApp, foregroundApp, unknownApp, "com.tamber.skyvault-container.com.example.fuzz" };

// Answers chosen per input; background work ends at once.
class Host final : public KTSystemStateProviding {
public:
    std::atomic<bool> throttle = false, backgroundMode = false;

    bool isApplicationInstalled(const std::string&) override { return true; }
    bool isApplicationRestricted(const std::string&) override { return false; }
    bool isGazetteApplication(const std::string& b) override { return b == gazetteApp; }
    bool isGazetteContentBackgroundModeSupportedForApplication(const std::string&) override { return false; }
    bool isBackgroundAppRefreshSupportedForApplication(const std::string&) override { return false; }
    bool isRemoteNotificationBackgroundModeSupportedForApplication(const std::string&) override
    {
        return backgroundMode;
    }
    bool shouldThrottleContentNotificationForApplicatin(
        const std::string&, Date date, int64_t& count, int64_t& day) override
    {
        // Negative counts included: the host is not trusted either.
        count = -count - 1;
        day = static_cast<int64_t>(date.timeIntervalSinceReferenceDate()) / 86400;
        return throttle;
    }
    void handleGazetteNotificationForApplication(const std::string&, const Value&) override { }
    void handleContentAvailableNotificationForApplication(
        const std::string&, const Value&, int64_t, std::function<void()> completion) override
    {
        completion();
    }
};

struct World {
    SimulatedDevice device;
    std::shared_ptr<Host> host = std::make_shared<Host>();
    std::shared_ptr<KTRemoteNotificationServer> server;
    std::shared_ptr<SimulatedPushConnection> connection;

    World()
    {
        device.platform().durableWrites = false;
        device.applicationWorkspace().install({ .identifier = plainApp,
            .strings
            = { { "en", { { "Localizable", { { "K", "%@ and %2$@ %% %d" }, { "A", "Open" } } } } } } });
        server = KTRemoteNotificationServer::initWithSystemStateProvider(host);
        device.waitUntilIdle();
        for (auto app : { plainApp, gazetteApp, foregroundApp }) {
            device.platform().notificationCenter->postNotification(
                KTNotificationSettingsDidChangeNotification, nullptr,
                Value::Dictionary {
                    { KTNotificationBundleIdentifierKey, app }, { KTNotificationEnabledKey, true } });
            device.waitUntilIdle();
            server->requestRemoteNotificationTokenWithEnvironment(PushEnvironmentProduction, app);
            device.waitUntilIdle();
        }
        device.processManager().launch(foregroundApp);
        device.applicationStates().reportStateChange(foregroundApp, ApplicationStateForeground);
        device.waitUntilIdle();
        connection = device.pushService().connection(PushEnvironmentProduction);
    }
};

uint64_t hashOf(const uint8_t* data, size_t size)
{
    uint64_t hash = 14695981039346656037ULL;
    for (size_t i = 0; i < size; ++i)
        hash = (hash ^ data[i]) * 1099511628211ULL;
    return hash;
}

Value plant(const Value& value, uint64_t choice)
{
    Value::Dictionary parts;
    switch (choice % 3) {
    case 0:
        return Value::Dictionary { { "rlx", value } };
    case 1:
        for (auto key : { "alert", "sound", "badge", "category" })
            parts[key] = value;
        break;
    default:
        for (auto key : { "loc-key", "loc-args", "body", "title-loc-key", "title-loc-args", "title",
                 "action-loc-key", "launch-image" })
            parts[key] = value;
        parts = Value::Dictionary { { "alert", Value(std::move(parts)) } };
    }
    if (choice & 4)
        parts["content-available"] = 1;
    return Value::Dictionary { { "rlx", Value(std::move(parts)) } };
}

bool isTextOrAbsent(const Value& record, const char* key)
{
    return !record.contains(key) || record[key].isString();
}

void checkStored(const std::string& bundleIdentifier)
{
    auto store = KTNotificationStore::sharedInstance();
    Value records = store->savedNotificationsForBundleID(bundleIdentifier);
    if ((bundleIdentifier == foregroundApp || bundleIdentifier == unknownApp) && !records.isNull())
        __builtin_trap();
    for (auto& record : records.arrayValue()) {
        for (auto key :
            { KTNotificationStoreMessageKey, KTNotificationStoreTitleKey, KTNotificationStoreActionTextKey,
                KTNotificationStoreSoundKey, KTNotificationStoreLaunchImageKey })
            if (!isTextOrAbsent(record, key))
                __builtin_trap();
        if (record.contains(KTNotificationStoreBadgeNumberKey)
            && !record[KTNotificationStoreBadgeNumberKey].isNumber())
            __builtin_trap();
    }
    store->clearNotificationsForBundleID(bundleIdentifier);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static World world;
    auto value = PropertyList::read(data, size);
    if (!value)
        return 0;
    uint64_t hash = hashOf(data, size);
    world.host->throttle = hash & 1;
    world.host->backgroundMode = hash & 2;
    Value userInfo = value->isDictionary() ? *value : plant(*value, hash >> 2);
    std::string topic = topics[(hash >> 8) % std::size(topics)];
    world.connection->sendIncomingMessage(
        { topic, userInfo, static_cast<int64_t>(hash >> 16), Date(static_cast<double>(hash % 1000000000)) });
    world.device.waitUntilIdle();
    for (auto app : { plainApp, gazetteApp, foregroundApp, unknownApp })
        checkStored(app);
    // Only the application in the foreground is handed the payload.
    auto& processes = world.device.processManager();
    if (processes.sentActions().size() != (topic == foregroundApp ? 1u : 0u))
        __builtin_trap();
    processes.clearSentActions();
    world.device.systemLog().clear();
    return 0;
}
