#include "platform/records/LocalNotification.h"

#include <benchmark/benchmark.h>

using namespace tessel;

namespace {

constexpr int minutesPerDay = 1440;

void BM_FireDates1440Minutely(benchmark::State& state)
{
    LocalNotification notification;
    notification.setFireDate(Date(700000000));
    notification.setTimeZone("Europe/Berlin");
    notification.setRepeatInterval(CalendarUnit::Minute);
    std::optional<std::string> zone("Europe/Berlin");
    for (auto _ : state) {
        Date date(700000000);
        for (int minute = 0; minute < minutesPerDay; ++minute)
            date = notification.nextFireDateAfterDate(date, zone).value_or(date);
        benchmark::DoNotOptimize(date);
    }
    state.SetItemsProcessed(state.iterations() * minutesPerDay);
}
BENCHMARK(BM_FireDates1440Minutely);

void BM_AddSeconds1440(benchmark::State& state)
{
    for (auto _ : state) {
        Date date(700000000);
        for (int minute = 0; minute < minutesPerDay; ++minute) {
            date = date.addingTimeInterval(60);
            benchmark::DoNotOptimize(date);
        }
    }
    state.SetItemsProcessed(state.iterations() * minutesPerDay);
}
BENCHMARK(BM_AddSeconds1440);

} // namespace
