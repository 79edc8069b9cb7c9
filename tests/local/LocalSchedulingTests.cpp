#include "local/LocalClientFixture.h"

#include "platform/archive/KeyedArchiver.h"
#include "platform/concurrency/PersistentTimer.h"
#include "platform/foundation/Archivable.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"

using namespace tessel;
using tessel::testing_support::LocalClientTest;

namespace {

class LocalScheduling : public LocalClientTest { };

TEST_F(LocalScheduling, LimitsKeepTheNotificationsThatSortFirst)
{
    const struct {
        const char* name;
        int regions, dated;
        bool system;
        size_t keptRegions, kept;
    } cases[] = {
        { "SeventyDated", 0, 70, false, 0, 64 },
        { "SeventyDatedSystem", 0, 70, true, 0, 70 },
        { "TwentyFiveRegions", 25, 0, false, 20, 20 },
        { "TwentyFiveRegionsSystem", 25, 0, true, 25, 25 },
        { "RegionsCountTowardsTheTotal", 25, 50, false, 20, 64 },
        { "UnderBothLimits", 3, 10, false, 3, 13 },
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        makeClient(c.system);
        List list;
        // Scheduled latest first, so only sorting can put the survivors in front.
        for (int i = c.dated; i > 0; --i)
            list.push_back(dated(60.0 * i, "dated " + std::to_string(i)));
        for (int i = 0; i < c.regions; ++i)
            list.push_back(regional("region " + std::to_string(i)));
        schedule(list, true);

        auto kept = scheduled();
        ASSERT_EQ(kept.size(), c.kept);
        auto isRegion = [](auto& n) { return n->isTriggeredByRegion(); };
        EXPECT_EQ(size_t(std::count_if(kept.begin(), kept.end(), isRegion)), c.keptRegions);
        EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end(),
            [](auto& a, auto& b) { return a->compareFireDates(*b) == std::weak_ordering::less; }));
        if (c.dated) {
            EXPECT_EQ(kept[c.keptRegions]->alertBody(), "dated 1");
        }
        EXPECT_EQ(storedList().length(), c.kept);
    }
}

// Only a lone due notification scheduled without replacing fires at once.
TEST_F(LocalScheduling, ADueNotificationFiresAtOnce)
{
    makeClient();
    const struct {
        const char* name;
        std::optional<double> fireDateFromNow;
        CalendarUnit repeat;
        bool replace;
        bool firesAtOnce;
        size_t storedAfterwards;
    } cases[] = {
        { "PastDate", -30, CalendarUnit::None, false, true, 1 },
        { "ExactlyNow", 0, CalendarUnit::None, false, true, 1 },
        { "NoFireDate", std::nullopt, CalendarUnit::None, false, true, 1 },
        { "PastButRepeating", -30, CalendarUnit::Day, false, false, 2 },
        { "FutureDate", 30, CalendarUnit::None, false, false, 2 },
        // Replacing stores it, already expired, and fires nothing.
        { "PastDateReplacing", -30, CalendarUnit::None, true, false, 1 },
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        schedule({ dated(3600, "already scheduled") }, true);
        fired.clear();
        size_t delivered = deliveredCount();
        auto notification = dated(0, "now", c.repeat);
        notification->setFireDate(
            c.fireDateFromNow ? std::optional(now().addingTimeInterval(*c.fireDateFromNow)) : std::nullopt);
        schedule({ notification }, c.replace);
        EXPECT_EQ(fired.size(), c.firesAtOnce ? 1u : 0u);
        EXPECT_EQ(deliveredCount() - delivered, c.firesAtOnce ? 1u : 0u);
        EXPECT_EQ(storedList().length(), c.storedAfterwards);
    }
}

TEST_F(LocalScheduling, ReschedulingAnEqualNotificationReplacesItAtTheEnd)
{
    makeClient();
    auto later = dated(600, "later");
    schedule({ dated(300, "first"), later, dated(300, "second") });
    schedule({ later->copy(), dated(300, "third") });
    EXPECT_EQ(bodies(scheduled()), (Strings { "first", "second", "third", "later" }));
}

TEST_F(LocalScheduling, SchedulingStampsRegionsAndStripsSystemPropertiesOfOrdinaryApplications)
{
    for (bool system : { false, true }) {
        makeClient(system);
        auto notification = regional("home");
        notification->setFiredNotificationName("com.example.fired");
        notification->setTransient(true);
        schedule({ notification }, true);
        auto kept = scheduled();
        ASSERT_EQ(kept.size(), 1u);
        EXPECT_EQ(kept[0]->region()->onBehalfOfBundleId(), app);
        EXPECT_EQ(kept[0]->firedNotificationName(), system ? "com.example.fired" : "");
        EXPECT_EQ(kept[0]->isTransient(), system);
    }
}

