#include "remote/RemoteServerFixture.h"

#include "platform/alerts/SystemAlert.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/push/PushEnvironment.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedProcessManager.h"
#include "platform/sim/SimulatedSystemAlerts.h"
#include "settings/KTNotificationSettingsService.h"

using namespace tessel;
using namespace tessel::testing;

namespace {

using TokenCall = SimulatedPushConnection::TokenCall;
using Topics = std::vector<std::string>;

const Bytes tokenA { 0xA1, 0xA2 };
const Bytes tokenB { 0xB1, 0xB2 };

std::shared_ptr<KTRemoteNotificationClient> storedClient(const std::string& bundleIdentifier)
{
    return KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier);
}

class PushRegistration : public RemoteServerFixture { };

TEST_F(PushRegistration, SavesANewRegistrationOnceButRequestsATokenEachTime)
{
    startWithEnabledApp();
    auto record = client(app);
    ASSERT_TRUE(record);
    ASSERT_TRUE(storedClient(app));
    EXPECT_EQ(storedClient(app)->environment(), PushEnvironmentProduction);

    // Mark the stored copy: a second identical registration must not overwrite it.
    auto marked = *storedClient(app);
    marked.setLastKnownDeviceToken(tokenB);
    ASSERT_TRUE(marked.saveToDataStore());
    registerApp(app);

    EXPECT_EQ(storedClient(app)->lastKnownDeviceToken(), tokenB);
    TokenCall call { app, record->tokenIdentifier() };
    EXPECT_EQ(connection()->tokenRequests(), (std::vector<TokenCall> { call, call }));
    EXPECT_TRUE(waitingForToken(app));
    EXPECT_TRUE(logged("Adding com.example.app (" + record->tokenIdentifier()
        + ") to the set of apps waiting to post about their per-app push token. Requesting per-app token."));
}

TEST_F(PushRegistration, WithoutNotificationsOrRefreshTheRecordIsKeptIgnoredAndGetsNoToken)
{
    setRefreshList(Value::Dictionary { { app, false } });
    start();
    registerApp(app);

    ASSERT_TRUE(storedClient(app));
    EXPECT_TRUE(storedClient(app)->doesWantPush());
    ASSERT_TRUE(connection());
    EXPECT_EQ(connection()->ignoredTopics(), Topics { app });
    EXPECT_FALSE(waitingForToken(app));

    std::optional<bool> allowed;
    server->allowsRemoteNotificationsForBundleIdentifier(app, [&](bool answer) { allowed = answer; });
    device.waitUntilIdle();
    EXPECT_EQ(allowed, false);
    EXPECT_EQ(client(app)->pushDisabledReason(),
        "client is registered for push, but supportsBackgroundRefresh: NO; backgroundRefreshEnabled: NO; "
        "allowsUserNotifications: NO");

    // Unregistered: the reason says so and the last environment's connection goes away.
    server->invalidateTokenForRemoteNotificationsForBundleIdentifier(app);
    device.waitUntilIdle();
    EXPECT_EQ(client(app)->pushDisabledReason(), "client hasn't registered for push");
    EXPECT_FALSE(client(app)->environment());
    EXPECT_EQ(connection(), nullptr);
}

// Whether background refresh counts: it must be supported, and the list must not say no.
struct RefreshCase {
    const char* name;
    bool supported;
    Value list;
    bool pushEnabled;
};

class BackgroundRefresh : public RemoteServerFixture, public ::testing::WithParamInterface<RefreshCase> { };

TEST_P(BackgroundRefresh, DecidesWhetherPushIsEnabledWithoutNotifications)
{
    auto& param = GetParam();
    if (param.supported)
        state->backgroundRefresh.insert(app);
    if (!param.list.isNull())
        setRefreshList(param.list);
    start();
    registerApp(app);
    EXPECT_EQ(connection()->tokenRequests().size(), param.pushEnabled ? 1u : 0u);
    EXPECT_EQ(connection()->opportunisticTopics(), param.pushEnabled ? Topics { app } : Topics {});
    EXPECT_EQ(connection()->ignoredTopics(), param.pushEnabled ? Topics {} : Topics { app });
}

INSTANTIATE_TEST_SUITE_P(Cases, BackgroundRefresh,
    ::testing::Values(RefreshCase { "NoListCountsAsAllowed", true, Value(), true },
        RefreshCase { "AbsentFromTheList", true, Value::Dictionary { { otherApp, false } }, true },
        RefreshCase { "ListedAsAllowed", true, Value::Dictionary { { app, true } }, true },
        RefreshCase { "ListedAsRefused", true, Value::Dictionary { { app, false } }, false },
        RefreshCase { "ListNotADictionary", true, Value::Array { Value(app) }, true },
        RefreshCase { "EntryNotABoolean", true, Value::Dictionary { { app, Value::Array {} } }, true },
        RefreshCase { "NotSupported", false, Value(), false }),
    [](const auto& info) { return std::string(info.param.name); });

