// Scheduling a full list of 64 notifications for one application against
// persisting the same list, arming after a save, and a one-day fetch request.
#include "BenchDevice.h"
#include "local/KTLocalNotificationClient.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"
#include "store/KTNotificationStore.h"

#include <benchmark/benchmark.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

using List = KTLocalNotificationClient::LocalNotificationList;

struct Client {
    explicit Client(const std::string& bundleIdentifier)
    {
        benchDevice();
        queue->sync(
            [&] { client = KTLocalNotificationClient::create(bundleIdentifier, false, false, true, queue); });
    }
    ~Client()
    {
        queue->sync([&] { client.reset(); });
    }

    std::shared_ptr<WorkQueue> queue = WorkQueue::create("com.tamber.KTLocalNotificationService");
    std::shared_ptr<KTLocalNotificationClient> client;
};

List sixtyFour()
{
    Date now = benchDevice().clock().now();
    List list;
    for (int i = 0; i < 64; ++i) {
        auto n = std::make_shared<LocalNotification>();
        // Latest first, so the sort has work to do.
        n->setFireDate(now.addingTimeInterval(3600.0 * (64 - i)));
        n->setRepeatInterval(CalendarUnit::Day);
        n->setAlertBody("A message of an ordinary length for a scheduled notification");
        n->setAlertTitle("Reminder");
        n->setCategory("REMINDER");
        n->setSoundName(LocalNotificationDefaultSoundName);
        n->setUserInfo({ { "identifier", "reminder-" + std::to_string(i) } });
        list.push_back(std::move(n));
    }
    return list;
}

// Re-scheduling the same 64: the stored list is read back (the application is
// not running, so nothing is cached), each one replaces its equal, then sort,
// bound, persist and arm.
void BM_Schedule64(benchmark::State& state)
{
    Client fixture("com.example.bench.schedule");
    auto list = sixtyFour();
    for (auto _ : state)
        fixture.queue->sync([&] { fixture.client->scheduleLocalNotifications(list, false); });
}
BENCHMARK(BM_Schedule64)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Replacing also rewrites the application's delivered notifications durably.
void BM_ScheduleReplacing64(benchmark::State& state)
{
    Client fixture("com.example.bench.replace");
    auto list = sixtyFour();
    for (auto _ : state)
        fixture.queue->sync([&] { fixture.client->scheduleLocalNotifications(list, true); });
}
BENCHMARK(BM_ScheduleReplacing64)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_Persist64(benchmark::State& state)
{
    benchDevice();
    auto store = ApplicationDataStore::storeForApplication("com.example.bench.persist");
    Value list = KTLocalNotificationClient::listValue(sixtyFour());
    for (auto _ : state)
        benchmark::DoNotOptimize(store->setArchivedObject(list, KTApplicationDataStoreLocalNotificationsKey));
}
BENCHMARK(BM_Persist64)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The application is not running, so arming reads the list back from the store.
void BM_ArmAfterSave64(benchmark::State& state)
{
    Client fixture("com.example.bench.arm");
    auto list = sixtyFour();
    fixture.queue->sync([&] { fixture.client->scheduleLocalNotifications(list, true); });
    for (auto _ : state)
        fixture.queue->sync([&] { fixture.client->_updateLocalNotificationTimers(); });
}
BENCHMARK(BM_ArmAfterSave64)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_FetchDay1440(benchmark::State& state)
{
    Client fixture("com.example.bench.fetch");
    Date now = benchDevice().clock().now();
    auto minutely = std::make_shared<LocalNotification>();
    minutely->setFireDate(now.addingTimeInterval(30));
    minutely->setRepeatInterval(CalendarUnit::Minute);
    fixture.queue->sync([&] { fixture.client->scheduleLocalNotifications({ minutely }, true); });
    KTSNotificationScheduleFetchRequest request;
    request.setStartDate(now);
    request.setEndDate(now.addingTimeInterval(86400));
    size_t entries = 0;
    for (auto _ : state)
        entries
            = fixture.queue->sync([&] { return fixture.client->scheduleForFetchRequest(request)->count(); });
    state.counters["entries"] = static_cast<double>(entries);
}
BENCHMARK(BM_FetchDay1440)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
