// The registrar client against a fake daemon on a private bus.
#include "client/ClientFixture.h"
#include "support/TemporaryDirectory.h"

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
    Running<FakeRegistrar> daemon(address());
    KTSNotificationRegistrarClient client(options());
    auto settings = chatSettings().archive();
    ASSERT_TRUE(settings);

    Inbox<std::optional<ArchivedRecord>> registered;
    client.registerNotificationSettings(*settings, app, [&](auto answer) { registered.push(answer); });
    client.notificationSettingsForBundleIdentifier(app, [&](auto answer) { registered.push(answer); });

    auto answers = registered.waitFor(2);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(daemon->calls.items().front(),
        "RegisterNotificationSettings com.example.chat types 261 categories 2");
    auto expected = chatSettings();
    expected.types = NotificationTypeBadge | NotificationTypeAlert;
    expected.categories.pop_back();
    for (auto& answer : answers) {
        ASSERT_TRUE(answer);
        EXPECT_EQ(NotificationSettingsFields::unarchive(*answer), expected);
    }
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(RegistrarClientTest, EveryOperationReachesTheDaemonAndAnswers)
{
    Running<FakeRegistrar> daemon(address());
    KTSNotificationRegistrarClient client(options());
    Inbox<std::string> answers;
    auto done = [&] { return [&] { answers.push("done"); }; };
    auto registration = [&](std::optional<RegistrationError> error) {
        answers.push(error
                ? error->domain + " " + std::to_string(error->code) + " " + error->localizedDescription
                : "no error");
    };
    struct Case {
        std::function<void()> invoke;
        std::string call;
        std::string answer;
    };
    const Case cases[] = {
        { [&] { client.setObservingRemoteNotifications(true, app, done()); },
            "SetObservingRemoteNotifications 1 com.example.chat", "done" },
        { [&] { client.invalidateTokenForRemoteNotificationsForBundleIdentifier(app, done()); },
            "InvalidateTokenForRemoteNotifications com.example.chat", "done" },
        { [&] { client.registerBadgeSettingForBundleIdentifier(app, done()); },
            "RegisterBadgeSetting com.example.chat", "done" },
        { [&] {
             client.notificationSettingsForBundleIdentifier(
                 app, [&](auto settings) { answers.push(settings ? "settings" : "none"); });
         },
            "NotificationSettings com.example.chat", "none" },
        { [&] {
             client.notificationTypesForBundleIdentifier(
                 app, [&](uint64_t types) { answers.push(std::to_string(types)); });
         },
            "NotificationTypes com.example.chat", "5" },
        { [&] {
             client.allowsRemoteNotificationsForBundleIdentifier(
                 app, [&](bool allowed) { answers.push(allowed ? "allowed" : "not allowed"); });
         },
            "AllowsRemoteNotifications com.example.chat", "allowed" },
        { [&] {
             client.remoteNotificationTypesForBundleIdentifier(
                 app, [&](uint64_t types) { answers.push(std::to_string(types)); });
         },
            "RemoteNotificationTypes com.example.chat", "5" },
        { [&] { client.registerRemoteNotificationTypes(4, app, registration); },
            "RegisterRemoteNotificationTypes 4 com.example.chat",
            "KTSErrorDomain 3010 remote notifications are not supported" },
        { [&] { client.registerRemoteNotificationTypes(0, app, registration); },
            "RegisterRemoteNotificationTypes 0 com.example.chat", "no error" },
        { [&] { client.requestTokenForRemoteNotificationsForBundleIdentifier(app, registration); },
            "RequestTokenForRemoteNotifications com.example.chat", "no error" },
        { [&] {
             client.backgroundAppRefreshBundleIdentifierMappingWithResult(
                 [&](std::map<std::string, bool> mapping) {
                     std::string text;
                     for (auto& [bundleIdentifier, allowed] : mapping)
                         text += bundleIdentifier + "=" + std::to_string(allowed) + " ";
                     answers.push(text);
                 });
         },
            "BackgroundAppRefreshBundleIdentifierMapping", "com.example.a=1 com.example.b=0 " },
        { [&] { client.setAllowsBackgroundRefresh(false, app, done()); },
            "SetAllowsBackgroundRefresh 0 com.example.chat", "done" },
    };
    size_t count = 0;
    for (auto& testCase : cases) {
        SCOPED_TRACE(testCase.call);
        testCase.invoke();
        ++count;
        auto got = answers.waitFor(count);
        ASSERT_EQ(got.size(), count);
        EXPECT_EQ(got.back(), testCase.answer);
        EXPECT_EQ(daemon->calls.items().back(), testCase.call);
    }
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(RegistrarClientTest, DaemonErrorsReachTheErrorHandlerAndRefusalsNothing)
{
    Running<FakeRegistrar> daemon(address());
    KTSNotificationRegistrarClient client(options());
    struct Case {
        const char* errorName;
        std::optional<ClientErrorCode> reported;
    };
    const Case cases[] = {
        { "com.tamber.Tessel.Error.NotEntitled", std::nullopt },
        { "com.tamber.Tessel.Error.LimitExceeded", ClientErrorCode::LimitExceeded },
        { "com.tamber.Tessel.Error.InvalidArguments", ClientErrorCode::InvalidArguments },
        { "org.freedesktop.DBus.Error.AccessDenied", ClientErrorCode::Failed },
    };
    Inbox<std::string> answers;
    for (auto& testCase : cases) {
        SCOPED_TRACE(testCase.errorName);
        auto before = errors.items().size();
        daemon->answerWithError("NotificationTypes", testCase.errorName);
        client.notificationTypesForBundleIdentifier(app, [&](uint64_t) { answers.push("types"); });
        // Answers come in order: once the next call is answered, the one
        // before it has been dealt with.
        client.allowsRemoteNotificationsForBundleIdentifier(app, [&](bool) { answers.push("barrier"); });
        auto got = answers.waitFor(answers.items().size() + 1);
        EXPECT_EQ(got.back(), "barrier");
        auto reported = errors.items();
        if (!testCase.reported) {
            EXPECT_EQ(reported.size(), before);
            continue;
        }
        ASSERT_EQ(reported.size(), before + 1);
        EXPECT_EQ(reported.back().code, *testCase.reported);
        EXPECT_EQ(reported.back().operation, "notificationTypesForBundleIdentifier");
        EXPECT_NE(reported.back().message.find(testCase.errorName), std::string::npos);
    }
    for (auto& answer : answers.items())
        EXPECT_EQ(answer, "barrier");
}

TEST_F(RegistrarClientTest, ADaemonThatNeverAnswersTimesOut)
{
    Running<FakeRegistrar> daemon(address());
    daemon->answerWithError("NotificationTypes", "hold");
    auto shortWait = options();
    shortWait.timeout = 200ms;
    KTSNotificationRegistrarClient client(shortWait);
    client.notificationTypesForBundleIdentifier(app, [&](uint64_t) { ADD_FAILURE() << "answered"; });

    ASSERT_EQ(errors.waitFor(1).size(), 1u);
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> {
            summary(ClientErrorCode::Timeout, "notificationTypesForBundleIdentifier") });
}

