// Presenting a store change where one record of 101 is new, against loading
// the same store: the diff and the one bulletin should cost little beyond the load.
#include "BenchDevice.h"
#include "bulletins/KTDefaultDataProvider.h"
#include "platform/Platform.h"
#include "platform/bulletins/DataProviderProxy.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/sim/ManualClock.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <atomic>
#include <benchmark/benchmark.h>

using namespace tessel;

namespace {

constexpr const char* bundleID = "com.example.present";

class CountingProxy final : public DataProviderProxy {
public:
    void addBulletin(const BulletinRequest&, bool) override { ++added; }
    void addBulletin(const BulletinRequest&, BulletinDestinations) override { ++added; }
    void withdrawBulletinWithPublisherBulletinID(const std::string&) override { ++withdrawn; }
    void invalidateBulletins() override { }
    void updateClearedInfoWithHandler(ClearedInfoHandler) override { }

    std::atomic<int64_t> added { 0 };
    std::atomic<int64_t> withdrawn { 0 };
};

void ensureDevice() { benchDevice(); }

int64_t counter = 0;

// Outside the measurement: one more record, the oldest one falls out.
void saveOne(KTNotificationStore& store)
{
    ++counter;
    // Records of one instant with equal texts would share an identifier.
    if (auto clock = std::dynamic_pointer_cast<ManualClock>(Platform::current().clock))
        clock->advance(1);
    Platform::current().durableWrites = false;
    store.saveRemoteNotificationWithTitle("Title", "A message of an ordinary length for a notification", {},
        {}, {}, Value(Value::Dictionary { { "id", Value(counter) }, { "kind", "chat" } }), {}, {}, bundleID);
    Platform::current().durableWrites = true;
    WorkQueue::waitUntilIdle();
}

void fill(KTNotificationStore& store)
{
    for (int i = 0; i < 101; ++i)
        saveOne(store);
}

void BM_PresentOneNewOf101(benchmark::State& state)
{
    ensureDevice();
    auto store = KTNotificationStore::sharedInstance();
    fill(*store);
    auto queue = WorkQueue::create("com.tamber.KTDefaultDataProviderFactory");
    auto provider = std::make_shared<KTDefaultDataProvider>(bundleID, "Bench", queue);
    // The store's own notifications would present during the pause; the
    // measured loop tells the provider itself instead.
    provider->invalidate();
    auto proxy = std::make_shared<CountingProxy>();
    provider->setProxy(proxy);
    for (auto _ : state) {
        state.PauseTiming();
        saveOne(*store);
        state.ResumeTiming();
        provider->pushStoreNotificationsDidChange();
        WorkQueue::waitUntilIdle();
    }
    if (proxy->added != static_cast<int64_t>(state.iterations()))
        state.SkipWithError("not exactly one bulletin per change");
    state.counters["withdrawn"]
        = benchmark::Counter(static_cast<double>(proxy->withdrawn), benchmark::Counter::kAvgIterations);
    provider->invalidate();
}

void BM_LoadStoreOf101(benchmark::State& state)
{
    ensureDevice();
    auto store = KTNotificationStore::sharedInstance();
    fill(*store);
    auto queue = WorkQueue::create("com.tamber.KTDefaultDataProviderFactory");
    size_t count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        saveOne(*store);
        state.ResumeTiming();
        queue->async([&] { count = store->savedNotificationsForBundleID(bundleID).length(); });
        WorkQueue::waitUntilIdle();
    }
    if (count != 101)
        state.SkipWithError("the store does not hold 101 records");
}

BENCHMARK(BM_PresentOneNewOf101)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_LoadStoreOf101)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