TEST_F(LocalScheduling, CancelRemovesEqualNotificationsAndTheirDeliveredRecords)
{
    makeClient();
    auto keep = dated(600, "keep");
    auto gone = dated(300, "gone");
    schedule({ keep, gone, dated(900, "also kept") });
    onQueue([&] { client->_fireNotification(gone); });
    ASSERT_EQ(deliveredCount(), 1u);
    onQueue([&] { client->cancelLocalNotifications({ gone->copy() }); });
    EXPECT_EQ(bodies(scheduled()), (Strings { "keep", "also kept" }));
    EXPECT_EQ(deliveredCount(), 0u);
    EXPECT_TRUE(logged("[com.example.alarm] Cancel local notifications: "));
}

TEST_F(LocalScheduling, LastFireDateIsGuardedAgainstAClockSetBack)
{
    makeClient();
    schedule({ dated(60) });
    Date saved = onQueue([&] { return client->_lastLocalNotificationFireDate(); });
    EXPECT_DOUBLE_EQ(saved.timeIntervalSinceDate(now()), -1.0) << "saving moves it to just before now";

    auto store = ApplicationDataStore::storeForApplication(app);
    double t = now().timeIntervalSinceReferenceDate();
    // Stored as seconds or as a date, relative to now.
    const struct {
        const char* name;
        Value stored;
        double expectedFromNow;
        bool resetToNow;
    } cases[] = {
        { "TenSecondsAhead", Value(t + 10), 0, true },
        { "HalfASecondAhead", Value(t + 0.5), 0.5, false },
        { "DateObject", Value(Date(t - 5)), -5, false },
        { "DateObjectAhead", Value(Date(t + 3600)), 0, true },
    };
    for (auto& c : cases) {
        ASSERT_TRUE(store->setObject(c.stored, KTApplicationDataStoreLocalNotificationsLastFireDateKey));
        Date read = onQueue([&] { return client->_lastLocalNotificationFireDate(); });
        EXPECT_DOUBLE_EQ(read.timeIntervalSinceDate(now()), c.expectedFromNow) << c.name;
        Value after = store->objectForKey(KTApplicationDataStoreLocalNotificationsLastFireDateKey);
        if (c.resetToNow)
            EXPECT_DOUBLE_EQ(after.doubleValue(), t) << c.name << ": the reset is stored as a number";
        else
            EXPECT_EQ(after, c.stored) << c.name;
    }
    ASSERT_TRUE(store->removeObjectForKey(KTApplicationDataStoreLocalNotificationsLastFireDateKey));
    EXPECT_EQ(onQueue([&] { return client->_lastLocalNotificationFireDate(); }), Date::distantPast());
}

TEST_F(LocalScheduling, ExpiryAgainstTheLastFireDate)
{
    makeClient();
    Date last = now();
    auto at = [&](double offset, CalendarUnit repeat = CalendarUnit::None, int32_t remaining = -1) {
        auto n = std::make_shared<LocalNotification>();
        n->setFireDate(last.addingTimeInterval(offset));
        n->setRepeatInterval(repeat);
        n->setRemainingRepeatCount(remaining);
        return n;
    };
    auto region = [&](int32_t remaining) {
        auto n = regional("r");
        n->setRemainingRepeatCount(remaining);
        return n;
    };
    auto undated = std::make_shared<LocalNotification>();
    struct {
        const char* name;
        std::shared_ptr<LocalNotification> notification;
        bool unexpired;
    } cases[] = {
        { "FireDateEqualsLast", at(0), false },
        { "FireDateJustAfter", at(0.001), true },
        { "FireDateBefore", at(-1), false },
        { "NoFireDate", undated, false },
        { "RepeatingInfinite", at(-1000, CalendarUnit::Day), true },
        { "RepeatingWithRepeatsLeft", at(-1000, CalendarUnit::Day, 2), true },
        { "RepeatingRunOut", at(1000, CalendarUnit::Day, 0), false },
        { "RegionInfinite", region(-1), true },
        { "RegionRunOut", region(0), false },
    };
    for (auto& c : cases)
        EXPECT_EQ(client->_isLocalNotification(*c.notification, last), c.unexpired) << c.name;
}

