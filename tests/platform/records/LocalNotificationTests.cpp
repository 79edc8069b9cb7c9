#include "platform/archive/KeyedArchive.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/SimulatedDevice.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <unicode/calendar.h>
#include <unicode/timezone.h>

using namespace tessel;

namespace {

std::unique_ptr<icu::Calendar> gregorianIn(const char* zone)
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(
        icu::TimeZone::createTimeZone(zone), icu::Locale("en_US@calendar=gregorian"), status));
    EXPECT_TRUE(U_SUCCESS(status));
    return calendar;
}

// "2023-01-31 09:00:00" as a wall-clock time in zone.
Date at(const char* zone, const char* text)
{
    int year, month, day, hour, minute, second;
    EXPECT_EQ(std::sscanf(text, "%d-%d-%d %d:%d:%d", &year, &month, &day, &hour, &minute, &second), 6)
        << text;
    auto calendar = gregorianIn(zone);
    calendar->clear();
    calendar->set(year, month - 1, day, hour, minute, second);
    UErrorCode status = U_ZERO_ERROR;
    return Date::fromTimeIntervalSince1970(calendar->getTime(status) / 1000);
}

std::string wall(const char* zone, std::optional<Date> date)
{
    if (!date)
        return "none";
    auto calendar = gregorianIn(zone);
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(date->timeIntervalSince1970() * 1000, status);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", calendar->get(UCAL_YEAR, status),
        calendar->get(UCAL_MONTH, status) + 1, calendar->get(UCAL_DATE, status),
        calendar->get(UCAL_HOUR_OF_DAY, status), calendar->get(UCAL_MINUTE, status),
        calendar->get(UCAL_SECOND, status));
    return text;
}

struct CalendarCase {
    const char* name;
    // The zone the texts below are read and written in, and the device's zone.
    const char* zone;
    bool floating;
    CalendarUnit unit;
    const char* calendar;
    const char* fire;
    const char* after;
    const char* expected;
};

class CalendarTest : public ::testing::TestWithParam<CalendarCase> { };

TEST_P(CalendarTest, NextFireDateAfterDate)
{
    auto& c = GetParam();
    LocalNotification notification;
    notification.setFireDate(at(c.zone, c.fire));
    if (c.floating)
        notification.setTimeZone(c.zone);
    notification.setRepeatInterval(c.unit);
    notification.setRepeatCalendar(c.calendar);
    EXPECT_EQ(wall(c.zone, notification.nextFireDateAfterDate(at(c.zone, c.after), std::string(c.zone))),
        c.expected);
}

