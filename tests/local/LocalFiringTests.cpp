#include "local/LocalClientFixture.h"

#include "platform/concurrency/PersistentTimer.h"
#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/files/Preferences.h"
#include "platform/processes/HandleLocalNotificationAction.h"
#include "platform/sim/SimulatedProcessManager.h"

#include <cmath>
#include <limits>

using namespace tessel;
using tessel::testing_support::LocalClientTest;

namespace {

class LocalFiring : public LocalClientTest {
protected:
    std::optional<Date> armedFor()
    {
        return onQueue([&]() -> std::optional<Date> {
            auto timer = client->localNotificationTimer();
            return timer ? std::optional(timer->fireDate()) : std::nullopt;
        });
    }

    std::vector<std::string> systemPosts;

    void observeSystemName(const std::string& name)
    {
        device.systemNotificationCenter().addObserver(
            name, [this](const std::string& posted) { systemPosts.push_back(posted); });
    }
};

TEST_F(LocalFiring, ArmsOneUserVisibleTimerForTheEarliestDateAndRearmsAfterFiring)
{
    makeClient();
    schedule({ dated(120, "second"), dated(60, "first"), regional("home") });
    auto timer = client->localNotificationTimer();
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->fireDate(), now().addingTimeInterval(60));
    EXPECT_EQ(timer->serviceIdentifier(), app);
    EXPECT_TRUE(timer->isUserVisible());
    EXPECT_EQ(device.clock().pendingTimerCount(), 1u);

    device.advance(60);
    EXPECT_EQ(bodies(fired), (Strings { "first" }));
    EXPECT_EQ(armedFor(), now().addingTimeInterval(60));
    device.advance(60);
    EXPECT_EQ(bodies(fired), (Strings { "first", "second" }));
    EXPECT_EQ(armedFor(), std::nullopt) << "a region never arms the timer";
    EXPECT_EQ(bodies(scheduled()), (Strings { "at home" }));
    EXPECT_EQ(deliveredCount(), 2u);
    EXPECT_TRUE(logged("[com.example.alarm] No upcoming local notifications"));
    EXPECT_TRUE(
        logged("[com.example.alarm] Steadfast timer fired: timer=<PersistentTimer com.example.alarm"));
}

TEST_F(LocalFiring, NotificationsDueTogetherFireInOneRunWithinTheTolerance)
{
    makeClient();
    Date at = now().addingTimeInterval(100);
    auto a = dated(100, "a");
    auto b = dated(100, "b");
    auto halfSecondLater = dated(100.5, "half a second later");
    auto tooLate = dated(101.5, "a second and a half later");
    schedule({ a, b, halfSecondLater, tooLate });

    device.clock().advance(100);
    device.waitUntilIdle();
    EXPECT_EQ(bodies(fired), (Strings { "a", "b", "half a second later" }));
    Date last = onQueue([&] { return client->_lastLocalNotificationFireDate(); });
    EXPECT_EQ(last, at.addingTimeInterval(0.5)) << "the latest fired occurrence";
    EXPECT_EQ(armedFor(), at.addingTimeInterval(1.5));
    EXPECT_TRUE(logged("Not firing non-due notification: application last fire date="));
}

TEST_F(LocalFiring, RepeatsCountDownEachFiringAndStopAtZero)
{
    makeClient();
    const int32_t infinite = LocalNotificationInfiniteRepeatCount;
    const std::pair<int32_t, int32_t> cases[] = { { 3, 2 }, { 1, 0 }, { infinite, infinite } };
    for (auto [repeats, remaining] : cases) {
        SCOPED_TRACE(repeats);
        fired.clear();
        schedule({ dated(10, "daily", CalendarUnit::Day, repeats) }, true);
        device.advance(10);
        ASSERT_EQ(fired.size(), 1u);
        EXPECT_EQ(fired[0]->remainingRepeatCount(), remaining);
        auto left = scheduled();
        ASSERT_EQ(left.size(), remaining ? 1u : 0u);
        if (remaining) {
            EXPECT_EQ(left[0]->remainingRepeatCount(), remaining);
        }
        EXPECT_EQ(armedFor(), remaining ? std::optional(now().addingTimeInterval(86400)) : std::nullopt);
    }
}

