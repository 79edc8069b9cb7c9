// The daemon's answers about applications: declarations from the registry,
// the restricted list and the daily content-push limit from its preferences.
#include "platform/files/Preferences.h"
#include "platform/linux/LinuxApplicationLauncher.h"
#include "platform/linux/LinuxSystemState.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"

#include <gtest/gtest.h>

using namespace tessel;

namespace {

class SystemState : public ::testing::Test {
protected:
    void SetUp() override
    {
        state = std::make_shared<LinuxSystemState>(device.platform().workspace, device.platform().preferences,
            std::make_shared<LinuxApplicationLauncher>(device.platform().workspace, "unix:path=/nonexistent"));
    }
    void setPreference(const Value& value, std::string_view key)
    {
        ASSERT_TRUE(device.platform().preferences->setValue(value, key, LinuxSystemState::preferencesDomain));
    }

    SimulatedDevice device;
    std::shared_ptr<LinuxSystemState> state;
};

TEST_F(SystemState, DeclarationsComeFromTheApplicationsInfo)
{
    struct Case {
        const char* id;
        Value::Dictionary info;
        bool gazette, gazetteContent, refresh, remote;
    } cases[] = {
        { "org.example.plain", {}, false, false, false, false },
        { "org.example.array",
            { { "BackgroundModes", Value::Array { "fetch", "remote-notification" } } }, false, false, true, true },
        { "org.example.entry", { { "BackgroundModes", "gazette-content;fetch" }, { "GazetteApplication", true } },
            true, true, true, false },
        { "org.example.partial", { { "BackgroundModes", "fetcher;remote" } }, false, false, false, false },
        { "org.example.wrong", { { "BackgroundModes", 3 }, { "GazetteApplication", "no" } }, false, false, false,
            false },
    };
    for (const auto& entry : cases)
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = entry.id, .info = entry.info }));
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.id);
        EXPECT_TRUE(state->isApplicationInstalled(entry.id));
        EXPECT_EQ(state->isGazetteApplication(entry.id), entry.gazette);
        EXPECT_EQ(state->isGazetteContentBackgroundModeSupportedForApplication(entry.id), entry.gazetteContent);
        EXPECT_EQ(state->isBackgroundAppRefreshSupportedForApplication(entry.id), entry.refresh);
        EXPECT_EQ(state->isRemoteNotificationBackgroundModeSupportedForApplication(entry.id), entry.remote);
    }
    EXPECT_FALSE(state->isApplicationInstalled("org.example.missing"));
}

TEST_F(SystemState, RestrictedApplicationsAreListedInThePreferences)
{
    EXPECT_FALSE(state->isApplicationRestricted("org.example.kid"));
    setPreference(Value::Array { "org.example.kid", 4 }, LinuxSystemState::restrictedApplicationsKey);
    EXPECT_TRUE(state->isApplicationRestricted("org.example.kid"));
    EXPECT_FALSE(state->isApplicationRestricted("org.example.adult"));
}

TEST_F(SystemState, ContentPushesAreCountedPerLocalDay)
{
    setPreference(2, LinuxSystemState::contentPushDailyLimitKey);
    device.platform().setTimeZone("Europe/Berlin");
    // 2026-11-24 22:30 and 23:30 UTC: the second is already the 25th in Berlin.
    auto evening = Date::fromTimeIntervalSince1970(1795559400);
    auto nextDay = Date::fromTimeIntervalSince1970(1795563000);
    int64_t count = 0, day = 0;
    struct Step {
        Date date;
        bool throttled;
        int64_t count;
    } steps[] = { { evening, false, 1 }, { evening, false, 2 }, { evening, true, 2 }, { nextDay, false, 1 } };
    for (const auto& step : steps) {
        EXPECT_EQ(state->shouldThrottleContentNotificationForApplicatin("org.example.news", step.date, count, day),
            step.throttled);
        EXPECT_EQ(count, step.count);
    }
    EXPECT_EQ(day, LinuxSystemState::localDayNumber(nextDay, "Europe/Berlin"));
    EXPECT_EQ(LinuxSystemState::localDayNumber(nextDay, "UTC"), LinuxSystemState::localDayNumber(evening, "UTC"));
}

} // namespace
