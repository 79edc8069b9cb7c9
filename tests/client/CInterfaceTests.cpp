// The C interface, as another language would use it, against the fake daemons.
#include "client/ClientFixture.h"

#include "tessel/TesselServices_c.h"

#include <cmath>
#include <cstring>

using namespace tessel;

namespace {

// What the C callbacks saw, reached through their context.
struct Seen {
    Inbox<std::string> answers;
    Inbox<std::string> errors;
    Inbox<std::pair<void (*)(void*), void*>> queued;
};

using ClientCInterfaceTest = ClientFixture;

void queueWork(void* context, void (*work)(void*), void* workContext)
{
    static_cast<Seen*>(context)->queued.push({ work, workContext });
}

void recordError(void* context, TesselServicesErrorCode code, const char* operation, const char*)
{
    static_cast<Seen*>(context)->errors.push(std::to_string(code) + " " + operation);
}

TEST_F(ClientCInterfaceTest, RegistrarAnswersThroughTheApplicationsExecutor)
{
    Daemon daemon(address());
    Seen seen;
    auto* client = TesselServicesRegistrarCreate(address().c_str(), queueWork, &seen, recordError, &seen, 0);
    uint8_t* settings = nullptr;
    size_t length = 0;
    ASSERT_TRUE(TesselServicesNotificationSettingsArchive(NotificationTypeSound, &settings, &length));
    TesselServicesRegistrarRegisterNotificationSettings(
        client, settings, length, "com.example.c",
        [](void* context, const uint8_t* record, size_t length) {
            uint64_t types = 0;
            TesselServicesNotificationSettingsTypes(record, length, &types);
            static_cast<Seen*>(context)->answers.push("settings " + std::to_string(types));
        },
        &seen);
    TesselServicesFree(settings);
    TesselServicesRegistrarBackgroundAppRefreshMapping(
        client,
        [](void* context, size_t count, const char* const* identifiers, const bool* allowed) {
            std::string text = "mapping";
            for (size_t index = 0; index < count; ++index)
                text += std::string(" ") + identifiers[index] + "=" + std::to_string(allowed[index]);
            static_cast<Seen*>(context)->answers.push(text);
        },
        &seen);

    auto queued = seen.queued.waitFor(2);
    ASSERT_EQ(queued.size(), 2u);
    EXPECT_TRUE(seen.answers.items().empty());
    for (auto& [work, context] : queued)
        work(context);
    EXPECT_EQ(seen.answers.items(),
        (std::vector<std::string> { "settings 2", "mapping com.example.a=1 com.example.b=0" }));
    TesselServicesRegistrarDestroy(client);
}

TEST_F(ClientCInterfaceTest, SchedulerTakesAndGivesArchivedNotifications)
{
    Daemon daemon(address());
    Seen seen;
    auto* client = TesselServicesSchedulerCreate(address().c_str(), nullptr, nullptr, recordError, &seen, 0);
    auto* notification = TesselServicesLocalNotificationCreate();
    TesselServicesLocalNotificationSetText(notification, TesselServicesFieldAlertBody, "From C");
    TesselServicesLocalNotificationSetText(notification, TesselServicesFieldTimeZone, "Asia/Tokyo");
    TesselServicesLocalNotificationSetNumber(notification, TesselServicesFieldFireDate, 5000);
    TesselServicesLocalNotificationSetNumber(notification, TesselServicesFieldRepeatInterval, 5);
    TesselServicesLocalNotificationSetRegion(notification, "park", 1.5, 2.5, 30, true, false);
    uint8_t* record = nullptr;
    size_t length = 0;
    ASSERT_TRUE(TesselServicesLocalNotificationCopyArchive(notification, &record, &length));
    TesselServicesLocalNotificationDestroy(notification);

    const uint8_t* records[] = { record };
    TesselServicesSchedulerSetScheduledLocalNotifications(
        client, 1, records, &length, "com.example.c", nullptr, nullptr);
    TesselServicesFree(record);
    TesselServicesSchedulerScheduledLocalNotifications(
        client, "com.example.c",
        [](void* context, size_t count, const uint8_t* const* records, const size_t* lengths) {
            auto& answers = static_cast<Seen*>(context)->answers;
            for (size_t index = 0; index < count; ++index) {
                auto* back = TesselServicesLocalNotificationCreateFromArchive(records[index], lengths[index]);
                if (!back)
                    return answers.push("unreadable");
                const char* region = nullptr;
                double radius = 0;
                TesselServicesLocalNotificationRegion(
                    back, &region, nullptr, nullptr, &radius, nullptr, nullptr);
                answers.push(
                    std::string(TesselServicesLocalNotificationText(back, TesselServicesFieldAlertBody)) + " "
                    + TesselServicesLocalNotificationText(back, TesselServicesFieldTimeZone) + " "
                    + std::to_string(TesselServicesLocalNotificationNumber(back, TesselServicesFieldFireDate))
                    + " "
                    + std::to_string(
                        TesselServicesLocalNotificationNumber(back, TesselServicesFieldRepeatInterval))
                    + " " + region + " " + std::to_string(radius));
                TesselServicesLocalNotificationDestroy(back);
            }
        },
        &seen);

    EXPECT_EQ(seen.answers.waitFor(1),
        std::vector<std::string> { "From C Asia/Tokyo 5000.000000 5.000000 park 30.000000" });
    EXPECT_TRUE(seen.errors.items().empty());
    TesselServicesSchedulerDestroy(client);
}

TEST_F(ClientCInterfaceTest, WithoutDaemonTheErrorCallbackNamesTheOperation)
{
    Seen seen;
    auto* client = TesselServicesRegistrarCreate(address().c_str(), nullptr, nullptr, recordError, &seen, 0);
    TesselServicesRegistrarNotificationTypes(
        client, "com.example.c",
        [](void* context, uint64_t) { static_cast<Seen*>(context)->answers.push("types"); }, &seen);
    EXPECT_EQ(seen.errors.waitFor(1),
        std::vector<std::string> {
            std::to_string(TesselServicesErrorNoDaemon) + " notificationTypesForBundleIdentifier" });
    EXPECT_TRUE(seen.answers.items().empty());
    TesselServicesRegistrarDestroy(client);
}

} // namespace