TEST_F(LocalFiring, DisabledAndNotRequiredArmsNothingUntilEnabled)
{
    struct {
        bool required;
        bool enabled;
        bool armed;
    } cases[] = { { false, false, false }, { true, false, true }, { false, true, true } };
    for (auto& c : cases) {
        makeClient(false, c.required, c.enabled);
        schedule({ dated(60) }, true);
        EXPECT_EQ(armedFor().has_value(), c.armed) << c.required << c.enabled;
    }
    EXPECT_TRUE(
        logged("[com.example.alarm] Not scheduling local notifications (user notifications: 0, requires "
               "local notifications: 0, uninstalled: 0, "));
    makeClient(false, false, false);
    size_t changesBefore = changes.size();
    onQueue([&] { client->setUserNotificationsEnabled(true); });
    EXPECT_TRUE(armedFor().has_value());
    ASSERT_EQ(changes.size(), changesBefore + 1);
    EXPECT_EQ(changes.back()[KTBundleIdentifierKey], Value(app));
    EXPECT_EQ(changes.back()[KTLocalNotificationsKey].length(), 1u) << "the notice carries the list";
    onQueue([&] { client->handleUninstall(); });
    EXPECT_FALSE(armedFor().has_value());
    EXPECT_EQ(device.clock().pendingTimerCount(), 0u);
    device.advance(120);
    EXPECT_TRUE(fired.empty());
    EXPECT_EQ(storedList().length(), 1u) << "uninstalling deletes nothing";
}

TEST_F(LocalFiring, TimeChangesRearmOnlyWhileArmed)
{
    makeClient();
    size_t before = changes.size();
    onQueue([&] { client->handleSignificantTimeChange(); });
    EXPECT_EQ(changes.size(), before) << "disarmed: ignored";

    // Noon on the wall clock, daily, wherever the device is.
    auto noon = dated(12 * 3600, "noon", CalendarUnit::Day);
    noon->setTimeZone("UTC");
    schedule({ noon });
    EXPECT_EQ(armedFor(), now().addingTimeInterval(12 * 3600));
    device.platform().setTimeZone("Asia/Tokyo");
    onQueue([&] { client->handleSignificantTimeChange(); });
    EXPECT_EQ(armedFor(), now().addingTimeInterval(3 * 3600));
    device.platform().setTimeZone("UTC");
    onQueue([&] { client->handleLocaleChange(); });
    EXPECT_EQ(armedFor(), now().addingTimeInterval(12 * 3600));
}

TEST_F(LocalFiring, FiringHandsOffToAForegroundProcessAndReportsPower)
{
    struct {
        const char* name;
        std::optional<ProcessVisibility> process;
        bool handedOff;
    } cases[]
        = { { "NoProcess", std::nullopt, false }, { "Background", ProcessVisibility::Background, false },
              { "Foreground", ProcessVisibility::Foreground, true } };
    makeClient();
    for (auto& c : cases) {
        int32_t pid = 0;
        std::shared_ptr<ApplicationProcess> process;
        if (c.process) {
            process = device.processManager().launch(app, *c.process);
            pid = process->pid();
        }
        device.processManager().clearSentActions();
        auto notification = dated(-1, c.name);
        onQueue([&] { client->_fireNotification(notification); });
        auto power = device.powerLogEntries();
        ASSERT_FALSE(power.empty());
        EXPECT_EQ(power.back().pid, pid) << c.name;
        EXPECT_EQ(power.back().bundleIdentifier, app);
        auto actions = device.processManager().sentActions();
        ASSERT_EQ(actions.size(), c.handedOff ? 1u : 0u) << c.name;
        if (c.handedOff) {
            auto action = std::dynamic_pointer_cast<HandleLocalNotificationAction>(actions[0].action);
            ASSERT_NE(action, nullptr);
            EXPECT_EQ(action->localNotification(), notification);
            EXPECT_FALSE(action->handler());
        }
        if (process)
            device.processManager().terminate(process->pid());
    }
    EXPECT_EQ(deliveredCount(), 3u) << "a foreground application gets the stored notification too";
}