TEST_F(RegistrarClientTest, RefusedRequestsOfEveryShapeAreNeverAnswered)
{
    Running<FakeRegistrar> daemon(address());
    KTSNotificationRegistrarClient client(options());
    Inbox<std::string> answers;
    for (auto* method : { "SetObservingRemoteNotifications", "RegisterNotificationSettings",
             "NotificationTypes", "AllowsRemoteNotifications", "RegisterRemoteNotificationTypes",
             "BackgroundAppRefreshBundleIdentifierMapping" })
        daemon->answerWithError(method, "com.tamber.Tessel.Error.NotEntitled");

    client.setObservingRemoteNotifications(true, app, [&] { answers.push("observing"); });
    client.registerNotificationSettings(
        *chatSettings().archive(), app, [&](auto) { answers.push("settings"); });
    client.notificationTypesForBundleIdentifier(app, [&](uint64_t) { answers.push("types"); });
    client.allowsRemoteNotificationsForBundleIdentifier(app, [&](bool) { answers.push("allowed"); });
    client.registerRemoteNotificationTypes(4, app, [&](auto) { answers.push("registration"); });
    client.backgroundAppRefreshBundleIdentifierMappingWithResult([&](auto) { answers.push("mapping"); });
    client.registerBadgeSettingForBundleIdentifier(app, [&] { answers.push("barrier"); });

    EXPECT_EQ(answers.waitFor(1), std::vector<std::string> { "barrier" });
    EXPECT_EQ(daemon->calls.items().size(), 7u);
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(RegistrarClientTest, ArgumentsTheBusCannotCarryFailWithInvalidArguments)
{
    Running<FakeRegistrar> daemon(address());
    KTSNotificationRegistrarClient client(options());
    client.notificationTypesForBundleIdentifier(
        "com.example.\xff", [&](uint64_t) { ADD_FAILURE() << "answered"; });

    ASSERT_EQ(errors.waitFor(1).size(), 1u);
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> {
            summary(ClientErrorCode::InvalidArguments, "notificationTypesForBundleIdentifier") });
    EXPECT_TRUE(daemon->calls.items().empty());
}

