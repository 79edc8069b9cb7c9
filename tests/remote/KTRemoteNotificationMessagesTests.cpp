#include "remote/RemoteServerFixture.h"

#include "platform/archive/PropertyList.h"
#include "platform/files/Path.h"
#include "platform/processes/HandleRemoteNotificationAction.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "server/KTSystemStateProvidingCallbacksAdapter.h"
#include "store/KTNotificationStore.h"

#include <thread>

using namespace tessel;
using namespace tessel::testing;

namespace {

constexpr const char* containerTopic = "com.tamber.skyvault-container.com.example.app";

Value payload(Value::Dictionary system)
{
    return Value::Dictionary { { "rlx", Value(system) }, { "id", 7 } };
}

class IncomingMessages : public RemoteServerFixture {
protected:
    void SetUp() override
    {
        RemoteServerFixture::SetUp();
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = app,
            .resources = { { "Default", Bytes { 1 } } },
            .strings = { { "en",
                { { "Localizable",
                    { { "NEW", "%2$@ sent %1$@" }, { "TITLE", "Chat" }, { "REPLY", "Reply" } } } } } } }));
    }
    void send(const Value& userInfo, const std::string& topic = app)
    {
        connection()->sendIncomingMessage({ topic, userInfo, 10, Date(1000) });
        device.waitUntilIdle();
    }
    Value stored() { return KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(app); }
};

// The record's own keys (date, type, user info) left out.
struct StoredCase {
    const char* name;
    Value::Dictionary system;
    Value::Dictionary record;
    bool gazette = false;
    const char* topic = app;
};

class StoredPayloads : public IncomingMessages, public ::testing::WithParamInterface<StoredCase> { };

TEST_P(StoredPayloads, KeepOnlyTheirWellTypedParts)
{
    auto& param = GetParam();
    if (param.gazette)
        state->gazette.insert(app);
    startWithEnabledApp();
    device.processManager().launch(app, ProcessVisibility::Background);
    auto newest = device.processManager().launch(app, ProcessVisibility::Background);
    send(payload(param.system), param.topic);

    EXPECT_TRUE(logged(std::string("Received incoming message for topic ") + param.topic));
    ASSERT_EQ(device.powerLogEntries().size(), 1u);
    EXPECT_EQ(device.powerLogEntries()[0].pid, newest->pid());
    ASSERT_EQ(stored().length(), 1u);
    auto record = stored().at(0).dictionaryValue();
    EXPECT_EQ(record[KTNotificationStoreUserInfoKey], payload(param.system));
    for (auto key : { KTNotificationStoreCreationDateKey, KTNotificationStoreNotificationTypeKey,
             KTNotificationStoreUserInfoKey, KTNotificationStoreSoundIsRingtoneKey })
        record.erase(key);
    auto expected = param.record;
    // A sound name is stored as the application's file of that name.
    if (auto sound = expected.find(KTNotificationStoreSoundKey);
        sound != expected.end() && sound->second == Value("Default"))
        sound->second
            = Path::appendingComponent(device.applicationWorkspace().bundlePathForInstall(app), "Default");
    EXPECT_EQ(Value(record), Value(expected));
}

using D = Value::Dictionary;
using A = Value::Array;
INSTANTIATE_TEST_SUITE_P(Cases, StoredPayloads,
    ::testing::Values(
        StoredCase { "AlertStringOnAContainerTopic",
            { { "alert", "Hello" }, { "sound", "default" }, { "badge", 3 }, { "category", "CHAT" } },
            { { KTNotificationStoreMessageKey, "Hello" },
                { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault },
                { KTNotificationStoreBadgeNumberKey, 3 }, { KTNotificationStoreCategoryKey, "CHAT" } },
            false, containerTopic },
        StoredCase { "LocalizedAlert",
            { { "alert",
                  D { { "loc-key", "NEW" }, { "loc-args", A { "2 messages", "Ann" } }, { "body", "unused" },
                      { "title-loc-key", "TITLE" }, { "action-loc-key", "REPLY" },
                      { "launch-image", "Launch" } } },
                { "sound", "Default" } },
            { { KTNotificationStoreMessageKey, "Ann sent 2 messages" },
                { KTNotificationStoreTitleKey, "Chat" }, { KTNotificationStoreActionTextKey, "Reply" },
                { KTNotificationStoreLaunchImageKey, "Launch" },
                { KTNotificationStoreSoundKey, "Default" } } },
        StoredCase { "NoBadgeForGazettePush", { { "alert", "x" }, { "badge", 5 } },
            { { KTNotificationStoreMessageKey, "x" } }, true },
        StoredCase { "FallbacksAndWrongTypes",
            { { "alert",
                  D { { "loc-key", "MISSING" }, { "body", "b" }, { "title", "Hi" },
                      { "loc-args", "no array" }, { "action-loc-key", "" }, { "launch-image", 7 } } },
                { "sound", 1 }, { "badge", "5" }, { "category", A { 1 } } },
            { { KTNotificationStoreMessageKey, "b" }, { KTNotificationStoreTitleKey, "Hi" },
                { KTNotificationStoreCategoryKey, A { 1 } } } },
        StoredCase { "AlertOfAnotherType", { { "alert", 5 }, { "badge", 2 } },
            { { KTNotificationStoreBadgeNumberKey, 2 } } }),
    [](const auto& info) { return std::string(info.param.name); });

struct DroppedCase {
    const char* name;
    const char* topic;
    bool uninstalled, restricted, notificationsEnabled;
    const char* line;
};

