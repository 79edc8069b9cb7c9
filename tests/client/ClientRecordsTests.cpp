// The record builders applications use, without a bus.
#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PropertyList.h"
#include "tessel/TesselServices.h"

#include <gtest/gtest.h>

using namespace tessel;

namespace {

ArchivedRecord plist(const Value& value, PropertyList::Format format = PropertyList::Format::Binary)
{
    return PropertyList::data(value, format).value_or(ArchivedRecord {});
}

TEST(ClientRecordsTest, LocalNotificationFieldsRoundTrip)
{
    struct Case {
        const char* name;
        LocalNotificationFields fields;
    };
    const Case cases[] = {
        { "defaults", {} },
        { "dated", { .fireDate = -1234.5, .alertBody = "Tea" } },
        { "wall clock, repeating",
            { .fireDate = 1e9,
                .timeZone = "America/New_York",
                .repeatInterval = RepeatUnit::Quarter,
                .repeatCalendar = "hebrew",
                .totalRepeatCount = 12 } },
        { "region",
            { .region = RegionFields { "home", -33.9, 151.2, 80.5, false, true },
                .regionTriggersOnce = true } },
        { "texts and sound",
            { .alertBody = "Body ✓",
                .alertTitle = "Title",
                .alertAction = "Open",
                .hasAction = false,
                .alertLaunchImage = "Launch",
                .soundName = LocalNotificationFields::defaultSoundName,
                .applicationIconBadgeNumber = -3,
                .category = "reminder" } },
        { "user info",
            { .userInfo = plist(Value(Value::Dictionary { { "list", Value::Array { 1, "two", 3.5 } },
                  { "when", Date(12) }, { "data", Bytes { 0, 1, 2 } } })) } },
        { "from a snooze", { .fromSnooze = true } },
    };
    for (auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        auto archive = testCase.fields.archive();
        ASSERT_TRUE(archive);
        EXPECT_EQ(LocalNotificationFields::unarchive(*archive), testCase.fields);
    }
}

TEST(ClientRecordsTest, FieldsThatCannotTravelMakeNoArchive)
{
    struct Case {
        const char* name;
        LocalNotificationFields fields;
    };
    const Case cases[] = {
        { "text that is not UTF-8", { .alertBody = "\xff\xfe" } },
        { "text holding NUL", { .category = std::string("a\0b", 3) } },
        { "user info that is no property list", { .userInfo = { 'n', 'o', 'p', 'e' } } },
        { "user info that is no dictionary", { .userInfo = plist(Value(Value::Array { 1, 2 })) } },
        { "an unknown repeat unit", { .repeatInterval = static_cast<RepeatUnit>(42) } },
    };
    for (auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        EXPECT_FALSE(testCase.fields.archive());
    }
    NotificationSettingsFields settings { .categories
        = { { .identifier = "c",
            .defaultActions
            = { { .identifier = "a", .title = "A", .parameters = plist(Value("not a dictionary")) } } } } };
    EXPECT_FALSE(settings.archive());
}

TEST(ClientRecordsTest, ReadersTakeOnlyTheirOwnRecords)
{
    auto notification = *LocalNotificationFields { .alertBody = "Hi" }.archive();
    auto settings = *NotificationSettingsFields { .types = NotificationTypeSound }.archive();
    // A dictionary where a record belongs.
    auto dictionary = *KeyedArchive::archivedData(Value(Value::Dictionary { { "alertBody", "Hi" } }));
    ArchivedRecord garbage { 'b', 'p', 'l', 'i', 's', 't', '0', '0', 1, 2, 3 };

    EXPECT_TRUE(LocalNotificationFields::unarchive(notification));
    EXPECT_TRUE(NotificationSettingsFields::unarchive(settings));
    for (auto* record : { &settings, &dictionary, &garbage })
        EXPECT_FALSE(LocalNotificationFields::unarchive(*record));
    for (auto* record : { &notification, &dictionary, &garbage })
        EXPECT_FALSE(NotificationSettingsFields::unarchive(*record));
    EXPECT_FALSE(LocalNotificationFields::unarchive({}));
}

TEST(ClientRecordsTest, SettingsFieldsRoundTripWithCategoriesAndActions)
{
    NotificationSettingsFields settings {
        .types = NotificationTypeBadge | NotificationTypeSound | NotificationTypeAlert,
        .categories = {
            { .identifier = "invite",
                .defaultActions = {
                    { .identifier = "accept", .title = "Accept", .activationMode = NotificationActionFields::Background },
                    { .identifier = "comment",
                        .title = "Comment",
                        .behavior = NotificationActionFields::TextInput,
                        .parameters = plist(Value(Value::Dictionary { { "submitTitle", "Send" } })),
                        .authenticationRequired = true },
                    { .identifier = "decline", .title = "Decline", .destructive = true },
                },
                .minimalActions = { { .identifier = "accept", .title = "Accept" } } },
            { .identifier = "plain" },
        },
    };
    auto archive = settings.archive();
    ASSERT_TRUE(archive);
    EXPECT_EQ(NotificationSettingsFields::unarchive(*archive), settings);
}

} // namespace
