// The scheduler client against the daemon-side transport on a private bus.
#include "client/ClientFixture.h"

#include "platform/archive/PropertyList.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"

using namespace tessel;

namespace {

constexpr const char* app = "com.example.alarm";

using SchedulerClientTest = ClientFixture;

// Every field in use somewhere among them.
std::vector<LocalNotificationFields> sixtyFourNotifications()
{
    std::vector<LocalNotificationFields> list;
    for (int index = 0; index < 64; ++index) {
        LocalNotificationFields fields {
            .fireDate = 700'000'000.0 + 60 * index,
            .alertBody = "Alarm " + std::to_string(index),
            .applicationIconBadgeNumber = index,
        };
        if (index % 4 == 1) {
            fields.timeZone = "Europe/Berlin";
            fields.repeatInterval = RepeatUnit::Day;
            fields.totalRepeatCount = 3;
        }
        if (index % 4 == 2) {
            fields.fireDate.reset();
            fields.region = RegionFields { "office", 48.1, 11.6, 150, true, false };
            fields.regionTriggersOnce = true;
        }
        if (index % 4 == 3) {
            fields.userInfo
                = *PropertyList::data(Value(Value::Dictionary { { "id", index }, { "room", "kitchen" } }),
                    PropertyList::Format::Binary);
            fields.soundName = LocalNotificationFields::defaultSoundName;
            fields.category = "alarm";
            fields.alertTitle = "Wake up";
            fields.alertAction = "Snooze";
            fields.hasAction = false;
            fields.alertLaunchImage = "Dawn";
        }
        list.push_back(std::move(fields));
    }
    return list;
}

std::vector<ArchivedRecord> archived(const std::vector<LocalNotificationFields>& list)
{
    std::vector<ArchivedRecord> records;
    for (auto& fields : list)
        records.push_back(fields.archive().value_or(ArchivedRecord {}));
    return records;
}

TEST_F(SchedulerClientTest, SixtyFourNotificationsRoundTrip)
{
    Daemon daemon(address());
    KTSNotificationSchedulerClient client(options());
    auto notifications = sixtyFourNotifications();
    Inbox<KTSNotificationSchedulerClient::List> lists;
    client.setScheduledLocalNotifications(archived(notifications), app);
    client.scheduledLocalNotificationsForBundleIdentifier(
        app, [&](auto list) { lists.push(std::move(list)); });

    auto received = lists.waitFor(1);
    ASSERT_EQ(received.size(), 1u);
    ASSERT_EQ(received.front().size(), 64u);
    for (size_t index = 0; index < 64; ++index)
        EXPECT_EQ(LocalNotificationFields::unarchive(received.front()[index]), notifications[index]) << index;
    EXPECT_EQ(daemon.scheduler().calls.items().front().notifications, 64u);
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(SchedulerClientTest, EventsReachTheObserverValidated)
{
    Daemon daemon(address());
    KTSNotificationSchedulerClient client(options());
    Inbox<std::string> events;
    auto record = [&](const char* name) {
        return [&events, name](const KTSNotificationSchedulerClient::List& list, const std::string& id) {
            std::string text = std::string(name) + " " + id;
            for (auto& bytes : list)
                text += " "
                    + LocalNotificationFields::unarchive(bytes)
                          .value_or(LocalNotificationFields {})
                          .alertBody;
            events.push(text);
        };
    };
    client.setObserver({ .didChangeScheduledLocalNotifications = record("changed"),
        .didFireLocalNotifications = record("fired") });
    Inbox<int> observing;
    client.setObservingScheduledLocalNotifications(true, app, [&] { observing.push(1); });
    ASSERT_EQ(observing.waitFor(1).size(), 1u);

    auto list = archived(sixtyFourNotifications());
    KTSNotificationSchedulerClientProtocol::List notifications;
    for (int index = 0; index < 2; ++index)
        notifications.push_back(KTSLocalNotificationWhitelistedUnarchiveFromData(list[index]));
    auto events_ = daemon.eventsTo<KTSNotificationSchedulerClientProtocol>(daemon.scheduler(), app);
    events_->didChangeScheduledLocalNotifications(notifications, app);
    // One record in the list that does not read spoils the event.
    daemon.service->emitSignal(KTSNotificationSchedulerService::objectPath(),
        KTSNotificationSchedulerService::clientInterface(), "DidFireLocalNotifications",
        daemon.scheduler().callsFor(app).back().connection->peer().name, [&](sdbus::Signal& signal) {
            signal << std::vector<std::vector<uint8_t>> { list[0], { 'x' } } << std::string(app);
        });
    events_->didFireLocalNotifications({ notifications[1] }, app);

    EXPECT_EQ(events.waitFor(2),
        (std::vector<std::string> {
            "changed com.example.alarm Alarm 0 Alarm 1", "fired com.example.alarm Alarm 1" }));
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> { summary(ClientErrorCode::MalformedAnswer, "didFireLocalNotifications") });
}

TEST_F(SchedulerClientTest, RefusedRequestsAreNeverAnsweredAndBadRecordsNeverSent)
{
    Daemon daemon(address());
    KTSNotificationSchedulerClient client(options());
    Inbox<std::string> answers;
    auto list = archived(sixtyFourNotifications());
    list.resize(1);
    const char* refuse = "refuse";
    client.scheduledLocalNotificationsForBundleIdentifier(refuse, [&](auto) { answers.push("list"); });
    client.scheduleForBundleIdentifier(refuse, {}, [&](auto) { answers.push("schedule"); });
    client.addScheduledLocalNotifications(list, refuse, [&] { answers.push("add"); });
    client.snoozeScheduledLocalNotifications(list, refuse, [&] { answers.push("snooze"); });
    client.setObservingScheduledLocalNotifications(true, refuse, [&] { answers.push("observing"); });
    client.setScheduledLocalNotifications({ { 'b', 'a', 'd' } }, app, [&] { answers.push("bad"); });
    client.cancelScheduledLocalNotifications(list, app, [&] { answers.push("barrier"); });

    EXPECT_EQ(answers.waitFor(1), std::vector<std::string> { "barrier" });
    EXPECT_EQ(callsTo(daemon.scheduler()).size(), 6u);
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> {
            summary(ClientErrorCode::InvalidArguments, "setScheduledLocalNotifications") });
}

} // namespace