const CalendarCase calendarCases[] = {
    { "MonthlyOn31stClampsToFebruary", "UTC", false, CalendarUnit::Month, "gregorian", "2023-01-31 09:00:00",
        "2023-02-01 00:00:00", "2023-02-28 09:00:00" },
    { "MonthlyOn31stReturnsToThe31st", "UTC", false, CalendarUnit::Month, "gregorian", "2023-01-31 09:00:00",
        "2023-02-28 09:00:00", "2023-03-31 09:00:00" },
    { "MonthlyOn31stInApril", "UTC", false, CalendarUnit::Month, "gregorian", "2023-01-31 09:00:00",
        "2023-04-01 00:00:00", "2023-04-30 09:00:00" },
    { "MonthlyOn31stInLeapFebruary", "UTC", false, CalendarUnit::Month, "gregorian", "2023-01-31 09:00:00",
        "2024-02-01 00:00:00", "2024-02-29 09:00:00" },
    { "YearlyLeapDayInCommonYear", "UTC", false, CalendarUnit::Year, "gregorian", "2024-02-29 08:00:00",
        "2024-03-01 00:00:00", "2025-02-28 08:00:00" },
    { "YearlyLeapDayBackInLeapYear", "UTC", false, CalendarUnit::Year, "gregorian", "2024-02-29 08:00:00",
        "2027-03-01 00:00:00", "2028-02-29 08:00:00" },
    { "FloatingDailyIntoSummerTimeBerlin", "Europe/Berlin", true, CalendarUnit::Day, "gregorian",
        "2023-03-25 08:30:00", "2023-03-25 09:00:00", "2023-03-26 08:30:00" },
    { "FloatingDailyOutOfSummerTimeBerlin", "Europe/Berlin", true, CalendarUnit::Day, "gregorian",
        "2023-03-25 08:30:00", "2023-10-28 09:00:00", "2023-10-29 08:30:00" },
    { "FloatingDailyIntoSummerTimeNewYork", "America/New_York", true, CalendarUnit::Day, "gregorian",
        "2023-03-11 07:00:00", "2023-03-11 08:00:00", "2023-03-12 07:00:00" },
    { "FloatingDailyOutOfSummerTimeNewYork", "America/New_York", true, CalendarUnit::Day, "gregorian",
        "2023-03-11 07:00:00", "2023-11-04 08:00:00", "2023-11-05 07:00:00" },
    { "FloatingTimeInSkippedHourMovesForward", "Europe/Berlin", true, CalendarUnit::Day, "gregorian",
        "2023-03-24 02:30:00", "2023-03-25 03:00:00", "2023-03-26 03:30:00" },
    { "FloatingTimeInRepeatedHourTakesFirst", "America/New_York", true, CalendarUnit::Day, "gregorian",
        "2023-11-03 01:30:00", "2023-11-05 00:00:00", "2023-11-05 01:30:00" },
    { "AbsoluteDailyKeepsIntervalBerlin", "Europe/Berlin", false, CalendarUnit::Day, "gregorian",
        "2023-03-25 08:30:00", "2023-03-25 09:00:00", "2023-03-26 09:30:00" },
    { "AbsoluteDailyKeepsIntervalNewYork", "America/New_York", false, CalendarUnit::Day, "gregorian",
        "2023-11-04 07:00:00", "2023-11-04 08:00:00", "2023-11-05 06:00:00" },
    { "QuarterFromMonthEnd", "UTC", false, CalendarUnit::Quarter, "gregorian", "2023-11-30 10:00:00",
        "2023-12-01 00:00:00", "2024-02-29 10:00:00" },
    { "QuarterReturnsToThe30th", "UTC", false, CalendarUnit::Quarter, "gregorian", "2023-11-30 10:00:00",
        "2024-03-01 00:00:00", "2024-05-30 10:00:00" },
    { "Weekly", "UTC", false, CalendarUnit::Week, "gregorian", "2023-01-02 10:00:00", "2023-01-20 00:00:00",
        "2023-01-23 10:00:00" },
    { "Hourly", "UTC", false, CalendarUnit::Hour, "gregorian", "2023-01-01 00:15:00", "2023-01-01 05:20:00",
        "2023-01-01 06:15:00" },
    { "Minutely", "UTC", false, CalendarUnit::Minute, "gregorian", "2023-01-01 00:00:30",
        "2023-01-01 05:20:30", "2023-01-01 05:21:30" },
    { "HebrewMonthlyToKislev", "UTC", false, CalendarUnit::Month, "hebrew", "2023-09-16 12:00:00",
        "2023-11-01 00:00:00", "2023-11-14 12:00:00" },
    { "HebrewMonthlyToTevet", "UTC", false, CalendarUnit::Month, "hebrew", "2023-09-16 12:00:00",
        "2023-11-20 00:00:00", "2023-12-13 12:00:00" },
    { "UnknownCalendarIsGregorian", "UTC", false, CalendarUnit::Month, "no such calendar!",
        "2023-01-31 09:00:00", "2023-02-01 00:00:00", "2023-02-28 09:00:00" },
    { "AtAnOccurrenceGivesTheNext", "UTC", false, CalendarUnit::Day, "gregorian", "2023-01-01 10:00:00",
        "2023-01-05 10:00:00", "2023-01-06 10:00:00" },
    { "AtTheFirstGivesTheSecond", "UTC", false, CalendarUnit::Day, "gregorian", "2023-01-01 10:00:00",
        "2023-01-01 10:00:00", "2023-01-02 10:00:00" },
    { "BeforeTheFirstGivesTheFirst", "UTC", false, CalendarUnit::Month, "gregorian", "2023-01-31 10:00:00",
        "2022-06-01 00:00:00", "2023-01-31 10:00:00" },
    { "OnceBeforeItsDate", "UTC", false, CalendarUnit::None, "gregorian", "2023-01-01 10:00:00",
        "2022-12-31 10:00:00", "2023-01-01 10:00:00" },
    { "OnceAtItsDate", "UTC", false, CalendarUnit::None, "gregorian", "2023-01-01 10:00:00",
        "2023-01-01 10:00:00", "none" },
    { "YearlyPastTheLastRealDate", "UTC", false, CalendarUnit::Year, "gregorian", "2023-06-01 10:00:00",
        "4000-07-01 00:00:00", "none" },
};

