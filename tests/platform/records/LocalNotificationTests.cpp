#include "platform/archive/KeyedArchive.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/SimulatedDevice.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"

#include <cmath>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <unicode/calendar.h>
#include <unicode/timezone.h>

using namespace tessel;
using enum CalendarUnit;

namespace {

std::unique_ptr<icu::Calendar> gregorianIn(const char* zone)
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(icu::Calendar::createInstance(
        icu::TimeZone::createTimeZone(zone), icu::Locale("en_US@calendar=gregorian"), status));
    EXPECT_TRUE(U_SUCCESS(status));
    return calendar;
}

// "2023-01-31 09:00" (seconds optional) as a wall-clock time in zone.
Date at(const char* zone, const char* text)
{
    int year, month, day, hour, minute, second = 0;
    EXPECT_GE(std::sscanf(text, "%d-%d-%d %d:%d:%d", &year, &month, &day, &hour, &minute, &second), 5)
        << text;
    auto calendar = gregorianIn(zone);
    calendar->clear();
    calendar->set(year, month - 1, day, hour, minute, second);
    UErrorCode status = U_ZERO_ERROR;
    return Date::fromTimeIntervalSince1970(calendar->getTime(status) / 1000);
}

// The inverse of at(), with seconds only when there are some.
std::string wall(const char* zone, std::optional<Date> date)
{
    if (!date)
        return "none";
    auto calendar = gregorianIn(zone);
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(date->timeIntervalSince1970() * 1000, status);
    char text[32];
    int length
        = std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d", calendar->get(UCAL_YEAR, status),
            calendar->get(UCAL_MONTH, status) + 1, calendar->get(UCAL_DATE, status),
            calendar->get(UCAL_HOUR_OF_DAY, status), calendar->get(UCAL_MINUTE, status));
    if (int second = calendar->get(UCAL_SECOND, status))
        std::snprintf(text + length, sizeof text - static_cast<size_t>(length), ":%02d", second);
    return text;
}

struct CalendarCase {
    const char* name;
    CalendarUnit unit;
    const char* fire;
    const char* after;
    const char* expected;
    // The zone the texts are read and written in, and the device's zone.
    const char* zone = "UTC";
    bool floating = false;
    const char* calendar = "gregorian";
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
    { "Monthly31stClampsToFebruary", Month, "2023-01-31 09:00", "2023-02-01 00:00", "2023-02-28 09:00" },
    { "Monthly31stReturnsToThe31st", Month, "2023-01-31 09:00", "2023-02-28 09:00", "2023-03-31 09:00" },
    { "Monthly31stInLeapFebruary", Month, "2023-01-31 09:00", "2024-02-01 00:00", "2024-02-29 09:00" },
    { "YearlyLeapDayInCommonYear", Year, "2024-02-29 08:00", "2024-03-01 00:00", "2025-02-28 08:00" },
    { "YearlyLeapDayBackInLeapYear", Year, "2024-02-29 08:00", "2027-03-01 00:00", "2028-02-29 08:00" },
    { "FloatingDailyIntoSummerTime", Day, "2023-03-25 08:30", "2023-03-25 09:00", "2023-03-26 08:30",
        "Europe/Berlin", true },
    { "FloatingDailyOutOfSummerTime", Day, "2023-03-25 08:30", "2023-10-28 09:00", "2023-10-29 08:30",
        "Europe/Berlin", true },
    { "FloatingTimeInSkippedHourMovesForward", Day, "2023-03-24 02:30", "2023-03-25 03:00",
        "2023-03-26 03:30", "Europe/Berlin", true },
    { "FloatingTimeInRepeatedHourTakesFirst", Day, "2023-11-03 01:30", "2023-11-05 00:00", "2023-11-05 01:30",
        "America/New_York", true },
    { "AbsoluteDailyKeepsIntervalIntoSummerTime", Day, "2023-03-25 08:30", "2023-03-25 09:00",
        "2023-03-26 09:30", "Europe/Berlin" },
    { "AbsoluteDailyKeepsIntervalOutOfSummerTime", Day, "2023-11-04 07:00", "2023-11-04 08:00",
        "2023-11-05 06:00", "America/New_York" },
    { "QuarterFromMonthEnd", Quarter, "2023-11-30 10:00", "2023-12-01 00:00", "2024-02-29 10:00" },
    { "Weekly", Week, "2023-01-02 10:00", "2023-01-20 00:00", "2023-01-23 10:00" },
    { "Hourly", Hour, "2023-01-01 00:15", "2023-01-01 05:20", "2023-01-01 06:15" },
    { "EverySecond", Second, "2023-01-01 00:15", "2023-01-01 05:20:30", "2023-01-01 05:20:31" },
    { "HebrewMonthly", Month, "2023-09-16 12:00", "2023-11-01 00:00", "2023-11-14 12:00", "UTC", false,
        "hebrew" },
    { "UnknownCalendarIsGregorian", Month, "2023-01-31 09:00", "2023-02-01 00:00", "2023-02-28 09:00", "UTC",
        false, "no such calendar!" },
    { "AtAnOccurrenceGivesTheNext", Day, "2023-01-01 10:00", "2023-01-05 10:00", "2023-01-06 10:00" },
    { "BeforeTheFirstGivesTheFirst", Month, "2023-01-31 10:00", "2022-06-01 00:00", "2023-01-31 10:00" },
    { "OnceBeforeItsDate", None, "2023-01-01 10:00", "2022-12-31 10:00", "2023-01-01 10:00" },
    { "OnceAtItsDate", None, "2023-01-01 10:00", "2023-01-01 10:00", "none" },
    { "YearlyPastTheLastRealDate", Year, "2023-06-01 10:00", "4000-07-01 00:00", "none" },
};

