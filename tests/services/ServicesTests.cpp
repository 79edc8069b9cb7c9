#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"

#include <functional>
#include <gtest/gtest.h>
#include <limits>

using namespace tessel;

namespace {

// Writes whatever fields it is given under any class name, to forge archives
// a well-behaved encoder would never produce.
class Forged : public Archivable {
public:
    Forged(std::string name, Value::Dictionary fields)
        : _name(std::move(name))
        , _fields(std::move(fields))
    {
    }
    std::string className() const override { return _name; }
    void encodeWithCoder(KeyedArchiver& coder) const override
    {
        for (auto& [key, value] : _fields)
            coder.encodeObject(value, key);
    }

private:
    std::string _name;
    Value::Dictionary _fields;
};

Bytes archive(const Value& root)
{
    auto bytes = KeyedArchive::archivedData(root);
    EXPECT_TRUE(bytes);
    return bytes.value_or(Bytes {});
}

std::shared_ptr<LocalNotification> sample()
{
    auto notification = std::make_shared<LocalNotification>();
    notification->setFireDate(Date(1000));
    notification->setRepeatInterval(CalendarUnit::Day);
    notification->setRegion(std::make_shared<Region>("office", 48.1, 11.6, 200));
    notification->setUserInfo({ { "id", "x1" } });
    notification->setAlertBody("Stand-up");
    return notification;
}

TEST(WhitelistedUnarchiveTest, AcceptsOnlyNotificationsMadeOfAllowedClasses)
{
    KTSNotificationSchedule::registerArchivableClass();
    KTSNotificationScheduleFetchRequest::registerArchivableClass();
    auto withUserInfo = [](Value entry) {
        auto notification = sample();
        notification->setUserInfo({ { "inner", std::move(entry) } });
        return Value(notification);
    };
    auto schedule = std::make_shared<KTSNotificationSchedule>();
    schedule->addLocalNotification(sample(), Date(1000));
    struct Case {
        const char* name;
        Bytes data;
        bool accepted;
    } cases[] = {
        { "Notification", archive(sample()), true },
        { "RegionAsRoot", archive(std::make_shared<Region>("r", 1, 2, 3)), false },
        { "ScheduleAsRoot", archive(schedule), false },
        { "ScheduleDeepInUserInfo",
            archive(withUserInfo(Value::Array { Value::Dictionary { { "s", schedule } } })), false },
        { "NotificationInUserInfo", archive(withUserInfo(sample())), false },
        { "NotificationAsRegion",
            archive(
                std::make_shared<Forged>("LocalNotification", Value::Dictionary { { "region", sample() } })),
            false },
        { "UnknownClassInside",
            archive(std::make_shared<Forged>("LocalNotification",
                Value::Dictionary {
                    { "alertBody", std::make_shared<Forged>("Mystery", Value::Dictionary {}) } })),
            false },
        // Only the class list catches a registered class in a field the record never reads.
        { "FetchRequestInUnreadField",
            archive(std::make_shared<Forged>("LocalNotification",
                Value::Dictionary { { "extra", std::make_shared<KTSNotificationScheduleFetchRequest>() } })),
            false },
        { "PlainValueInUnreadField",
            archive(std::make_shared<Forged>("LocalNotification", Value::Dictionary { { "extra", 5 } })),
            true },
    };
    for (auto& c : cases)
        EXPECT_EQ(KTSLocalNotificationWhitelistedUnarchiveFromData(c.data) != nullptr, c.accepted) << c.name;
    auto decoded = KTSLocalNotificationWhitelistedUnarchiveFromData(archive(sample()));
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqual(*sample()));
}

TEST(FetchRequestTest, RoundTrips)
{
    KTSNotificationScheduleFetchRequest::registerArchivableClass();
    auto make = [](std::optional<Date> start, std::optional<Date> end, uint64_t maxSize, bool snoozes) {
        auto request = std::make_shared<KTSNotificationScheduleFetchRequest>();
        request->setStartDate(start);
        request->setEndDate(end);
        request->setMaxSize(maxSize);
        request->setIncludeSnoozes(snoozes);
        return request;
    };
    std::shared_ptr<KTSNotificationScheduleFetchRequest> requests[] = {
        make(std::nullopt, std::nullopt, 0, false),
        make(std::nullopt, Date(-20.5), 1, false),
        make(Date(1), Date(2), std::numeric_limits<uint64_t>::max(), true),
    };
    for (auto& request : requests) {
        auto value = KeyedArchive::unarchive(archive(request));
        ASSERT_TRUE(value);
        auto decoded = value->objectAs<KTSNotificationScheduleFetchRequest>();
        ASSERT_TRUE(decoded) << request->description();
        EXPECT_TRUE(decoded->isEqual(*request)) << request->description() << " vs " << decoded->description();
        for (auto& other : requests)
            EXPECT_EQ(decoded->isEqual(*other), other == request) << request->description();
    }
}

TEST(ScheduleTest, RoundTripsInOrderAndRefusesMalformedEntries)
{
    KTSNotificationSchedule::registerArchivableClass();
    auto schedule = std::make_shared<KTSNotificationSchedule>();
    auto second = sample();
    second->setAlertBody("Retro");
    schedule->addLocalNotification(sample(), Date(2000));
    schedule->addLocalNotification(nullptr, Date(2500));
    schedule->addLocalNotification(second, Date(1000));
    ASSERT_EQ(schedule->count(), 2u);
    auto value = KeyedArchive::unarchive(archive(schedule));
    ASSERT_TRUE(value);
    auto decoded = value->objectAs<KTSNotificationSchedule>();
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqual(*schedule));
    EXPECT_EQ(decoded->entries()[1].notification->alertBody(), "Retro");
    EXPECT_EQ(decoded->entries()[1].fireDate, Date(1000));

    struct Case {
        const char* name;
        Value notifications, dates;
    } malformed[] = {
        { "LengthsDiffer", Value::Array { sample() }, Value::Array {} },
        { "NotADate", Value::Array { sample() }, Value::Array { 5 } },
        { "NotANotification", Value::Array { std::make_shared<Region>() }, Value::Array { Date(1) } },
        { "NotArrays", Value(), Value() },
    };
    for (auto& c : malformed) {
        auto forged = std::make_shared<Forged>("KTSNotificationSchedule",
            Value::Dictionary { { "notifications", c.notifications }, { "fireDates", c.dates } });
        auto result = KeyedArchive::unarchive(archive(forged));
        ASSERT_TRUE(result) << c.name;
        EXPECT_TRUE(result->isNull()) << c.name;
    }
}

} // namespace