INSTANTIATE_TEST_SUITE_P(LocalNotification, CalendarTest, ::testing::ValuesIn(calendarCases),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LocalNotificationTimeZoneTest, FloatingFollowsTheDeviceZoneAbsoluteDoesNot)
{
    struct Case {
        std::optional<std::string> notificationZone;
        std::optional<std::string> deviceZone; // none: the platform's
        const char* expectedInNewYork;
    } cases[] = {
        { "Europe/Berlin", "America/New_York", "2023-06-01 09:00:00" },
        { std::nullopt, "America/New_York", "2023-06-01 03:00:00" },
        { "Europe/Berlin", std::nullopt, "2023-06-01 09:00:00" },
        { "Europe/Berlin", "Europe/Berlin", "2023-06-01 03:00:00" },
    };
    SimulatedDevice device;
    device.platform().timeZone = "America/New_York";
    for (auto& c : cases) {
        LocalNotification notification;
        notification.setFireDate(at("Europe/Berlin", "2023-06-01 09:00:00"));
        notification.setTimeZone(c.notificationZone);
        notification.setRepeatInterval(CalendarUnit::Day);
        EXPECT_EQ(wall("America/New_York",
                      notification.nextFireDateAfterDate(
                          at("America/New_York", "2023-06-01 00:00:00"), c.deviceZone)),
            c.expectedInNewYork);
    }
}

TEST(LocalNotificationTimeZoneTest, HostZoneComesFromTZ)
{
    struct Case {
        const char* variable;
        const char* expected;
    } cases[] = {
        { "Europe/Paris", "Europe/Paris" },
        { ":Asia/Tokyo", "Asia/Tokyo" },
        { "/usr/share/zoneinfo/America/Chicago", "America/Chicago" },
    };
    for (auto& c : cases) {
        setenv("TZ", c.variable, 1);
        EXPECT_EQ(LocalNotification::hostTimeZoneName(), c.expected);
    }
    unsetenv("TZ");
}

// Far and broken dates answer by arithmetic, never by walking the series.
TEST(LocalNotificationEdgeTest, FarAndBrokenDates)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    Date start = at("UTC", "2023-01-01 00:00:00");
    struct Case {
        const char* name;
        CalendarUnit unit;
        double fire;
        double after;
        std::optional<double> expected;
    } cases[] = {
        { "SecondsCenturyLater", CalendarUnit::Second, 0, 100 * 365.25 * 86400 + 0.5,
            100 * 365.25 * 86400 + 1 },
        { "MinutesCenturyLater", CalendarUnit::Minute, 0, 100 * 365.25 * 86400 + 1,
            100 * 365.25 * 86400 + 60 },
        { "SecondsNearTheEnd", CalendarUnit::Second, 0, 1900 * 365.25 * 86400, 1900 * 365.25 * 86400 + 1 },
        { "NaNAfter", CalendarUnit::Second, 0, nan, std::nullopt },
        { "InfiniteAfter", CalendarUnit::Minute, 0, infinity, std::nullopt },
        { "NegativeInfiniteAfter", CalendarUnit::Month, 0, -infinity, std::nullopt },
        { "HugeAfter", CalendarUnit::Day, 0, 1e300, std::nullopt },
        { "NaNFire", CalendarUnit::Day, nan, 0, std::nullopt },
        { "HugeFire", CalendarUnit::Year, 1e300, 0, std::nullopt },
        { "FireBeyondTheLastRealDate", CalendarUnit::None, 2100 * 365.25 * 86400, 0, std::nullopt },
    };
    for (auto& c : cases) {
        LocalNotification notification;
        notification.setFireDate(start.addingTimeInterval(c.fire));
        notification.setRepeatInterval(c.unit);
        auto next = notification.nextFireDateAfterDate(start.addingTimeInterval(c.after), std::string("UTC"));
        ASSERT_EQ(next.has_value(), c.expected.has_value()) << c.name;
        if (next) {
            EXPECT_EQ(next->timeIntervalSinceDate(start), *c.expected) << c.name;
        }
    }
}

