// Saving into a full store against a bare atomic write of the same bytes.
#include "BenchDevice.h"
#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <benchmark/benchmark.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

class CountingObserver : public KTNotificationStoreObserver {
public:
    void pushStoreNotificationsDidChange() override { ++changes; }
    void pushStoreClearedNotifications() override { }
    std::atomic<int> changes { 0 };
};

SimulatedDevice& device() { return benchDevice(); }

void saveOne(KTNotificationStore& store, int64_t i)
{
    store.saveRemoteNotificationWithTitle("Title", "A message of an ordinary length for a notification", {},
        {}, Value(i), Value(Value::Dictionary { { "id", Value(i) }, { "kind", "chat" } }), {}, {},
        "com.example.bench");
}

void storeSave(benchmark::State& state, bool durable)
{
    device().platform().durableWrites = durable;
    auto store = KTNotificationStore::sharedInstance();
    store->addObserver(std::make_shared<CountingObserver>(), "com.example.bench");
    for (int i = 0; i < 101; ++i)
        saveOne(*store, i);
    int64_t i = 0;
    for (auto _ : state) {
        saveOne(*store, i++);
        WorkQueue::waitUntilIdle();
    }
    device().platform().durableWrites = true;
    state.counters["bytes"]
        = static_cast<double>(store->savedNotificationDataForBundleID("com.example.bench")->size());
}

void bareWrite(benchmark::State& state, bool durable)
{
    auto store = KTNotificationStore::sharedInstance();
    for (int i = 0; i < 101; ++i)
        saveOne(*store, i);
    auto bytes = *store->savedNotificationDataForBundleID("com.example.bench");
    auto path = Path::appendingComponent(device().libraryDirectory(), "bare.pushstore");
    for (auto _ : state)
        FileManager::writeAtomically(path, bytes, nullptr, durable);
    state.counters["bytes"] = static_cast<double>(bytes.size());
}

void BM_StoreSaveInto100(benchmark::State& state) { storeSave(state, true); }
void BM_DurableAtomicWrite(benchmark::State& state) { bareWrite(state, true); }
void BM_StoreSaveInto100WithoutSync(benchmark::State& state) { storeSave(state, false); }
void BM_AtomicWriteWithoutSync(benchmark::State& state) { bareWrite(state, false); }

void BM_MakeTestNotificationStores(benchmark::State& state)
{
    device();
    auto store = KTNotificationStore::sharedInstance();
    for (auto _ : state)
        store->makeTestNotificationStores();
}

BENCHMARK(BM_StoreSaveInto100)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_DurableAtomicWrite)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_StoreSaveInto100WithoutSync)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_AtomicWriteWithoutSync)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_MakeTestNotificationStores)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

} // namespace
