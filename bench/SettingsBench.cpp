// Registering settings for an application that is already registered (the
// steady state: the update path through the factory and the gateway), against
// one gateway read plus one write of the same section, each waited for. Both
// go to the section settings a machine keeps, the durable SQLite table, which
// is what a registration costs outside the simulation.
#include "BenchDevice.h"
#include "Latch.h"
#include "bulletins/KTDefaultDataProviderFactory.h"
#include "platform/Platform.h"
#include "platform/alerts/SystemAlert.h"
#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/bulletins/BulletinService.h"
#include "platform/bulletins/SettingsGateway.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/linux/LinuxBulletinService.h"
#include "platform/records/NotificationSettings.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "settings/KTNotificationSettingsService.h"

#include <benchmark/benchmark.h>
#include <condition_variable>
#include <mutex>

using namespace tessel;

namespace {

constexpr const char* bundleID = "com.example.settings";

std::shared_ptr<NotificationSettings> benchSettings()
{
    auto category = std::make_shared<NotificationCategory>("chat");
    category->setActions({ std::make_shared<NotificationAction>("reply", "Reply"),
                             std::make_shared<NotificationAction>("mute", "Mute") },
        NotificationAction::ContextDefault);
    return NotificationSettings::settingsForTypes(NotificationSettings::allTypes, { category });
}

// Installed, asked and allowed once, outside any measurement.
void ensureRegistered()
{
    static std::once_flag once;
    std::call_once(once, [] {
        auto& device = benchDevice();
        device.applicationWorkspace().install({ .identifier = bundleID, .displayName = "Settings" });
        device.systemAlerts().scriptAnswer(SystemAlertDefaultResponse);
        KTNotificationSettingsService::sharedInstance()->registerNotificationSettings(
            benchSettings(), bundleID, nullptr);
        WorkQueue::waitUntilIdle();
    });
}

void BM_RegisterSettingsAgain(benchmark::State& state)
{
    ensureRegistered();
    auto service = KTNotificationSettingsService::sharedInstance();
    auto settings = benchSettings();
    Latch latch;
    uint64_t types = 0;
    int64_t done = 0;
    for (auto _ : state) {
        service->registerNotificationSettings(
            settings, bundleID, [&](std::shared_ptr<NotificationSettings> answer) {
                types = answer->types();
                latch.signal();
            });
        latch.waitFor(++done);
    }
    if (types != NotificationSettings::allTypes || benchDevice().systemAlerts().shown().size() != 1)
        state.SkipWithError("not the registered steady state");
}

void BM_GatewayReadWriteSection(benchmark::State& state)
{
    ensureRegistered();
    auto queue = WorkQueue::create("com.tamber.KTDefaultDataProviderFactory");
    auto gateway = Platform::current().bulletinService->makeSettingsGateway(queue);
    Latch latch;
    int64_t done = 0;
    bool found = true;
    for (auto _ : state) {
        gateway->getSectionInfoForSectionID(bundleID, [&](std::optional<SectionInfo> info) {
            found = found && info;
            if (info)
                gateway->setSectionInfo(*info, bundleID);
            latch.signal();
        });
        latch.waitFor(++done);
    }
    if (!found)
        state.SkipWithError("no section to read");
}

BENCHMARK(BM_RegisterSettingsAgain)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_GatewayReadWriteSection)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
