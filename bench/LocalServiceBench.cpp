// Starting the local notification service with 500 installed applications,
// each holding 64 persisted notifications (clients created, timers armed),
// against reading the same 500 lists from the data store.
#include "BenchDevice.h"
#include "local/KTLocalNotificationService.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/ManualClock.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"

#include <benchmark/benchmark.h>
#include <tessel/Tessel.h>

#include <malloc.h>

using namespace tessel;

namespace {

constexpr int applicationCount = 500;

std::string identifier(int i) { return "com.example.fleet" + std::to_string(i); }

// Installed once for the run: system applications that require local
// notifications, so every client arms a timer whatever the settings say.
void installFleet()
{
    static bool installed = [] {
        auto& device = benchDevice();
        LocalNotification::registerArchivableClasses();
        Date now = device.clock().now();
        for (int i = 0; i < applicationCount; ++i) {
            device.applicationWorkspace().install({ .identifier = identifier(i),
                .type = "System",
                .info = { { "KTRequiresLocalNotifications", true } } });
            Value::Array list;
            for (int n = 0; n < 64; ++n) {
                auto notification = std::make_shared<LocalNotification>();
                notification->setFireDate(now.addingTimeInterval(3600.0 * (n + 1) + i));
                notification->setRepeatInterval(CalendarUnit::Day);
                notification->setAlertBody("A message of an ordinary length for a scheduled notification");
                notification->setCategory("REMINDER");
                list.emplace_back(notification);
            }
            ApplicationDataStore::storeForApplication(identifier(i))
                ->setArchivedObject(Value(std::move(list)), KTApplicationDataStoreLocalNotificationsKey);
        }
        return true;
    }();
    (void)installed;
}

// Heap bytes in use: resident size hides what malloc reuses from earlier benchmarks.
double heapKiB()
{
    auto info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd) / 1024.0;
}

void BM_ServiceStart500(benchmark::State& state)
{
    installFleet();
    double perClient = 0;
    for (auto _ : state) {
        double before = heapKiB();
        auto service = std::make_shared<KTLocalNotificationService>();
        service->start();
        service->queue()->sync([] {});
        state.PauseTiming();
        perClient = (heapKiB() - before) / applicationCount;
        if (benchDevice().clock().pendingTimerCount() < applicationCount)
            state.SkipWithError("not every client armed its timer");
        service->queue()->sync([&] { service.reset(); });
        state.ResumeTiming();
    }
    state.counters["heapKiBPerClient"] = perClient;
}
BENCHMARK(BM_ServiceStart500)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Read500Lists(benchmark::State& state)
{
    installFleet();
    UnarchiveOptions options { .unknownClassesDecodeAsNull = true };
    for (auto _ : state) {
        for (int i = 0; i < applicationCount; ++i) {
            benchmark::DoNotOptimize(ApplicationDataStore::storeForApplication(identifier(i))
                                         ->archivedObjectForKey(KTApplicationDataStoreLocalNotificationsKey,
                                             options, Value::Type::Array));
        }
    }
}
BENCHMARK(BM_Read500Lists)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
