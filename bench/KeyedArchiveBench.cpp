#include "platform/archive/KeyedArchive.h"

#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <string>

using namespace tessel;

namespace {

constexpr int recordCount = 101;

std::string messageText(int i) { return "Your build " + std::to_string(i) + " finished with 3 warnings"; }

plist_t plainRecords()
{
    plist_t list = plist_new_array();
    for (int i = 0; i < recordCount; ++i) {
        plist_t record = plist_new_dict();
        plist_dict_set_item(record, "AppNotificationMessage", plist_new_string(messageText(i).c_str()));
        plist_dict_set_item(record, "AppNotificationTitle", plist_new_string("Build finished"));
        plist_dict_set_item(record, "AppNotificationCreationDate", plist_new_date(700000000 + i, 250000));
        plist_dict_set_item(record, "AppNotificationBadgeNumber", plist_new_uint(static_cast<uint64_t>(i)));
        plist_dict_set_item(record, "AppNotificationType", plist_new_string("banner"));
        plist_t info = plist_new_dict();
        plist_dict_set_item(info, "project", plist_new_string("tessel"));
        plist_dict_set_item(info, "run", plist_new_uint(static_cast<uint64_t>(i * 7)));
        plist_dict_set_item(info, "url", plist_new_string("https://ci.example.org/run"));
        plist_dict_set_item(record, "AppNotificationUserInfo", info);
        plist_array_append_item(list, record);
    }
    return list;
}

Value valueRecords()
{
    Value::Array list;
    for (int i = 0; i < recordCount; ++i) {
        Value::Dictionary info { { "project", "tessel" }, { "run", i * 7 },
            { "url", "https://ci.example.org/run" } };
        list.push_back(Value::Dictionary {
            { "AppNotificationMessage", messageText(i) },
            { "AppNotificationTitle", "Build finished" },
            { "AppNotificationCreationDate", Date(700000000.25 + i) },
            { "AppNotificationBadgeNumber", i },
            { "AppNotificationType", "banner" },
            { "AppNotificationUserInfo", std::move(info) },
        });
    }
    return list;
}

void BM_PlainPlistRecords101(benchmark::State& state)
{
    plist_t records = plainRecords();
    for (auto _ : state) {
        char* bytes = nullptr;
        uint32_t length = 0;
        plist_to_bin(records, &bytes, &length);
        plist_t parsed = nullptr;
        plist_from_bin(bytes, length, &parsed);
        benchmark::DoNotOptimize(parsed);
        plist_free(parsed);
        plist_to_bin_free(bytes);
    }
    plist_free(records);
}
BENCHMARK(BM_PlainPlistRecords101);

void BM_KeyedArchiveRecords101(benchmark::State& state)
{
    Value records = valueRecords();
    for (auto _ : state) {
        auto bytes = KeyedArchive::archivedData(records);
        auto decoded = KeyedArchive::unarchive(*bytes);
        benchmark::DoNotOptimize(decoded);
    }
}
BENCHMARK(BM_KeyedArchiveRecords101);

} // namespace
