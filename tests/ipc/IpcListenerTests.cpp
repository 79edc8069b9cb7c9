// The listener contract on both transports, and the bus's own defences.
#include "ipc/IpcTestSupport.h"
#include "platform/archive/PropertyList.h"
#include "platform/linux/dbus/DbusErrors.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedDevice.h"
#include "services/KTSNotificationSettingsWhitelistedUnarchive.h"

#include "dbus/registrar-proxy.h"
#include "dbus/scheduler-proxy.h"

using namespace tessel;
using namespace tessel::ipctest;

namespace {

// How one call ended for the client; error is the bus's error name.
struct Outcome {
    bool answered = false;
    uint64_t value = 0;
    std::string error;
};

struct Token {
    Bytes token;
    std::string bundleIdentifier;
    bool operator==(const Token&) const = default;
};

using Tokens = std::shared_ptr<Mailbox<Token>>;

class RegistrarProxy final : public sdbus::ProxyInterfaces<com::tamber::Tessel::Registrar1_proxy,
                                 com::tamber::Tessel::RegistrarClient1_proxy> {
public:
    RegistrarProxy(sdbus::IConnection& connection, Tokens tokens)
        : ProxyInterfaces(
            connection, KTSNotificationRegistrarServiceName, KTSNotificationRegistrarService::objectPath())
        , _tokens(std::move(tokens))
    {
        registerProxy();
    }
    ~RegistrarProxy() { unregisterProxy(); }
    sdbus::IProxy& proxy() { return getProxy(); }

private:
    void onDidReceiveDeviceToken(const std::vector<uint8_t>& token, const std::string& id) override
    {
        _tokens->push({ token, id });
    }
    Tokens _tokens;
};

class SchedulerProxy final : public sdbus::ProxyInterfaces<com::tamber::Tessel::Scheduler1_proxy> {
public:
    explicit SchedulerProxy(sdbus::IConnection& connection)
        : ProxyInterfaces(
            connection, KTSNotificationSchedulerServiceName, KTSNotificationSchedulerService::objectPath())
    {
        registerProxy();
    }
    ~SchedulerProxy() { unregisterProxy(); }
};

// A raw bus client made of the generated proxies, on a connection of its own.
class DbusTestClient {
public:
    DbusTestClient(const std::string& address, std::string expectedBundleIdentifier)
        : _connection(sdbus::createSessionBusConnectionWithAddress(address))
    {
        _connection->setMethodCallTimeout(std::chrono::seconds(10));
        _registrar = std::make_unique<RegistrarProxy>(*_connection, tokens);
        _scheduler = std::make_unique<SchedulerProxy>(*_connection);
        _connection->enterEventLoopAsync();
        peer = IpcPeer { .pid = getpid(),
            .uid = getuid(),
            .name = _connection->getUniqueName(),
            .bundleIdentifier = std::move(expectedBundleIdentifier) };
    }
    ~DbusTestClient() { disconnect(); }

    Outcome notificationTypes(const std::string& bundleIdentifier)
    {
        return outcome([&] { return _registrar->NotificationTypes(bundleIdentifier); });
    }
    bool setObserving(const std::string& bundleIdentifier)
    {
        return outcome([&] {
            _registrar->SetObservingRemoteNotifications(true, bundleIdentifier);
            return 0;
        }).answered;
    }
    void disconnect()
    {
        _registrar.reset();
        _scheduler.reset();
        _connection.reset();
    }

    // The raw calls the bounds are tried with.
    Outcome registerSettingsData(const Bytes& data)
    {
        return outcome(
            [&] { return _registrar->RegisterNotificationSettings(data, "com.example.app").size(); });
    }
    Outcome addNotifications(const std::vector<Bytes>& archives)
    {
        return outcome([&] {
            _scheduler->AddScheduledLocalNotifications(archives, "com.example.app");
            return archives.size();
        });
    }
    Outcome schedule(const Bytes& fetchRequest)
    {
        return outcome([&] { return _scheduler->Schedule("com.example.app", fetchRequest).size(); });
    }
    // Sent without waiting; the outcome arrives in outcomes.
    void notificationTypesAsync(const std::string& bundleIdentifier, Mailbox<Outcome>& outcomes)
    {
        _registrar->proxy()
            .callMethodAsync("NotificationTypes")
            .onInterface(com::tamber::Tessel::Registrar1_proxy::INTERFACE_NAME)
            .withArguments(bundleIdentifier)
            .uponReplyInvoke([&outcomes](const sdbus::Error* error, uint64_t types) {
                outcomes.push(error ? Outcome { false, 0, error->getName() } : Outcome { true, types, {} });
            });
    }

    // As the service must see it.
    IpcPeer peer;
    const Tokens tokens = std::make_shared<Mailbox<Token>>();

private:
    template <typename Body> Outcome outcome(Body body)
    {
        try {
            return Outcome { true, static_cast<uint64_t>(body()), {} };
        } catch (const sdbus::Error& error) {
            return Outcome { false, 0, error.getName() };
        }
    }