// A per-application token arriving, by whether the app waits for one, what it
// had, and whether it is still installed.
struct TokenCase {
    const char* name;
    bool waiting;
    std::optional<Bytes> stored;
    bool installed;
    bool delivered;
    const char* comparison;
};

class PerAppToken : public RemoteServerFixture, public ::testing::WithParamInterface<TokenCase> { };

TEST_P(PerAppToken, IsPostedWhenWaitedForOrChangedAndInstalled)
{
    auto& param = GetParam();
    startWithEnabledApp();
    auto record = client(app);
    ASSERT_TRUE(record);
    if (param.stored) {
        connection()->sendToken(*param.stored, std::string(app), record->tokenIdentifier());
        device.waitUntilIdle();
        ASSERT_EQ(recorder->tokens().size(), 1u);
    }
    ASSERT_EQ(waitingForToken(app), !param.stored);
    if (param.waiting && param.stored)
        registerApp(app);
    if (!param.installed)
        state->uninstalled.insert(app);
    auto before = recorder->tokens().size();

    connection()->sendToken(tokenA, std::string(app), record->tokenIdentifier());
    device.waitUntilIdle();

    auto tokens = recorder->tokens();
    EXPECT_EQ(tokens.size() - before, param.delivered ? 1u : 0u);
    if (param.delivered) {
        EXPECT_EQ(tokens.back(), std::make_pair(std::string(app), tokenA));
    }
    EXPECT_EQ(storedClient(app)->lastKnownDeviceToken(), param.delivered ? tokenA : param.stored);
    EXPECT_FALSE(waitingForToken(app)) << "the pending set is left either way";
    EXPECT_TRUE(logged("Still waiting to post for 0 pending tokens"));
    EXPECT_TRUE(logged(std::string("Does this token differ from our cache? ") + param.comparison
        + " post about this update."));
}

INSTANTIATE_TEST_SUITE_P(Cases, PerAppToken,
    ::testing::Values(
        TokenCase { "FirstTokenWhileWaiting", true, std::nullopt, true, true, "YES.  We will " },
        TokenCase { "SameTokenWhileWaiting", true, tokenA, true, true, "NO.  We will " },
        TokenCase { "SameTokenNotWaiting", false, tokenA, true, false, "NO.  We will  not" },
        TokenCase { "NewTokenNotWaiting", false, tokenB, true, true, "YES.  We will " },
        TokenCase { "UninstalledWhileWaiting", true, std::nullopt, false, false, "YES.  We will " }),
    [](const auto& info) { return std::string(info.param.name); });

class PublicToken : public RemoteServerFixture { };

TEST_F(PublicToken, AChangeFlushesAndReRequestsOnlyRunningEnabledAppsOfThatEnvironment)
{
    const std::string stopped = "com.example.stopped", development = "com.example.dev",
                      disabled = "com.example.disabled";
    // Someone else's garbage under the key reads as no cache.
    ASSERT_TRUE(device.platform().preferences->setValue(
        "garbage", KTRemoteNotificationServer::lastKnownTokensKey, device.platform().hostPreferencesDomain));
    setRefreshList(Value::Dictionary { { disabled, false } });
    start();
    for (auto& bundleIdentifier : { std::string(app), stopped, development })
        setNotificationsEnabled(bundleIdentifier, true);
    registerApp(app);
    registerApp(stopped);
    registerApp(disabled);
    registerApp(development, PushEnvironmentDevelopment);
    for (auto& bundleIdentifier : { std::string(app), stopped, disabled })
        connection()->sendToken(tokenA, bundleIdentifier, client(bundleIdentifier)->tokenIdentifier());
    connection(PushEnvironmentDevelopment)
        ->sendToken(tokenA, development, client(development)->tokenIdentifier());
    for (auto& bundleIdentifier : { std::string(app), development, disabled })
        device.processManager().launch(bundleIdentifier);
    device.waitUntilIdle();
    connection()->clearCalls();
    connection(PushEnvironmentDevelopment)->clearCalls();

    connection()->sendPublicToken(tokenB);
    device.waitUntilIdle();

    EXPECT_EQ(
        connection()->tokenRequests(), (std::vector<TokenCall> { { app, client(app)->tokenIdentifier() } }));
    EXPECT_TRUE(connection(PushEnvironmentDevelopment)->tokenRequests().empty());
    EXPECT_FALSE(storedClient(app)->lastKnownDeviceToken());
    EXPECT_FALSE(storedClient(stopped)->lastKnownDeviceToken());
    EXPECT_EQ(storedClient(development)->lastKnownDeviceToken(), tokenA);
    device.platform().preferences->reload();
    EXPECT_EQ(device.platform().preferences->valueForKey(
                  KTRemoteNotificationServer::lastKnownTokensKey, device.platform().hostPreferencesDomain),
        Value(Value::Dictionary { { PushEnvironmentProduction, tokenB } }));
    EXPECT_FALSE(waitingForToken(app)) << "re-requests do not wait";

    // The new token still reaches the app: its flushed cache makes it differ.
    connection()->sendToken(tokenA, std::string(app), client(app)->tokenIdentifier());
    device.waitUntilIdle();
    EXPECT_EQ(recorder->tokens().back(), std::make_pair(std::string(app), tokenA));

    // The same token again: nothing is flushed or asked for.
    connection()->clearCalls();
    connection()->sendPublicToken(tokenB);
    device.waitUntilIdle();
    EXPECT_TRUE(connection()->tokenRequests().empty());
    EXPECT_EQ(storedClient(app)->lastKnownDeviceToken(), tokenA);
    auto lines = logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Flushing stale per-app tokens for 4 apps"), 1);
}