TEST(LocalNotificationEdgeTest, MonthlyCenturiesLaterInEveryCalendar)
{
    for (const char* calendar : { "gregorian", "hebrew", "islamic-civil", "chinese", "buddhist" }) {
        LocalNotification notification;
        notification.setFireDate(at("UTC", "2023-01-10 12:00:00"));
        notification.setRepeatInterval(CalendarUnit::Month);
        notification.setRepeatCalendar(calendar);
        Date after = at("UTC", "2823-05-05 00:00:00");
        auto next = notification.nextFireDateAfterDate(after, std::string("UTC"));
        ASSERT_TRUE(next) << calendar;
        EXPECT_GT(*next, after) << calendar;
        // No calendar month is longer than 31 days.
        EXPECT_LE(next->timeIntervalSinceDate(after), 31 * 86400) << calendar;
        EXPECT_EQ(wall("UTC", next).substr(11), "12:00:00") << calendar;
    }
}

TEST(LocalNotificationRepeatCountTest, CountsBoundOccurrences)
{
    Date first = at("UTC", "2023-01-01 10:00:00");
    constexpr double day = 86400;
    struct Case {
        const char* name;
        CalendarUnit unit;
        int32_t total;
        std::optional<int32_t> remaining; // none: as the total sets it
        double lastFired;
        std::optional<double> expected;
    } cases[] = {
        { "TwoRepeatsSecond", CalendarUnit::Day, 2, std::nullopt, 0, day },
        { "TwoRepeatsThird", CalendarUnit::Day, 2, std::nullopt, day, 2 * day },
        { "TwoRepeatsThenNone", CalendarUnit::Day, 2, std::nullopt, 2 * day, std::nullopt },
        { "ZeroRepeatsFiresOnce", CalendarUnit::Day, 0, std::nullopt, -1, 0 },
        { "ZeroRepeatsNoneAfterFirst", CalendarUnit::Day, 0, std::nullopt, 0, std::nullopt },
        { "NothingRemaining", CalendarUnit::Day, 5, 0, day, std::nullopt },
        { "OneRemaining", CalendarUnit::Day, 5, 1, day, 2 * day },
        { "InfiniteFarOut", CalendarUnit::Day, LocalNotificationInfiniteRepeatCount, std::nullopt, 1000 * day,
            1001 * day },
        { "NegativeMeansInfinite", CalendarUnit::Day, -7, std::nullopt, 1000 * day, 1001 * day },
        { "OnceBeforeItsDate", CalendarUnit::None, LocalNotificationInfiniteRepeatCount, 0, -day, 0 },
        { "OnceAfterItsDate", CalendarUnit::None, LocalNotificationInfiniteRepeatCount, std::nullopt, 0,
            std::nullopt },
    };
    for (auto& c : cases) {
        LocalNotification notification;
        notification.setFireDate(first);
        notification.setRepeatInterval(c.unit);
        notification.setTotalRepeatCount(c.total);
        if (c.remaining)
            notification.setRemainingRepeatCount(*c.remaining);
        auto next = notification.nextFireDateForLastFireDate(first.addingTimeInterval(c.lastFired));
        ASSERT_EQ(next.has_value(), c.expected.has_value()) << c.name;
        if (next) {
            EXPECT_EQ(next->timeIntervalSinceDate(first), *c.expected) << c.name;
        }
    }
}

TEST(LocalNotificationTest, NewNotificationsRepeatWithoutEnd)
{
    LocalNotification notification;
    notification.setRepeatInterval(CalendarUnit::Week);
    EXPECT_EQ(notification.totalRepeatCount(), LocalNotificationInfiniteRepeatCount);
    EXPECT_EQ(notification.remainingRepeatCount(), LocalNotificationInfiniteRepeatCount);
    EXPECT_TRUE(notification.hasAction());
}

std::shared_ptr<LocalNotification> dated(std::optional<double> seconds, const char* body = "")
{
    auto notification = std::make_shared<LocalNotification>();
    if (seconds)
        notification->setFireDate(Date(*seconds));
    notification->setAlertBody(body);
    return notification;
}