class DroppedMessages : public IncomingMessages, public ::testing::WithParamInterface<DroppedCase> { };

TEST_P(DroppedMessages, LeaveASystemLogLineAndNothingElse)
{
    auto& param = GetParam();
    startWithEnabledApp();
    if (param.uninstalled)
        state->uninstalled.insert(app);
    if (param.restricted)
        state->restricted.insert(app);
    setNotificationsEnabled(app, param.notificationsEnabled);
    send(payload({ { "alert", "Hi" } }), param.topic);

    EXPECT_EQ(device.systemLog().count(param.line), 1u);
    EXPECT_FALSE(logged(param.line));
    EXPECT_TRUE(device.powerLogEntries().empty());
    EXPECT_TRUE(stored().isNull());
}

INSTANTIATE_TEST_SUITE_P(Cases, DroppedMessages,
    ::testing::Values(
        DroppedCase { "Unregistered", otherApp, false, false, true,
            "Ignoring remote notification received for unknown bundle identifier: 'com.example.other'" },
        DroppedCase { "EmptyContainerTopic", "com.tamber.skyvault-container.", false, false, true,
            "Ignoring remote notification received for unknown bundle identifier: ''" },
        DroppedCase { "UninstalledBeforeRestricted", app, true, true, true,
            "Ignoring remote notification received for unknown bundle identifier: 'com.example.app'" },
        DroppedCase { "Restricted", app, false, true, true,
            "Ignoring remote notification received for restricted application: 'com.example.app'" },
        DroppedCase { "PushDisabled", app, false, false, false,
            "Ignoring remote notification received for disabled bundle identifier: 'com.example.app' reason: "
            "client is registered for push, but supportsBackgroundRefresh: NO; "
            "backgroundRefreshEnabled: YES; allowsUserNotifications: NO" }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(IncomingMessages, ForegroundApplicationsGetThePayloadInsteadOfANotification)
{
    startWithEnabledApp();
    auto older = device.processManager().launch(app), newest = device.processManager().launch(app);
    reportState(app, ApplicationStateForeground);
    auto userInfo = payload({ { "alert", "Hi" }, { "content-available", 1 } });
    send(userInfo);

    auto sent = device.processManager().sentActions();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].pid, newest->pid());
    auto action = std::dynamic_pointer_cast<HandleRemoteNotificationAction>(sent[0].action);
    ASSERT_TRUE(action);
    EXPECT_EQ(action->payload(), userInfo);

    // Without a process the payload goes nowhere and the power post names none.
    device.processManager().terminate(older->pid());
    device.processManager().terminate(newest->pid());
    send(userInfo);
    EXPECT_EQ(device.processManager().sentActions().size(), 1u);
    EXPECT_EQ(device.powerLogEntries().back().pid, 0);
    EXPECT_TRUE(stored().isNull());
}

// A host behind the C table whose Gazette application wakes for content
// pushes; the host counts them and ends background work when the test says.
struct Host {
    int64_t priority = 0;
    bool throttle = false;
    std::vector<std::pair<int64_t, int64_t>> asked;
    Bytes gazettePayload;
    std::function<void()> endBackgroundWork;
};
Host& host(void* context) { return *static_cast<Host*>(context); }
bool yes(void*, const char*) { return true; }
bool throttle(void* context, const char*, double, int64_t* count, int64_t* day)
{
    host(context).asked.emplace_back(*count, *day);
    *count += 1;
    *day = 42;
    return host(context).throttle;
}
void gazette(void* context, const char*, const uint8_t* bytes, size_t length)
{
    host(context).gazettePayload.assign(bytes, bytes + length);
}
void wake(void* context, const char*, const uint8_t*, size_t, int64_t priority, void (*end)(void*),
    void* endContext)
{
    host(context).priority = priority;
    host(context).endBackgroundWork = [=] { end(endContext); };
}

TEST_F(IncomingMessages, ContentPushesAreCountedByTheHostAndStoredWhenItsBackgroundWorkEnds)
{
    Host host;
    server = KTRemoteNotificationServer::initWithSystemStateProvider(
        std::make_shared<KTSystemStateProvidingCallbacksAdapter>(KTSystemStateProvidingCallbacks {
            &host, yes, nullptr, yes, nullptr, nullptr, yes, throttle, gazette, wake }));
    device.waitUntilIdle();
    setNotificationsEnabled(app, true);
    registerApp(app);
    auto userInfo = payload({ { "alert", "news" }, { "content-available", 1 } });

    send(userInfo);
    EXPECT_EQ(PropertyList::read(host.gazettePayload), userInfo);
    EXPECT_TRUE(logged("GZThrottle: allowing with new count=1 on day=42"));
    auto record = KTRemoteNotificationClient::loadFromDataStore(app);
    EXPECT_EQ(
        std::pair(record->dailyCountOfGazettePushes(), record->dayOfLastGazettePush()), std::pair(1l, 42l));

    // Throttled: an ordinary content push, stored once the host's background work ends.
    host.throttle = true;
    send(userInfo);
    EXPECT_EQ(host.asked, (std::vector<std::pair<int64_t, int64_t>> { { 0, 0 }, { 1, 42 } }));
    EXPECT_TRUE(logged("GZThrottle: disallowing"));
    EXPECT_EQ(host.priority, 10);
    EXPECT_TRUE(stored().isNull());
    std::thread(host.endBackgroundWork).join();
    ASSERT_EQ(stored().length(), 1u);
    EXPECT_EQ(stored().at(0)[KTNotificationStoreMessageKey], Value("news"));
}

} // namespace
