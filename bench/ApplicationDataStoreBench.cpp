// One data store write and read of a list the size of 64 scheduled
// notifications, against a durable atomic file write of the same bytes.
#include "platform/applications/ApplicationDataStore.h"
#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <stdexcept>

using namespace tessel;

namespace {

// Its own directory and database, without installing a platform: other
// benchmarks in the run depend on the one they installed.
class Scratch {
public:
    Scratch()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/tessel-datastore-bench-XXXXXX";
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("cannot create a directory for the benchmark");
        directory = pattern;
        store = std::make_shared<ApplicationDataStore>("com.example.bench",
            std::make_shared<ApplicationDataStoreDatabase>(
                Path::appendingComponent(directory, ApplicationDataStoreDatabase::fileName)));
    }
    ~Scratch() { FileManager::removeItemAtPath(directory); }

    std::string directory;
    std::shared_ptr<ApplicationDataStore> store;
};

Scratch& scratch()
{
    static Scratch shared;
    return shared;
}

Value makeList(int version)
{
    Value::Array list;
    for (int i = 0; i < 64; ++i)
        list.emplace_back(Value::Dictionary {
            { "identifier", "reminder-" + std::to_string(i) },
            { "title", "Reminder" },
            { "body", "A message of an ordinary length for a scheduled notification" },
            { "category", "REMINDER" },
            { "sound", "default" },
            { "fireDate", Value(Date(757382400.0 + 3600.0 * i)) },
            { "badge", Value(i == 0 ? version : i) },
            { "repeatInterval", Value(86400) },
        });
    return Value(std::move(list));
}

// Two versions differing in one badge: the database skips rewriting a row
// that holds the same bytes, so writing one value over and over measures nothing.
const Value& scheduledNotifications(int64_t version = 0)
{
    static const Value lists[2] = { makeList(0), makeList(1) };
    return lists[version & 1];
}

constexpr const char* key = "ScheduledLocalNotifications";

void BM_DataStoreWrite64(benchmark::State& state)
{
    auto& store = *scratch().store;
    int64_t version = 0;
    for (auto _ : state)
        if (!store.setArchivedObject(scheduledNotifications(++version), key))
            state.SkipWithError("write failed");
    state.counters["bytes"]
        = static_cast<double>(KeyedArchive::archivedData(scheduledNotifications())->size());
}

void BM_DataStoreRead64(benchmark::State& state)
{
    auto& store = *scratch().store;
    store.setArchivedObject(scheduledNotifications(), key);
    for (auto _ : state) {
        auto list = store.archivedObjectForKey(key, {}, Value::Type::Array);
        if (list.length() != 64)
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(list);
    }
}

void BM_DurableWriteSameBytes(benchmark::State& state)
{
    auto bytes = *KeyedArchive::archivedData(scheduledNotifications());
    auto path = Path::appendingComponent(scratch().directory, "same-bytes.archive");
    for (auto _ : state)
        if (!FileManager::writeAtomically(path, bytes, nullptr, true))
            state.SkipWithError("write failed");
    state.counters["bytes"] = static_cast<double>(bytes.size());
}

// The encoding share of a write.
void BM_DataStoreArchive64(benchmark::State& state)
{
    int64_t version = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(KeyedArchive::archivedData(scheduledNotifications(++version)));
}

BENCHMARK(BM_DataStoreWrite64)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_DataStoreRead64)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_DataStoreArchive64)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DurableWriteSameBytes)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
