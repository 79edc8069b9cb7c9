// The scheduler service as an application reaches it: 64 notifications
// scheduled through the client library over a private bus, against the same
// schedule made in process; and, on the real clock, the time from each
// notification's fire date to the observing client hearing it fire.
#include "BenchBus.h"
#include "BenchDevice.h"
#include "Latch.h"
#include "Latencies.h"
#include "ipc/KTNotificationSchedulerConnectionListener.h"
#include "local/KTLocalNotificationService.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "services/KTSConstants.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <mutex>
#include <tessel/Tessel.h>
#include <tessel/TesselServices.h>
#include <thread>

using namespace tessel;

namespace {

constexpr const char* bundleID = "com.example.scheduling";
// A client fires what falls due within a second of its timer, so firings a
// second apart need several applications to interleave.
constexpr int firingApplications = 10;

std::string firingApplication(int index) { return "com.example.firing" + std::to_string(index); }

// The real listener and local service of the bench device, published on a bus of the run's own.
struct SchedulerDaemon {
    SchedulerDaemon()
    {
        auto& device = benchDevice();
        // The bench acts for the firing applications too.
        device.applicationWorkspace().install({ .identifier = bundleID,
            .type = "System",
            .info = { { "KTRequiresLocalNotifications", true } },
            .entitlements = { { KTSNotificationSchedulerProxyEntitlementName, true } } });
        for (int index = 0; index < firingApplications; ++index)
            device.applicationWorkspace().install({ .identifier = firingApplication(index),
                .type = "System",
                .info = { { "KTRequiresLocalNotifications", true } } });
        if (bus.address().empty())
            return;
        device.platform().ipc = std::make_shared<DbusIpcService>(bus.address(), IpcLimits {},
            [](int32_t, uint32_t) { return IpcPeer { .bundleIdentifier = bundleID }; });
        KTLocalNotificationService::sharedInstance();
        listener = KTNotificationSchedulerConnectionListener::init();
        device.waitUntilIdle();
    }
    ~SchedulerDaemon()
    {
        if (listener)
            listener->invalidate();
    }

    BenchBus bus;
    std::shared_ptr<KTNotificationSchedulerConnectionListener> listener;
};

SchedulerDaemon& daemon()
{
    static SchedulerDaemon instance;
    return instance;
}

LocalNotificationFields fields(double fireDate, int index)
{
    return { .fireDate = fireDate,
        .repeatInterval = index % 2 ? RepeatUnit::Day : RepeatUnit::None,
        .alertBody = "Reminder " + std::to_string(index),
        .soundName = LocalNotificationFields::defaultSoundName };
}

void BM_ScheduleOverBus64(benchmark::State& state)
{
    if (!daemon().listener)
        return state.SkipWithError("no private bus");
    KTSNotificationSchedulerClient client({ .busAddress = daemon().bus.address() });
    double now = benchDevice().clock().now().timeIntervalSinceReferenceDate();
    std::vector<ArchivedRecord> list;
    for (int index = 0; index < 64; ++index)
        list.push_back(*fields(now + 3600.0 * (index + 1), index).archive());
    Latch answers;
    int64_t sent = 0;
    for (auto _ : state) {
        client.setScheduledLocalNotifications(list, bundleID, [&] { answers.signal(); });
        answers.waitFor(++sent);
    }
}
BENCHMARK(BM_ScheduleOverBus64)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ScheduleInProcess64(benchmark::State& state)
{
    if (!daemon().listener)
        return state.SkipWithError("no private bus");
    Date now = benchDevice().clock().now();
    KTLocalNotificationService::List list;
    for (int index = 0; index < 64; ++index) {
        auto notification = std::make_shared<LocalNotification>();
        notification->setFireDate(now.addingTimeInterval(3600.0 * (index + 1)));
        notification->setRepeatInterval(index % 2 ? CalendarUnit::Day : CalendarUnit::None);
        notification->setAlertBody("Reminder " + std::to_string(index));
        notification->setSoundName(LocalNotificationDefaultSoundName);
        list.push_back(notification);
    }
    auto service = KTLocalNotificationService::sharedInstance();
    Latch answers;
    int64_t sent = 0;
    for (auto _ : state) {
        service->setScheduledLocalNotifications(list, bundleID, [&] { answers.signal(); });
        answers.waitFor(++sent);
    }
}
BENCHMARK(BM_ScheduleInProcess64)->Unit(benchmark::kMillisecond)->UseRealTime();

// 200 firings on the real clock: 10 applications, each with 20 notifications
// 1.1 s apart, offset from each other by 110 ms; each firing's delay from its
// fire date to the observer, as percentiles.
void BM_FiringToObserver200(benchmark::State& state)
{
    if (!daemon().listener)
        return state.SkipWithError("no private bus");
    constexpr int perApplication = 20;
    auto& platform = benchDevice().platform();
    auto manualClock = platform.clock;
    platform.clock = std::make_shared<SystemClock>(std::string());
    Latencies latencies;
    std::mutex lock;
    Latch fired;
    KTSNotificationSchedulerClient client({ .busAddress = daemon().bus.address() });
    client.setObserver({ .didFireLocalNotifications = [&](auto& list, auto&) {
        double heard = platform.clock->now().timeIntervalSinceReferenceDate();
        for (auto& record : list) {
            auto notification = LocalNotificationFields::unarchive(record);
            std::lock_guard guard(lock);
            if (notification && notification->fireDate)
                latencies.add((heard - *notification->fireDate) * 1e6);
            fired.signal();
        }
    } });
    Latch ready;
    for (int app = 0; app < firingApplications; ++app)
        client.setObservingScheduledLocalNotifications(true, firingApplication(app), [&] { ready.signal(); });
    ready.waitFor(firingApplications);
    for (auto _ : state) {
        double start = platform.clock->now().timeIntervalSinceReferenceDate() + 1;
        for (int app = 0; app < firingApplications; ++app) {
            std::vector<ArchivedRecord> list;
            for (int index = 0; index < perApplication; ++index)
                list.push_back(*fields(start + 0.11 * app + 1.1 * index, 0).archive());
            client.setScheduledLocalNotifications(list, firingApplication(app));
        }
        if (!fired.waitFor(firingApplications * perApplication, std::chrono::seconds(60)))
            state.SkipWithError("not every firing was heard");
    }
    latencies.report(state);
    benchDevice().waitUntilIdle();
    platform.clock = manualClock;
}
BENCHMARK(BM_FiringToObserver200)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
