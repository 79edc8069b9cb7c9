// Handling a push message that ends as a stored notification (a localized
// alert, the application's store already full) against saving the same record
// into the store directly.
#include "BenchDevice.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/NotificationCenter.h"
#include "platform/push/PushEnvironment.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedPushService.h"
#include "platform/sim/SimulatedSystemState.h"
#include "remote/KTRemoteNotificationServer.h"
#include "store/KTNotificationStore.h"

#include <benchmark/benchmark.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

constexpr const char* bundle = "com.example.pushbench";

const Value& payload()
{
    static const Value made(Value::Dictionary {
        { "rlx",
            Value(Value::Dictionary {
                { "alert",
                    Value(Value::Dictionary { { "loc-key", "NEW_PHOTO" },
                        { "loc-args", Value(Value::Array { "Ann", "a photo of the harbour" }) } }) },
                { "sound", "default" }, { "badge", 1 } }) },
        { "conversation", "c-2291" } });
    return made;
}

// The server and its connection, made once: push enabled through notifications.
std::shared_ptr<SimulatedPushConnection> pushConnection()
{
    static std::shared_ptr<KTRemoteNotificationServer> server;
    static auto connection = [] {
        auto& device = benchDevice();
        device.applicationWorkspace().install({ .identifier = bundle,
            .strings = { { "en", { { "Localizable", { { "NEW_PHOTO", "%@ sent you %@" } } } } } } });
        server = KTRemoteNotificationServer::initWithSystemStateProvider(
            std::make_shared<SimulatedSystemState>());
        device.platform().notificationCenter->postNotification(KTNotificationSettingsDidChangeNotification,
            nullptr,
            Value::Dictionary {
                { KTNotificationBundleIdentifierKey, bundle }, { KTNotificationEnabledKey, true } });
        WorkQueue::waitUntilIdle();
        server->requestRemoteNotificationTokenWithEnvironment(PushEnvironmentProduction, bundle);
        WorkQueue::waitUntilIdle();
        return device.pushService().connection(PushEnvironmentProduction);
    }();
    return connection;
}

void saveDirectly(KTNotificationStore& store)
{
    store.saveRemoteNotificationWithTitle({}, "Ann sent you a photo of the harbour",
        kKTNotificationStoreSoundDefault, {}, Value(1), payload(), {}, {}, bundle);
}

void fillStore()
{
    auto store = KTNotificationStore::sharedInstance();
    for (int i = 0; i < 100; ++i)
        saveDirectly(*store);
    WorkQueue::waitUntilIdle();
}

void BM_PushMessageStored(benchmark::State& state)
{
    auto connection = pushConnection();
    fillStore();
    for (auto _ : state) {
        connection->sendIncomingMessage({ bundle, payload(), 10, Date(0) });
        WorkQueue::waitUntilIdle();
    }
}

void BM_PushRecordSavedDirectly(benchmark::State& state)
{
    pushConnection();
    fillStore();
    auto store = KTNotificationStore::sharedInstance();
    for (auto _ : state) {
        saveDirectly(*store);
        WorkQueue::waitUntilIdle();
    }
}

BENCHMARK(BM_PushMessageStored)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_PushRecordSavedDirectly)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