    std::unique_ptr<sdbus::IConnection> _connection;
    std::unique_ptr<RegistrarProxy> _registrar;
    std::unique_ptr<SchedulerProxy> _scheduler;
};

constexpr IpcLimits limits { .maxRequestBytes = 8192, .maxListItems = 8, .maxPendingRequests = 4 };
constexpr const char* resolvedBundle = "com.example.resolved";

// The real bus transport serving recording objects; its own tests reach it as
// raw bus clients would.
class DbusIpcListenerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(bus.address().empty());
        // Claims pid 1 as well: the transport's word wins.
        daemon = std::make_unique<Daemon>(bus.address(), limits, [](int32_t pid, uint32_t) {
            return IpcPeer { .pid = 1, .bundleIdentifier = pid == getpid() ? resolvedBundle : "" };
        });
        delegate = daemon->delegate;
    }
    void TearDown() override
    {
        clients.clear();
        daemon.reset();
        // Invalidation runs on the connections' queues; let it finish while the
        // delegate it reports to is alive.
        device.waitUntilIdle();
    }

    DbusTestClient& connect()
    {
        clients.push_back(std::make_unique<DbusTestClient>(bus.address(), resolvedBundle));
        return *clients.back();
    }

    SimulatedDevice device;
    PrivateBus bus;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::unique_ptr<Daemon> daemon;
    std::vector<std::unique_ptr<DbusTestClient>> clients;
};

TEST_F(DbusIpcListenerTest, RoundTripReachesTheHandlerAsTheCallersConnection)
{
    auto& client = connect();
    auto outcome = client.notificationTypes("com.example.app");
    EXPECT_TRUE(outcome.answered) << outcome.error;
    EXPECT_EQ(outcome.value, 42u);

    auto calls = delegate->registrar->callsFor("com.example.app");
    ASSERT_EQ(calls.size(), 1u);
    ASSERT_TRUE(calls[0].connection);
    const auto& peer = calls[0].connection->peer();
    EXPECT_EQ(peer.pid, client.peer.pid);
    EXPECT_EQ(peer.uid, client.peer.uid);
    EXPECT_EQ(peer.name, client.peer.name);
    EXPECT_EQ(peer.bundleIdentifier, client.peer.bundleIdentifier);

    EXPECT_EQ(delegate->accepted.items(), std::vector { calls[0].connection });
}

TEST_F(DbusIpcListenerTest, RefusedOrDroppedRequestGetsNoAnswer)
{
    auto& client = connect();
    for (auto bundleIdentifier : { "refuse", "drop" }) {
        SCOPED_TRACE(bundleIdentifier);
        auto outcome = client.notificationTypes(bundleIdentifier);
        EXPECT_FALSE(outcome.answered);
        EXPECT_EQ(outcome.error, DbusErrors::notEntitled);
    }
    EXPECT_TRUE(client.notificationTypes("com.example.app").answered);
}

TEST_F(DbusIpcListenerTest, EventReachesOnlyItsAddressee)
{
    auto& a = connect();
    auto& b = connect();
    ASSERT_TRUE(a.setObserving("a"));
    ASSERT_TRUE(b.setObserving("b"));
    auto toA = daemon->eventsTo<KTSNotificationRegistrarClientProtocol>(daemon->registrar(), "a");
    auto toB = daemon->eventsTo<KTSNotificationRegistrarClientProtocol>(daemon->registrar(), "b");
    ASSERT_TRUE(toA && toB);

    // Each gets its own event and then an end marker, in this order: an event
    // that reached both would show up before the marker.
    toA->didReceiveDeviceToken({ 1, 2, 3 }, "a");
    toB->didReceiveDeviceToken({ 4 }, "b");
    toA->didReceiveDeviceToken({}, "end");
    toB->didReceiveDeviceToken({}, "end");
    EXPECT_EQ(a.tokens->waitFor(2), (std::vector<Token> { { { 1, 2, 3 }, "a" }, { {}, "end" } }));
    EXPECT_EQ(b.tokens->waitFor(2), (std::vector<Token> { { { 4 }, "b" }, { {}, "end" } }));
}

TEST_F(DbusIpcListenerTest, InvalidationHandlerRunsOnceWhenTheClientGoesAway)
{
    auto& leaving = connect();
    auto& staying = connect();
    ASSERT_TRUE(leaving.notificationTypes("leaving").answered);
    ASSERT_TRUE(staying.notificationTypes("staying").answered);
    auto name = leaving.peer.name;

    leaving.disconnect();
    EXPECT_EQ(delegate->invalidated.waitFor(1), std::vector { name });
    // The other client is still served, and nothing more was invalidated.
    EXPECT_TRUE(staying.notificationTypes("staying").answered);
    EXPECT_EQ(delegate->invalidated.items(), std::vector { name });
}

Bytes notificationArchive()
{
    auto notification = std::make_shared<LocalNotification>();
    notification->setAlertBody("Tea");
    return *KeyedArchive::archivedData(Value(notification));
}