TEST_F(LocalFiring, TransientNotificationsFireWithoutBeingStored)
{
    makeClient(true);
    device.processManager().launch(app);
    observeSystemName("com.example.fired");
    auto transient = dated(30, "transient");
    transient->setTransient(true);
    transient->setFiredNotificationName("com.example.fired");
    schedule({ transient });
    device.advance(30);
    EXPECT_EQ(bodies(fired), (Strings { "transient" }));
    EXPECT_EQ(device.powerLogEntries().size(), 1u);
    EXPECT_EQ(device.processManager().sentActions().size(), 1u);
    EXPECT_EQ(deliveredCount(), 0u);
    EXPECT_EQ(systemPosts, (Strings { "com.example.fired" }));
    EXPECT_TRUE(logged("Post oakum notification: oakum notification=com.example.fired local notification="));
}

TEST_F(LocalFiring, SnoozeMakesAOneOffCopyLater)
{
    struct {
        const char* name;
        std::optional<int64_t> override;
        double interval;
    } cases[] = { { "Default", std::nullopt, 540 }, { "ZeroMeansDefault", 0, 540 }, { "Override", 60, 60 } };
    makeClient(true);
    observeSystemName("com.example.snoozed");
    for (auto& c : cases) {
        Preferences host(device.platform().preferences->directory());
        ASSERT_TRUE(host.setValue(c.override ? Value(*c.override) : Value(),
            KTLocalNotificationClient::snoozeIntervalOverrideKey, device.platform().hostPreferencesDomain));
        device.platform().preferences->reload();
        auto original = dated(-100, c.name, CalendarUnit::Week);
        original->setTimeZone("Europe/Berlin");
        original->setSnoozedNotificationName("com.example.snoozed");
        auto before = original->copy();
        onQueue([&] { client->snoozeLocalNotifications({ original }); });
        EXPECT_TRUE(original->isEqual(*before)) << c.name << ": the original is untouched";
        auto list = scheduled();
        auto snoozed
            = std::find_if(list.begin(), list.end(), [&](auto& n) { return n->alertBody() == c.name; });
        ASSERT_NE(snoozed, list.end()) << c.name;
        EXPECT_EQ((*snoozed)->fireDate(), now().addingTimeInterval(c.interval)) << c.name;
        EXPECT_EQ((*snoozed)->timeZone(), std::nullopt);
        EXPECT_EQ((*snoozed)->repeatInterval(), CalendarUnit::None);
        EXPECT_TRUE((*snoozed)->isFromSnooze());
    }
    EXPECT_EQ(systemPosts.size(), 3u);
    device.advance(60);
    EXPECT_EQ(bodies(fired), (Strings { "Override" }));
}

TEST_F(LocalFiring, AbsurdDatesNeverHangArmingOrFiring)
{
    makeClient();
    auto everySecondSinceYearOne = dated(0, "every second", CalendarUnit::Second);
    everySecondSinceYearOne->setFireDate(Date::distantPast().addingTimeInterval(1));
    auto farFuture = dated(0, "far future");
    farFuture->setFireDate(Date::distantFuture().addingTimeInterval(-1));
    auto notANumber = dated(0, "nan", CalendarUnit::Minute);
    notANumber->setFireDate(Date(std::numeric_limits<double>::quiet_NaN()));
    schedule({ everySecondSinceYearOne, farFuture, notANumber }, true);
    EXPECT_EQ(armedFor(), now()) << "the secondly one is due right after the save's last fire date";
    device.advance(3);
    EXPECT_EQ(fired.size(), 4u) << "once per run, runs a second apart";
    EXPECT_EQ(armedFor(), now().addingTimeInterval(1));
}

} // namespace