TEST_F(LocalScheduling, APersistedListKeepsItsValidPart)
{
    class Stranger : public Archivable {
    public:
        std::string className() const override { return "NeverRegisteredThing"; }
        void encodeWithCoder(KeyedArchiver& coder) const override { coder.encodeObject(Value("x"), "field"); }
        std::string description() const override { return "stranger"; }
        bool isEqual(const Archivable&) const override { return false; }
    };
    auto store = ApplicationDataStore::storeForApplication(app);
    auto valid = dated(600, "valid");
    Value::Array mixed { Value(valid), Value("text"), Value(int64_t(7)), Value(std::make_shared<Region>()),
        Value(std::make_shared<Stranger>()), Value() };
    ASSERT_TRUE(store->setArchivedObject(Value(mixed), KTApplicationDataStoreLocalNotificationsKey));
    makeClient();
    EXPECT_EQ(bodies(scheduled()), (Strings { "valid" }));
    ASSERT_NE(client->localNotificationTimer(), nullptr);
    EXPECT_EQ(client->localNotificationTimer()->fireDate(), *valid->fireDate());

    for (Value garbage :
        { Value(Bytes { 'n', 'o', 'p', 'e' }), Value("not an archive"), Value(int64_t(3)) }) {
        ASSERT_TRUE(store->setObject(garbage, KTApplicationDataStoreLocalNotificationsKey));
        makeClient();
        EXPECT_TRUE(scheduled().empty());
        EXPECT_EQ(client->localNotificationTimer(), nullptr);
    }
}

TEST_F(LocalScheduling, CachingFollowsTheRunningProcessAndTheReasons)
{
    makeClient();
    schedule({ dated(600) });
    EXPECT_FALSE(client->hasCachedLocalNotifications()) << "nobody runs: nothing kept";

    auto process = device.processManager().launch(app);
    scheduled();
    EXPECT_TRUE(client->hasCachedLocalNotifications());
    onQueue([&] { client->handleMemoryWarning(); });
    EXPECT_FALSE(client->hasCachedLocalNotifications());

    scheduled();
    onQueue([&] {
        client->_beginRequireLocalNotificationsCachingWithReason("test");
        client->_beginRequireLocalNotificationsCachingWithReason("test");
        client->handleMemoryWarning();
    });
    EXPECT_TRUE(client->hasCachedLocalNotifications()) << "a reason holds it";
    onQueue([&] { client->handleProcessExit(); });
    EXPECT_FALSE(client->hasCachedLocalNotifications()) << "process exit ignores reasons";

    device.processManager().terminate(process->pid());
    scheduled();
    EXPECT_TRUE(client->hasCachedLocalNotifications()) << "the reason alone keeps a fresh load";
    onQueue([&] {
        client->_endRequireLocalNotificationsCachingWithReason("test");
        client->_endRequireLocalNotificationsCachingWithReason("test");
    });
    EXPECT_FALSE(client->hasCachedLocalNotifications());
    EXPECT_TRUE(
        logged("Attempt to begin require local notification caching with already present reason 'test': "));
    EXPECT_TRUE(logged("Attempt to end require local notification caching with not present reason 'test': "));
    EXPECT_TRUE(logged("[com.example.alarm] Load local notifications: should cache=YES notifications="));
}

TEST_F(LocalScheduling, FetchAnswersTheFireDatesInTheWindow)
{
    makeClient();
    auto hourly = dated(3600, "hourly", CalendarUnit::Hour);
    auto snoozed = dated(1800, "snoozed");
    snoozed->setFromSnooze(true);
    snoozed->setTotalRepeatCount(0);
    schedule({ hourly, snoozed });
    Date first = *hourly->fireDate();
    auto hours = [&](double h) { return first.addingTimeInterval(h * 3600); };

    // Hours relative to the first fire date; the snoozed copy reads as -0.5.
    const struct {
        const char* name;
        std::optional<double> startHours, endHours;
        uint64_t maxSize;
        bool includeSnoozes;
        std::vector<double> expectedHours;
    } cases[] = {
        { "EndIsExclusive", -1, 3, 0, false, { 0, 1, 2 } },
        // The base is the start itself, and only dates after it count.
        { "OccurrenceAtTheStartIsLeftOut", 1, 3, 0, false, { 2 } },
        { "BetweenOccurrences", 0.5, 2.5, 0, false, { 1, 2 } },
        { "SizeBounds", -1, std::nullopt, 4, false, { 0, 1, 2, 3 } },
        { "SizeAndEnd", -1, 10, 2, false, { 0, 1 } },
        // A snoozed copy fires once; its base is the last fire date, before the start.
        { "WithSnoozes", -1, 2, 0, true, { -0.5, 0, 1 } },
        { "SnoozeBeforeStartEndsItsList", -0.25, 2, 0, true, { 0, 1 } },
    };
    for (auto& c : cases) {
        KTSNotificationScheduleFetchRequest request;
        if (c.startHours)
            request.setStartDate(hours(*c.startHours));
        if (c.endHours)
            request.setEndDate(hours(*c.endHours));
        request.setMaxSize(c.maxSize);
        request.setIncludeSnoozes(c.includeSnoozes);
        auto answer = onQueue([&] { return client->scheduleForFetchRequest(request); });
        std::vector<double> got;
        for (auto& entry : answer->entries())
            got.push_back(entry.notification->isFromSnooze()
                    ? -0.5
                    : entry.fireDate.timeIntervalSinceDate(first) / 3600);
        EXPECT_EQ(got, c.expectedHours) << c.name;
    }
}

} // namespace