INSTANTIATE_TEST_SUITE_P(LocalNotification, CalendarTest, ::testing::ValuesIn(calendarCases),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LocalNotificationTimeZoneTest, FloatingFollowsTheDeviceZoneAbsoluteDoesNot)
{
    // The notification's zone, the device's (none: the platform's), the next date in New York.
    const std::tuple<std::optional<std::string>, std::optional<std::string>, const char*> cases[] = {
        { "Europe/Berlin", "America/New_York", "2023-06-01 09:00" },
        { std::nullopt, "America/New_York", "2023-06-01 03:00" },
        { "Europe/Berlin", std::nullopt, "2023-06-01 09:00" },
        { "Europe/Berlin", "Europe/Berlin", "2023-06-01 03:00" },
    };
    SimulatedDevice device;
    device.platform().setTimeZone("America/New_York");
    for (auto& [notificationZone, deviceZone, expected] : cases) {
        LocalNotification notification;
        notification.setFireDate(at("Europe/Berlin", "2023-06-01 09:00"));
        notification.setTimeZone(notificationZone);
        notification.setRepeatInterval(Day);
        auto next
            = notification.nextFireDateAfterDate(at("America/New_York", "2023-06-01 00:00"), deviceZone);
        EXPECT_EQ(wall("America/New_York", next), expected);
    }

    const std::pair<const char*, const char*> variables[] = { { "Europe/Paris", "Europe/Paris" },
        { ":Asia/Tokyo", "Asia/Tokyo" }, { "/usr/share/zoneinfo/America/Chicago", "America/Chicago" } };
    for (auto [variable, expected] : variables) {
        setenv("TZ", variable, 1);
        EXPECT_EQ(LocalNotification::hostTimeZoneName(), expected);
    }
    unsetenv("TZ");
}

std::optional<double> since(Date origin, std::optional<Date> date)
{
    return date ? std::optional(date->timeIntervalSinceDate(origin)) : std::nullopt;
}

// Far and broken dates answer by arithmetic, never by walking the series.
TEST(LocalNotificationEdgeTest, FarAndBrokenDates)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double century = 100 * 365.25 * 86400;
    Date start = at("UTC", "2023-01-01 00:00");
    struct Case {
        const char* name;
        CalendarUnit unit;
        double fire;
        double after;
        std::optional<double> expected;
    } cases[] = {
        { "SecondsCenturyLater", Second, 0, century + 0.5, century + 1 },
        { "MinutesCenturyLater", Minute, 0, century + 1, century + 60 },
        { "SecondsNearTheEnd", Second, 0, 19 * century, 19 * century + 1 },
        { "NaNAfter", Second, 0, nan, std::nullopt },
        { "InfiniteAfter", Minute, 0, infinity, std::nullopt },
        { "NegativeInfiniteAfter", Month, 0, -infinity, std::nullopt },
        { "HugeAfter", Day, 0, 1e300, std::nullopt },
        { "NaNFire", Day, nan, 0, std::nullopt },
        { "HugeFire", Year, 1e300, 0, std::nullopt },
        { "FireBeyondTheLastRealDate", None, 21 * century, 0, std::nullopt },
    };
    for (auto& c : cases) {
        LocalNotification notification;
        notification.setFireDate(start.addingTimeInterval(c.fire));
        notification.setRepeatInterval(c.unit);
        auto next = notification.nextFireDateAfterDate(start.addingTimeInterval(c.after), std::string("UTC"));
        EXPECT_EQ(since(start, next), c.expected) << c.name;
    }

    for (const char* calendar : { "gregorian", "hebrew", "islamic-civil", "chinese", "buddhist" }) {
        LocalNotification notification;
        notification.setFireDate(at("UTC", "2023-01-10 12:00"));
        notification.setRepeatInterval(Month);
        notification.setRepeatCalendar(calendar);
        Date after = at("UTC", "2823-05-05 00:00");
        auto next = notification.nextFireDateAfterDate(after, std::string("UTC"));
        ASSERT_TRUE(next) << calendar;
        EXPECT_GT(*next, after) << calendar;
        // No calendar month is longer than 31 days.
        EXPECT_LE(next->timeIntervalSinceDate(after), 31 * 86400) << calendar;
        EXPECT_EQ(wall("UTC", next).substr(11), "12:00") << calendar;
    }
}