TEST_F(RegistrarClientTest, WithoutDaemonCallsFailWithNoDaemon)
{
    KTSNotificationRegistrarClient client(options());
    Inbox<std::string> answers;
    client.notificationTypesForBundleIdentifier(app, [&](uint64_t) { answers.push("types"); });
    client.setObservingRemoteNotifications(true, app, [&] { answers.push("observing"); });

    auto reported = errors.waitFor(2);
    ASSERT_EQ(reported.size(), 2u);
    EXPECT_EQ(errorSummaries(),
        (std::vector<std::string> {
            summary(ClientErrorCode::NoDaemon, "notificationTypesForBundleIdentifier"),
            summary(ClientErrorCode::NoDaemon, "setObservingRemoteNotifications") }));
    EXPECT_TRUE(answers.items().empty());
}

TEST_F(RegistrarClientTest, WithoutBusCallsFailWithNoBusOutsideTheCall)
{
    TemporaryDirectory empty;
    auto noBus = options();
    noBus.busAddress = "unix:path=" + empty / "missing";
    Inbox<std::thread::id> threads;
    noBus.errorHandler = [&](const ClientError& error) {
        errors.push(error);
        threads.push(std::this_thread::get_id());
    };
    KTSNotificationRegistrarClient client(noBus);
    client.notificationTypesForBundleIdentifier(app, [&](uint64_t) { ADD_FAILURE() << "answered"; });

    ASSERT_EQ(threads.waitFor(1).size(), 1u);
    EXPECT_NE(threads.items().front(), std::this_thread::get_id());
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> { summary(ClientErrorCode::NoBus, "notificationTypesForBundleIdentifier") });
}

TEST_F(RegistrarClientTest, CallsFailWithNoBusOnceTheBusIsGone)
{
    KTSNotificationRegistrarClient client(options());
    {
        Running<FakeRegistrar> daemon(address());
        Inbox<int> answered;
        client.notificationTypesForBundleIdentifier(app, [&](uint64_t) { answered.push(1); });
        ASSERT_EQ(answered.waitFor(1).size(), 1u);
    }
    privateBus.reset();
    client.notificationTypesForBundleIdentifier(app, [&](uint64_t) { ADD_FAILURE() << "answered"; });

    ASSERT_EQ(errors.waitFor(1).size(), 1u);
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> { summary(ClientErrorCode::NoBus, "notificationTypesForBundleIdentifier") });
}

TEST_F(RegistrarClientTest, TokenReachesTheObserverOnlyFromTheDaemon)
{
    Running<FakeRegistrar> daemon(address());
    KTSNotificationRegistrarClient client(options());
    Inbox<std::string> tokens;
    client.setObserver(
        { .didReceiveDeviceToken = [&](const std::vector<uint8_t>& token, const std::string& id) {
            tokens.push(id + " " + std::string(token.begin(), token.end()));
        } });
    Inbox<int> observing;
    client.setObservingRemoteNotifications(true, app, [&] { observing.push(1); });
    ASSERT_EQ(observing.waitFor(1).size(), 1u);
    auto clientName = daemon->lastSender();

    // Another peer posing as the daemon, with a token and with arguments that
    // do not read, then a ping so that the client has read the forgeries
    // before the daemon's own events are sent.
    auto impostor = sdbus::createSessionBusConnectionWithAddress(address());
    auto object = sdbus::createObject(*impostor, KTSNotificationRegistrarService::objectPath());
    auto forged
        = object->createSignal(KTSNotificationRegistrarService::clientInterface(), "DidReceiveDeviceToken");
    forged << std::vector<uint8_t> { 'f', 'a', 'k', 'e' } << std::string(app);
    forged.setDestination(clientName);
    object->emitSignal(forged);
    auto garbled
        = object->createSignal(KTSNotificationRegistrarService::clientInterface(), "DidReceiveDeviceToken");
    garbled << 42u;
    garbled.setDestination(clientName);
    object->emitSignal(garbled);
    sdbus::createProxy(*impostor, clientName, "/")
        ->callMethod("Ping")
        .onInterface("org.freedesktop.DBus.Peer");

    daemon->sendMalformedToken(clientName, app);
    daemon->sendToken(clientName, { 't', 'o', 'k' }, app);
    auto received = tokens.waitFor(1);
    EXPECT_EQ(received, std::vector<std::string> { "com.example.chat tok" });
    EXPECT_EQ(errorSummaries(),
        std::vector<std::string> { summary(ClientErrorCode::MalformedAnswer, "didReceiveDeviceToken") });
}