TEST_F(DbusIpcListenerTest, BeyondALimitTheCallerIsRefusedWhileOthersAreServed)
{
    // Outlives the held calls, answered when released.
    Mailbox<Outcome> outcomes;
    struct Case {
        const char* name;
        std::function<Outcome(DbusTestClient&)> abuse;
        // Calls that reached a handler: none but those within the bound.
        const Recorder& recorder;
        const char* method;
        size_t expectedHandled;
    } cases[] = {
        { "oversized request",
            [&](DbusTestClient& client) {
                return client.registerSettingsData(Bytes(limits.maxRequestBytes + 1, 'x'));
            },
            daemon->registrar(), "RegisterNotificationSettings", 0 },
        { "too long a list",
            [&](DbusTestClient& client) {
                return client.addNotifications(
                    std::vector<Bytes>(limits.maxListItems + 1, notificationArchive()));
            },
            daemon->scheduler(), "Add", 0 },
        { "too many unanswered requests",
            [&](DbusTestClient& client) {
                for (size_t i = 0; i <= limits.maxPendingRequests; ++i)
                    client.notificationTypesAsync("hold", outcomes);
                // The held ones stay unanswered: only the one beyond the bound comes back.
                auto items = outcomes.waitFor(1);
                return items.empty() ? Outcome {} : items[0];
            },
            daemon->registrar(), "NotificationTypes", limits.maxPendingRequests },
    };
    auto& other = connect();
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto& abuser = connect();
        auto outcome = c.abuse(abuser);
        EXPECT_FALSE(outcome.answered);
        EXPECT_EQ(outcome.error, DbusErrors::limitExceeded);
        EXPECT_TRUE(other.notificationTypes("other").answered);
        // Calls within the bound may still be on their way to the handler.
        auto handled = [&](const std::vector<Call>& calls) {
            return static_cast<size_t>(std::count_if(calls.begin(), calls.end(), [&](auto& call) {
                return call.method == c.method && call.bundleIdentifier != "other"
                    && call.bundleIdentifier != "again";
            }));
        };
        auto calls
            = c.recorder.calls.waitUntil([&](auto& calls) { return handled(calls) >= c.expectedHandled; });
        EXPECT_EQ(handled(calls), c.expectedHandled);
        // Within bounds again, the abuser is served like anyone.
        daemon->registrar().releaseHeld();
        EXPECT_TRUE(abuser.notificationTypes("again").answered);
        EXPECT_TRUE(device.systemLog().contains(std::string("refuses ")));
    }
}

TEST_F(DbusIpcListenerTest, RecordsThatAreNoValidArchiveAreRefused)
{
    auto& client = connect();
    auto wrongClass = notificationArchive();
    // Nesting is bounded by the archive decoder itself, before it parses.
    std::string deep = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int i = 0; i < PropertyList::maximumDepth + 20; ++i)
        deep += "<array>";
    for (int i = 0; i < PropertyList::maximumDepth + 20; ++i)
        deep += "</array>";
    deep += "</plist>";
    struct Case {
        const char* name;
        std::function<Outcome()> call;
    } cases[] = {
        { "settings that are no archive",
            [&] {
                return client.registerSettingsData(Bytes { 'n', 'o' });
            } },
        { "settings archive of another class", [&] { return client.registerSettingsData(wrongClass); } },
        { "settings nested deeper than any archive",
            [&] { return client.registerSettingsData(Bytes(deep.begin(), deep.end())); } },
        { "a list with one bad entry",
            [&] {
                return client.addNotifications({ notificationArchive(), Bytes { 0, 1, 2 } });
            } },
        { "a list with an empty entry", [&] { return client.addNotifications({ Bytes {} }); } },
        { "a fetch request of another class", [&] { return client.schedule(wrongClass); } },
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.call().error, DbusErrors::invalidArguments);
    }
    EXPECT_TRUE(daemon->registrar().calls.items().empty());
    EXPECT_TRUE(daemon->scheduler().calls.items().empty());

    // What the decoders accept goes through.
    EXPECT_TRUE(client.addNotifications({ notificationArchive(), notificationArchive() }).answered);
    auto request = std::make_shared<KTSNotificationScheduleFetchRequest>();
    request->setMaxSize(3);
    EXPECT_TRUE(client.schedule(*KeyedArchive::archivedData(Value(request))).answered);
    auto calls = daemon->scheduler().calls.items();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].notifications, 2u);
}

TEST_F(DbusIpcListenerTest, ACallerTheDelegateTurnsAwayIsNotEntitled)
{
    delegate->turnAway = true;
    auto& client = connect();
    EXPECT_EQ(client.notificationTypes("com.example.app").error, DbusErrors::notEntitled);
    EXPECT_EQ(client.notificationTypes("com.example.app").error, DbusErrors::notEntitled);
    EXPECT_TRUE(daemon->registrar().calls.items().empty());
}

} // namespace
