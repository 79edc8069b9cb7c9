// The registrar client against the daemon-side transport on a private bus.
#include "client/ClientFixture.h"

#include <future>
#include <thread>

using namespace tessel;

namespace {

constexpr const char* app = "com.example.chat";

using RegistrarClientTest = ClientFixture;

NotificationSettingsFields chatSettings()
{
    NotificationActionFields reply {
        .identifier = "reply", .title = "Reply", .behavior = NotificationActionFields::TextInput
    };
    NotificationActionFields mute { .identifier = "mute", .title = "Mute", .destructive = true };
    return {
        .types = NotificationTypeBadge | NotificationTypeAlert | 0x100,
        .categories = {
            { .identifier = "chat", .defaultActions = { reply, mute }, .minimalActions = { reply } },
            // Without an identifier: the daemon keeps only valid categories.
            { .identifier = "", .defaultActions = { mute } },
        },
    };
}

TEST_F(RegistrarClientTest, SettingsRegistrationRoundTripsAsTheDaemonValidatedThem)
{
    Daemon daemon(address());
    KTSNotificationRegistrarClient client(options());
    Inbox<std::optional<ArchivedRecord>> registered;
    client.registerNotificationSettings(
        *chatSettings().archive(), app, [&](auto answer) { registered.push(answer); });
    client.notificationSettingsForBundleIdentifier(app, [&](auto answer) { registered.push(answer); });

    auto answers = registered.waitFor(2);
    ASSERT_EQ(answers.size(), 2u);
    auto expected = chatSettings();
    expected.types = NotificationTypeBadge | NotificationTypeAlert;
    expected.categories.pop_back();
    for (auto& answer : answers) {
        ASSERT_TRUE(answer);
        EXPECT_EQ(NotificationSettingsFields::unarchive(*answer), expected);
    }
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(RegistrarClientTest, EveryOperationIsAnsweredUnlessRefused)
{
    Daemon daemon(address());
    KTSNotificationRegistrarClient client(options());
    Inbox<std::string> answers;
    std::string id;
    auto done = [&] { return [&] { answers.push("done"); }; };
    auto registration = [&](std::optional<RegistrationError> error) {
        answers.push(error ? error->domain + " " + std::to_string(error->code) : "no error");
    };
    auto number = [&](auto value) { answers.push(std::to_string(value)); };
    struct Case {
        std::function<void()> invoke;
        std::string method;
        std::string answer;
    };
    const Case cases[] = {
        { [&] { client.setObservingRemoteNotifications(true, id, done()); },
            "SetObservingRemoteNotifications", "done" },
        { [&] { client.invalidateTokenForRemoteNotificationsForBundleIdentifier(id, done()); },
            "InvalidateToken", "done" },
        { [&] { client.registerBadgeSettingForBundleIdentifier(id, done()); }, "RegisterBadgeSetting",
            "done" },
        { [&] {
             client.notificationSettingsForBundleIdentifier(
                 id, [&](auto s) { answers.push(s ? "settings" : "none"); });
         },
            "NotificationSettings", "none" },
        { [&] { client.notificationTypesForBundleIdentifier(id, number); }, "NotificationTypes", "42" },
        { [&] { client.allowsRemoteNotificationsForBundleIdentifier(id, number); },
            "AllowsRemoteNotifications", "1" },
        { [&] { client.remoteNotificationTypesForBundleIdentifier(id, number); }, "RemoteNotificationTypes",
            "5" },
        { [&] { client.registerRemoteNotificationTypes(4, id, registration); },
            "RegisterRemoteNotificationTypes", "KTSErrorDomain 3010" },
        { [&] { client.registerRemoteNotificationTypes(0, id, registration); },
            "RegisterRemoteNotificationTypes", "no error" },
        { [&] { client.requestTokenForRemoteNotificationsForBundleIdentifier(id, registration); },
            "RequestToken", "no error" },
        { [&] { client.setAllowsBackgroundRefresh(false, id, done()); }, "SetAllowsBackgroundRefresh",
            "done" },
    };
    id = app;
    size_t count = 0;
    for (auto& testCase : cases) {
        SCOPED_TRACE(testCase.method);
        testCase.invoke();
        auto got = answers.waitFor(++count);
        ASSERT_EQ(got.size(), count);
        EXPECT_EQ(got.back(), testCase.answer);
        EXPECT_EQ(callsTo(daemon.registrar()).back(), testCase.method + " " + app);
    }
    client.backgroundAppRefreshBundleIdentifierMappingWithResult([&](std::map<std::string, bool> mapping) {
        answers.push(std::to_string(mapping.size()) + " " + std::to_string(mapping["com.example.b"]));
    });
    EXPECT_EQ(answers.waitFor(std::size(cases) + 1).back(), "2 0");

    // Answers come in order: once the last call is answered, none before it will be.
    id = "refuse";
    for (auto& testCase : cases)
        testCase.invoke();
    auto before = answers.items().size();
    client.registerBadgeSettingForBundleIdentifier(app, [&] { answers.push("barrier"); });
    EXPECT_EQ(answers.waitFor(before + 1).back(), "barrier");
    EXPECT_EQ(answers.items().size(), before + 1);
    EXPECT_EQ(daemon.registrar().callsFor("refuse").size(), std::size(cases));
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(RegistrarClientTest, WithoutDaemonOrBusCallsFailOffTheCallersThread)
{
    Inbox<std::thread::id> threads;
    auto noDaemon = options();
    noDaemon.errorHandler = [&](const ClientError& error) {
        errors.push(error);
        threads.push(std::this_thread::get_id());
    };
    KTSNotificationRegistrarClient client(noDaemon);
    client.notificationTypesForBundleIdentifier(app, [](uint64_t) { ADD_FAILURE() << "answered"; });
    ASSERT_EQ(errors.waitFor(1).size(), 1u);
    privateBus.reset();
    client.setObservingRemoteNotifications(true, app, [] { ADD_FAILURE() << "answered"; });

    ASSERT_EQ(threads.waitFor(2).size(), 2u);
    for (auto thread : threads.items())
        EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_EQ(errorSummaries(),
        (std::vector<std::string> {
            summary(ClientErrorCode::NoDaemon, "notificationTypesForBundleIdentifier"),
            summary(ClientErrorCode::NoBus, "setObservingRemoteNotifications") }));
}

TEST_F(RegistrarClientTest, TokenReachesTheObserverOnlyFromTheDaemon)
{
    Daemon daemon(address());
    KTSNotificationRegistrarClient client(options());
    Inbox<std::string> tokens;
    client.setObserver(
        { .didReceiveDeviceToken = [&](const std::vector<uint8_t>& token, const std::string& id) {
            tokens.push(id + " " + std::string(token.begin(), token.end()));
        } });
    Inbox<int> observing;
    client.setObservingRemoteNotifications(true, app, [&] { observing.push(1); });
    ASSERT_EQ(observing.waitFor(1).size(), 1u);
    auto clientName = daemon.registrar().callsFor(app).back().connection->peer().name;

    // Another peer posing as the daemon, with a token and with arguments that
    // do not read, then a ping so that the client has read the forgeries
    // before the daemon's own events are sent.
    auto impostor = sdbus::createSessionBusConnectionWithAddress(address());
    auto object = sdbus::createObject(*impostor, KTSNotificationRegistrarService::objectPath());
    auto forge = [&](auto fill) {
        auto signal = object->createSignal(
            KTSNotificationRegistrarService::clientInterface(), "DidReceiveDeviceToken");
        fill(signal);
        signal.setDestination(clientName);
        object->emitSignal(signal);
    };
    forge([](sdbus::Signal& signal) {
        signal << std::vector<uint8_t> { 'f', 'a', 'k', 'e' } << std::string(app);
    });
    forge([](sdbus::Signal& signal) { signal << 42u; });
    sdbus::createProxy(*impostor, clientName, "/")
        ->callMethod("Ping")
        .onInterface("org.freedesktop.DBus.Peer");

    daemon.service->emitSignal(KTSNotificationRegistrarService::objectPath(),
        KTSNotificationRegistrarService::clientInterface(), "DidReceiveDeviceToken", clientName,
        [](sdbus::Signal& signal) { signal << std::string("not bytes") << std::string(app); });
    daemon.eventsTo<KTSNotificationRegistrarClientProtocol>(daemon.registrar(), app)
        ->didReceiveDeviceToken({ 't', 'o', 'k' }, app);
    EXPECT_EQ(tokens.waitFor(1), std::vector<std::string> { "com.example.chat tok" });
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> { summary(ClientErrorCode::MalformedAnswer, "didReceiveDeviceToken") });
}

TEST_F(RegistrarClientTest, ObservingIsRegisteredAgainWithEachNewDaemon)
{
    auto first = std::make_unique<Daemon>(address());
    KTSNotificationRegistrarClient client(options());
    Inbox<std::string> tokens;
    client.setObserver(
        { .didReceiveDeviceToken = [&](const std::vector<uint8_t>& token, const std::string& id) {
            tokens.push(id + " " + std::string(token.begin(), token.end()));
        } });
    Inbox<int> taken;
    client.setObservingRemoteNotifications(true, "com.example.a", [&] { taken.push(1); });
    client.setObservingRemoteNotifications(true, "com.example.b", [&] { taken.push(1); });
    client.setObservingRemoteNotifications(false, "com.example.b", [&] { taken.push(1); });
    ASSERT_EQ(taken.waitFor(3).size(), 3u);
    first.reset();

    Daemon second(address());
    ASSERT_EQ(second.registrar().calls.waitFor(1).size(), 1u);
    // Sent after the registrations again, so answered after them.
    client.registerBadgeSettingForBundleIdentifier("com.example.a", [&] { taken.push(1); });
    ASSERT_EQ(taken.waitFor(4).size(), 4u);
    EXPECT_EQ(callsTo(second.registrar()),
        (std::vector<std::string> {
            "SetObservingRemoteNotifications com.example.a", "RegisterBadgeSetting com.example.a" }));

    second.eventsTo<KTSNotificationRegistrarClientProtocol>(second.registrar(), "com.example.a")
        ->didReceiveDeviceToken({ 'n', 'e', 'w' }, "com.example.a");
    EXPECT_EQ(tokens.waitFor(1), std::vector<std::string> { "com.example.a new" });
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(RegistrarClientTest, CallbacksRunThroughTheExecutorAndNotAfterTheClient)
{
    Daemon daemon(address());
    Inbox<std::function<void()>> queue;
    auto client = std::make_unique<KTSNotificationRegistrarClient>(
        options([&](std::function<void()> work) { queue.push(std::move(work)); }));
    Inbox<std::thread::id> answered;
    for (int index = 0; index < 2; ++index)
        client->notificationTypesForBundleIdentifier(
            app, [&](uint64_t) { answered.push(std::this_thread::get_id()); });

    auto work = queue.waitFor(2);
    ASSERT_EQ(work.size(), 2u);
    EXPECT_TRUE(answered.items().empty());
    work[0]();
    EXPECT_EQ(answered.items(), std::vector { std::this_thread::get_id() });
    client.reset();
    work[1]();
    EXPECT_EQ(answered.items().size(), 1u);
}

TEST_F(RegistrarClientTest, ClientMayBeDestroyedInsideItsOwnCallback)
{
    Daemon daemon(address());
    auto client = std::make_unique<KTSNotificationRegistrarClient>(options());
    std::promise<void> allSent;
    auto sent = allSent.get_future().share();
    Inbox<int> answered;
    for (int index = 0; index < 8; ++index)
        client->notificationTypesForBundleIdentifier(app, [&, sent](uint64_t) {
            sent.wait();
            client.reset();
            answered.push(1);
        });
    allSent.set_value();

    EXPECT_EQ(answered.waitFor(1).size(), 1u);
    // The other seven answers die with the client.
    EXPECT_EQ(answered.waitFor(2, 200ms).size(), 1u);
}

} // namespace