TEST_F(RegistrarClientTest, ObservingIsRegisteredAgainWithEachNewDaemon)
{
    auto first = std::make_unique<Running<FakeRegistrar>>(address());
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

    Running<FakeRegistrar> second(address());
    ASSERT_EQ(second->calls.waitFor(1).size(), 1u);
    // Sent after the registrations again, so answered after them.
    Inbox<int> barrier;
    client.registerBadgeSettingForBundleIdentifier("com.example.a", [&] { barrier.push(1); });
    ASSERT_EQ(barrier.waitFor(1).size(), 1u);
    EXPECT_EQ(second->calls.items(),
        (std::vector<std::string> {
            "SetObservingRemoteNotifications 1 com.example.a", "RegisterBadgeSetting com.example.a" }));

    // Events of the new daemon are its own.
    second->sendToken(second->lastSender(), { 'n', 'e', 'w' }, "com.example.a");
    EXPECT_EQ(tokens.waitFor(1), std::vector<std::string> { "com.example.a new" });
    EXPECT_TRUE(errors.items().empty());
}

TEST_F(RegistrarClientTest, MalformedAnswersAreReportedNotDelivered)
{
    Running<FakeRegistrar> daemon(address());
    daemon->settingsAnswer = Bytes { 'n', 'o', 't', ' ', 'a', 'n', ' ', 'a', 'r', 'c', 'h', 'i', 'v', 'e' };
    daemon->backgroundRefresh = { { "com.example.a", "yes" } };
    KTSNotificationRegistrarClient client(options());
    client.notificationSettingsForBundleIdentifier(app, [&](auto) { ADD_FAILURE() << "answered"; });
    client.backgroundAppRefreshBundleIdentifierMappingWithResult([&](auto) { ADD_FAILURE() << "answered"; });

    ASSERT_EQ(errors.waitFor(2).size(), 2u);
    EXPECT_EQ(errorSummaries(),
        (std::vector<std::string> {
            summary(ClientErrorCode::MalformedAnswer, "notificationSettingsForBundleIdentifier"),
            summary(ClientErrorCode::MalformedAnswer,
                "backgroundAppRefreshBundleIdentifierMappingWithResult") }));
}

TEST_F(RegistrarClientTest, CallbacksRunThroughTheApplicationsExecutor)
{
    Running<FakeRegistrar> daemon(address());
    Inbox<std::function<void()>> queue;
    KTSNotificationRegistrarClient client(
        options([&](std::function<void()> work) { queue.push(std::move(work)); }));
    Inbox<std::thread::id> answered;
    client.notificationTypesForBundleIdentifier(
        app, [&](uint64_t) { answered.push(std::this_thread::get_id()); });

    auto work = queue.waitFor(1);
    ASSERT_EQ(work.size(), 1u);
    EXPECT_TRUE(answered.items().empty());
    work.front()();
    EXPECT_EQ(answered.items(), std::vector<std::thread::id> { std::this_thread::get_id() });
}

TEST_F(RegistrarClientTest, NoCallbackRunsOnceTheClientIsDestroyed)
{
    Running<FakeRegistrar> daemon(address());
    Inbox<std::function<void()>> queue;
    auto client = std::make_unique<KTSNotificationRegistrarClient>(
        options([&](std::function<void()> work) { queue.push(std::move(work)); }));
    bool answered = false;
    client->notificationTypesForBundleIdentifier(app, [&](uint64_t) { answered = true; });
    ASSERT_EQ(queue.waitFor(1).size(), 1u);

    client.reset();
    queue.items().front()();
    EXPECT_FALSE(answered);
}

TEST_F(RegistrarClientTest, ClientMayBeDestroyedInsideItsOwnCallback)
{
    Running<FakeRegistrar> daemon(address());
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