// Caller environments come only from a string entitlement naming a known environment.
TEST_F(PushRegistration, EnvironmentFromAuditTokenReadsOnlyAKnownStringEntitlement)
{
    struct Case {
        Value entitlement;
        std::optional<std::string> environment;
    };
    const Case cases[] = { { "production", PushEnvironmentProduction },
        { "Development", PushEnvironmentDevelopment }, { "staging", std::nullopt }, { 1, std::nullopt },
        { Value::Array { Value("production") }, std::nullopt }, { Value(), std::nullopt } };
    int index = 0;
    for (auto& one : cases) {
        std::string bundleIdentifier = "com.example.caller" + std::to_string(index++);
        Value::Dictionary entitlements;
        if (!one.entitlement.isNull())
            entitlements[KTRemoteNotificationsEnvironmentEntitlement] = one.entitlement;
        ASSERT_TRUE(device.applicationWorkspace().install(
            { .identifier = bundleIdentifier, .entitlements = entitlements }));
        auto process = device.processManager().launch(bundleIdentifier);
        EXPECT_EQ(KTRemoteNotificationServer::environmentFromAuditToken({ process->pid() }), one.environment)
            << one.entitlement.description();
    }
}

// Stored records load at start, but only those with an environment.
TEST_F(PushRegistration, ALegacyRegistrationsFileIsMigratedAndStoredRecordsLoaded)
{
    KTRemoteNotificationClient withoutEnvironment("com.example.noenv");
    withoutEnvironment.setWantsPush(true);
    ASSERT_TRUE(withoutEnvironment.saveToDataStore());
    auto legacy = std::make_shared<KTRemoteNotificationClient>(app);
    legacy->setEnvironment(PushEnvironmentDevelopment);
    legacy->setWantsPush(true);
    auto archive = KeyedArchive::archivedData(Value::Dictionary {
        { app, Value(legacy) }, { otherApp, "not a record" }, { "com.example.number", 7 } });
    ASSERT_TRUE(archive);
    auto directory = Path::appendingComponent(device.libraryDirectory(), "RemoteNotification");
    ASSERT_TRUE(FileManager::createDirectoryAtPath(directory, true));
    ASSERT_TRUE(FileManager::writeAtomically(Path::appendingComponent(directory, "Clients.plist"), *archive));

    start();

    EXPECT_FALSE(FileManager::fileExistsAtPath(directory));
    ASSERT_TRUE(storedClient(app));
    EXPECT_EQ(storedClient(app)->tokenIdentifier(), legacy->tokenIdentifier());
    EXPECT_FALSE(storedClient(otherApp));
    // Loaded after the migration: the registration is live in its environment.
    ASSERT_TRUE(client(app));
    ASSERT_TRUE(connection(PushEnvironmentDevelopment));
    EXPECT_EQ(connection(PushEnvironmentDevelopment)->ignoredTopics(), Topics { app });
    EXPECT_EQ(device.pushService().filterNotices(), 1u);
    EXPECT_TRUE(storedClient("com.example.noenv"));
    EXPECT_FALSE(client("com.example.noenv"));
}

TEST_F(PushRegistration, AnUnreadableLegacyFileIsRemovedWithoutEffect)
{
    auto directory = Path::appendingComponent(device.libraryDirectory(), "RemoteNotification");
    ASSERT_TRUE(FileManager::createDirectoryAtPath(directory, true));
    ASSERT_TRUE(FileManager::writeAtomically(
        Path::appendingComponent(directory, "Clients.plist"), Bytes { 1, 2, 3 }));
    start();
    EXPECT_FALSE(FileManager::fileExistsAtPath(directory));
    EXPECT_TRUE(ApplicationDataStore::applicationsWithStores().empty());
}

TEST_F(PushRegistration, UninstallInvalidatesTheTokenAndForgetsTheRegistration)
{
    startWithEnabledApp();
    auto tokenIdentifier = client(app)->tokenIdentifier();
    auto production = connection();
    ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = app }));
    ASSERT_TRUE(device.applicationWorkspace().uninstall(app));
    device.waitUntilIdle();
    EXPECT_EQ(production->invalidations(), (std::vector<TokenCall> { { app, tokenIdentifier } }));
    production.reset();
    EXPECT_EQ(connection(), nullptr) << "no registration is left in production";
    EXPECT_FALSE(client(app));
    EXPECT_TRUE(storedClient(app)) << "the stored copy stays";
}

} // namespace