TEST(LocalNotificationTest, CompareFireDates)
{
    auto withRegion = dated(std::nullopt);
    withRegion->setRegion(std::make_shared<Region>("home", 52.5, 13.4, 100));
    struct Case {
        std::shared_ptr<LocalNotification> a, b;
        std::weak_ordering expected;
    } cases[] = {
        { dated(std::nullopt), dated(5), std::weak_ordering::less },
        { dated(5), dated(std::nullopt), std::weak_ordering::greater },
        { dated(std::nullopt), withRegion, std::weak_ordering::equivalent },
        { withRegion, dated(-1e9), std::weak_ordering::less },
        { dated(1), dated(2), std::weak_ordering::less },
        { dated(2), dated(1), std::weak_ordering::greater },
        { dated(3, "a"), dated(3, "b"), std::weak_ordering::equivalent },
        { dated(std::numeric_limits<double>::quiet_NaN()), dated(0), std::weak_ordering::less },
    };
    for (size_t index = 0; index < std::size(cases); ++index)
        EXPECT_TRUE(cases[index].a->compareFireDates(*cases[index].b) == cases[index].expected) << index;

    // Equivalent fire dates keep their order under a stable sort.
    std::vector<std::shared_ptr<LocalNotification>> list { dated(9, "late"), dated(1, "first"),
        dated(std::nullopt, "undated1"), dated(1, "second"), withRegion, dated(std::nullopt, "undated2") };
    std::stable_sort(list.begin(), list.end(), [](auto& a, auto& b) { return a->compareFireDates(*b) < 0; });
    std::vector<std::string> bodies;
    for (auto& notification : list)
        bodies.push_back(notification->alertBody());
    EXPECT_EQ(bodies, (std::vector<std::string> { "undated1", "", "undated2", "first", "second", "late" }));
}

using Change = std::function<void(LocalNotification&)>;

// One entry per field: every field takes part in equality and survives archiving.
const std::pair<const char*, Change> fieldChanges[] = {
    { "fireDate", [](auto& n) { n.setFireDate(Date(1234.5)); } },
    { "noFireDate", [](auto& n) { n.setFireDate(std::nullopt); } },
    { "timeZone", [](auto& n) { n.setTimeZone("Asia/Tokyo"); } },
    { "noTimeZone", [](auto& n) { n.setTimeZone(std::nullopt); } },
    { "repeatInterval", [](auto& n) { n.setRepeatInterval(CalendarUnit::Quarter); } },
    { "repeatCalendar", [](auto& n) { n.setRepeatCalendar("hebrew"); } },
    { "totalRepeatCount", [](auto& n) { n.setTotalRepeatCount(9); } },
    { "remainingRepeatCount", [](auto& n) { n.setRemainingRepeatCount(2); } },
    { "noRegion", [](auto& n) { n.setRegion(nullptr); } },
    { "regionRadius", [](auto& n) { n.region()->setRadius(51); } },
    { "regionIdentifier", [](auto& n) { n.region()->setIdentifier("work"); } },
    { "regionCenter", [](auto& n) { n.region()->setCenter(1, 2); } },
    { "regionEntry", [](auto& n) { n.region()->setNotifyOnEntry(false); } },
    { "regionExit", [](auto& n) { n.region()->setNotifyOnExit(false); } },
    { "regionBundle", [](auto& n) { n.region()->setOnBehalfOfBundleId("com.example.other"); } },
    { "regionTriggersOnce", [](auto& n) { n.setRegionTriggersOnce(false); } },
    { "alertBody", [](auto& n) { n.setAlertBody("other body"); } },
    { "alertTitle", [](auto& n) { n.setAlertTitle("other title"); } },
    { "alertAction", [](auto& n) { n.setAlertAction("other action"); } },
    { "hasAction", [](auto& n) { n.setHasAction(true); } },
    { "alertLaunchImage", [](auto& n) { n.setAlertLaunchImage("other.png"); } },
    { "soundName", [](auto& n) { n.setSoundName(LocalNotificationDefaultSoundName); } },
    { "badge", [](auto& n) { n.setApplicationIconBadgeNumber(-3); } },
    { "userInfo",
        [](auto& n) {
            n.setUserInfo({ { "key", 2 } });
        } },
    { "noUserInfo", [](auto& n) { n.setUserInfo({}); } },
    { "category", [](auto& n) { n.setCategory("OTHER"); } },
    { "fromSnooze", [](auto& n) { n.setFromSnooze(false); } },
    { "firedNotificationName", [](auto& n) { n.setFiredNotificationName("other.fired"); } },
    { "snoozedNotificationName", [](auto& n) { n.setSnoozedNotificationName("other.snoozed"); } },
    { "transient", [](auto& n) { n.setTransient(false); } },
};