TEST(LocalNotificationRepeatCountTest, CountsBoundOccurrences)
{
    Date first = at("UTC", "2023-01-01 10:00");
    constexpr double day = 86400;
    constexpr int32_t infinite = LocalNotificationInfiniteRepeatCount;
    struct Case {
        const char* name;
        CalendarUnit unit;
        int32_t total;
        std::optional<int32_t> remaining; // none: as the total sets it
        double lastFired;
        std::optional<double> expected;
    } cases[] = {
        { "TwoRepeatsSecond", Day, 2, std::nullopt, 0, day },
        { "TwoRepeatsThird", Day, 2, std::nullopt, day, 2 * day },
        { "TwoRepeatsThenNone", Day, 2, std::nullopt, 2 * day, std::nullopt },
        { "ZeroRepeatsFiresOnce", Day, 0, std::nullopt, -1, 0 },
        { "ZeroRepeatsNoneAfterFirst", Day, 0, std::nullopt, 0, std::nullopt },
        { "NothingRemaining", Day, 5, 0, day, std::nullopt },
        { "OneRemaining", Day, 5, 1, day, 2 * day },
        { "InfiniteFarOut", Day, infinite, std::nullopt, 1000 * day, 1001 * day },
        { "NegativeMeansInfinite", Day, -7, std::nullopt, 1000 * day, 1001 * day },
        { "OnceBeforeItsDate", None, infinite, 0, -day, 0 },
        { "OnceAfterItsDate", None, infinite, std::nullopt, 0, std::nullopt },
    };
    for (auto& c : cases) {
        LocalNotification notification;
        notification.setFireDate(first);
        notification.setRepeatInterval(c.unit);
        notification.setTotalRepeatCount(c.total);
        if (c.remaining)
            notification.setRemainingRepeatCount(*c.remaining);
        auto next = notification.nextFireDateForLastFireDate(first.addingTimeInterval(c.lastFired));
        EXPECT_EQ(since(first, next), c.expected) << c.name;
    }
}

std::shared_ptr<LocalNotification> dated(std::optional<double> seconds)
{
    auto notification = std::make_shared<LocalNotification>();
    if (seconds)
        notification->setFireDate(Date(*seconds));
    return notification;
}

TEST(LocalNotificationTest, CompareFireDates)
{
    // Without a date, and for a region, the notification sorts first.
    auto withRegion = dated(std::nullopt);
    withRegion->setRegion(std::make_shared<Region>("home", 52.5, 13.4, 100));
    auto body = dated(3);
    body->setAlertBody("b");
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
        { dated(3), body, std::weak_ordering::equivalent },
        { dated(std::numeric_limits<double>::quiet_NaN()), dated(0), std::weak_ordering::less },
    };
    for (size_t index = 0; index < std::size(cases); ++index)
        EXPECT_TRUE(cases[index].a->compareFireDates(*cases[index].b) == cases[index].expected) << index;
}

using Change = std::function<void(LocalNotification&)>;

// One entry per field: every field takes part in equality and survives archiving.
const std::pair<const char*, Change> fieldChanges[] = {
    { "fireDate", [](auto& n) { n.setFireDate(Date(1234.5)); } },
    { "noFireDate", [](auto& n) { n.setFireDate(std::nullopt); } },
    { "timeZone", [](auto& n) { n.setTimeZone("Asia/Tokyo"); } },
    { "noTimeZone", [](auto& n) { n.setTimeZone(std::nullopt); } },
    { "repeatInterval", [](auto& n) { n.setRepeatInterval(Quarter); } },
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
            n.setUserInfo(Value::Dictionary { { "key", 2 } });
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
    n->setRepeatInterval(Month);
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
    auto value = bytes ? KeyedArchive::unarchive(*bytes) : std::nullopt;
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

TEST(LocalNotificationTest, DecodingRefusesObjectsWhereOnlyValuesBelong)
{
    for (const Value& entry : { Value(std::make_shared<LocalNotification>()),
             Value(Value::Array { 1, std::make_shared<Region>() }), Value() }) {
        auto notification = fullNotification();
        notification->setUserInfo({ { "smuggled", entry } });
        EXPECT_FALSE(roundTrip(*notification)) << entry.description();
    }
    // Nor a region no place has.
    auto placed = std::make_shared<LocalNotification>();
    placed->setRegion(std::make_shared<Region>("nowhere", std::numeric_limits<double>::infinity(), 0, 10));
    auto archived = KeyedArchive::archivedData(Value(placed));
    ASSERT_TRUE(archived);
    EXPECT_EQ(KTSLocalNotificationWhitelistedUnarchiveFromData(*archived), nullptr);
}

TEST(LocalNotificationTest, NotANumberNeverBreaksEqualityWithACopy)
{
    LocalNotification notification;
    notification.setFireDate(Date(std::numeric_limits<double>::quiet_NaN()));
    notification.setUserInfo({ { "ratio", Value(std::numeric_limits<double>::quiet_NaN()) } });
    EXPECT_TRUE(notification.copy()->isEqual(notification)) << "cancelling finds a notification by equality";
}

} // namespace