std::shared_ptr<LocalNotification> fullNotification()
{
    auto n = std::make_shared<LocalNotification>();
    n->setFireDate(Date(700000000.25));
    n->setTimeZone("Europe/Berlin");
    n->setRepeatInterval(CalendarUnit::Month);
    n->setRepeatCalendar("gregorian");
    n->setTotalRepeatCount(12);
    n->setRemainingRepeatCount(4);
    auto region = std::make_shared<Region>("home", 52.52, 13.405, 50);
    region->setOnBehalfOfBundleId("com.example.maps");
    n->setRegion(region);
    n->setRegionTriggersOnce(true);
    n->setAlertBody("Water the plants");
    n->setAlertTitle("Garden");
    n->setAlertAction("Open");
    n->setHasAction(false);
    n->setAlertLaunchImage("launch.png");
    n->setSoundName("chime.caf");
    n->setApplicationIconBadgeNumber(7);
    n->setUserInfo({ { "id", 42 }, { "tags", Value::Array { "a", 1.5, true } },
        { "nested", Value::Dictionary { { "when", Date(5) }, { "blob", Bytes { 1, 2 } } } } });
    n->setCategory("GARDEN");
    n->setFromSnooze(true);
    n->setFiredNotificationName("com.example.fired");
    n->setSnoozedNotificationName("com.example.snoozed");
    n->setTransient(true);
    return n;
}

std::shared_ptr<LocalNotification> roundTrip(const LocalNotification& notification)
{
    LocalNotification::registerArchivableClasses();
    auto bytes = KeyedArchive::archivedData(notification.copy());
    EXPECT_TRUE(bytes);
    if (!bytes)
        return nullptr;
    auto value = KeyedArchive::unarchive(*bytes);
    return value ? value->objectAs<LocalNotification>() : nullptr;
}

class FieldChangeTest : public ::testing::TestWithParam<std::pair<const char*, Change>> { };

TEST_P(FieldChangeTest, BreaksEqualityAndSurvivesArchiving)
{
    auto base = fullNotification();
    auto changed = base->copy();
    GetParam().second(*changed);
    EXPECT_FALSE(base->isEqual(*changed));
    EXPECT_FALSE(changed->isEqual(*base));
    // The copy was deep: the base kept its own region.
    EXPECT_TRUE(base->isEqual(*fullNotification()));
    auto decoded = roundTrip(*changed);
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqual(*changed)) << decoded->description() << "\n" << changed->description();
}

INSTANTIATE_TEST_SUITE_P(LocalNotification, FieldChangeTest, ::testing::ValuesIn(fieldChanges),
    [](const auto& info) { return std::string(info.param.first); });

TEST(LocalNotificationTest, DefaultsSurviveArchiving)
{
    for (auto notification : { std::make_shared<LocalNotification>(), fullNotification() }) {
        auto decoded = roundTrip(*notification);
        ASSERT_TRUE(decoded);
        EXPECT_TRUE(decoded->isEqual(*notification));
        EXPECT_TRUE(notification->copy()->isEqual(*notification));
    }
}

TEST(LocalNotificationTest, DecodingRefusesObjectsWhereOnlyValuesBelong)
{
    struct Case {
        const char* name;
        Value userInfoEntry;
    } cases[] = {
        { "Notification", std::make_shared<LocalNotification>() },
        { "RegionInArray", Value::Array { 1, std::make_shared<Region>() } },
        { "Null", Value() },
    };
    for (auto& c : cases) {
        auto notification = fullNotification();
        notification->setUserInfo({ { "smuggled", c.userInfoEntry } });
        EXPECT_FALSE(roundTrip(*notification)) << c.name;
    }
}

TEST(LocalNotificationTest, ClearNonSystemPropertiesResetsOnlySystemOnes)
{
    auto notification = fullNotification();
    auto expected = notification->copy();
    expected->setFiredNotificationName("");
    expected->setSnoozedNotificationName("");
    expected->setTransient(false);
    notification->clearNonSystemProperties();
    EXPECT_TRUE(notification->isEqual(*expected)) << notification->description();
}

} // namespace

TEST(LocalNotificationTest, NotANumberNeverBreaksEqualityWithACopy)
{
    LocalNotification notification;
    notification.setFireDate(Date(std::numeric_limits<double>::quiet_NaN()));
    notification.setUserInfo({ { "ratio", Value(std::numeric_limits<double>::quiet_NaN()) } });
    EXPECT_TRUE(notification.copy()->isEqual(notification)) << "cancelling finds a notification by equality";

    LocalNotification::registerArchivableClasses();
    auto placed = std::make_shared<LocalNotification>();
    placed->setRegion(std::make_shared<Region>("nowhere", std::numeric_limits<double>::infinity(), 0, 10));
    auto archived = KeyedArchive::archivedData(Value(placed));
    ASSERT_TRUE(archived);
    EXPECT_EQ(KTSLocalNotificationWhitelistedUnarchiveFromData(*archived), nullptr);
}
