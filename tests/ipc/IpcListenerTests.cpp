// The listener contract on both transports, and the bus's own defences.
#include "ipc/IpcTestSupport.h"
#include "platform/archive/PropertyList.h"
#include "platform/linux/dbus/DbusErrors.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/InProcessIpcService.h"
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

class TestClient {
public:
    virtual ~TestClient() = default;
    virtual Outcome notificationTypes(const std::string& bundleIdentifier) = 0;
    virtual std::shared_ptr<NotificationSettings> registerSettings(std::shared_ptr<NotificationSettings>) = 0;
    virtual bool setObserving(const std::string& bundleIdentifier) = 0;
    virtual void disconnect() = 0;

    // As the service must see it.
    IpcPeer peer;
    const Tokens tokens = std::make_shared<Mailbox<Token>>();
};

class TokenReceiver : public KTSNotificationRegistrarClientProtocol {
public:
    explicit TokenReceiver(Tokens tokens)
        : _tokens(std::move(tokens))
    {
    }
    void didReceiveDeviceToken(const Bytes& token, const std::string& id) override
    {
        _tokens->push({ token, id });
    }

private:
    Tokens _tokens;
};

// Requests on one connection are served in order, so a second one answered
// proves the first had its chance.
class InProcessTestClient : public TestClient {
public:
    InProcessTestClient(InProcessIpcService& ipc, IpcPeer who)
    {
        peer = std::move(who);
        _end = ipc.connect(KTSNotificationRegistrarServiceName, peer);
        _end->setExportedInterface(KTSNotificationRegistrarService::clientInterface());
        _end->setExportedObject<KTSNotificationRegistrarClientProtocol>(
            std::make_shared<TokenReceiver>(tokens));
        _end->setRemoteObjectInterface(KTSNotificationRegistrarService::serverInterface());
        _end->resume();
        _server = _end->remoteObjectProxy<KTSNotificationRegistrarServerProtocol>();
    }
    Outcome notificationTypes(const std::string& bundleIdentifier) override
    {
        auto answers = std::make_shared<Mailbox<uint64_t>>(), barrier = std::make_shared<Mailbox<uint64_t>>();
        _server->notificationTypesForBundleIdentifier(
            bundleIdentifier, [answers](uint64_t types) { answers->push(types); });
        _server->notificationTypesForBundleIdentifier(
            "barrier", [barrier](uint64_t types) { barrier->push(types); });
        EXPECT_FALSE(barrier->waitFor(1).empty()) << "the service stopped answering";
        auto got = answers->items();
        return got.empty() ? Outcome {} : Outcome { true, got[0], {} };
    }
    std::shared_ptr<NotificationSettings> registerSettings(
        std::shared_ptr<NotificationSettings> settings) override
    {
        Mailbox<std::shared_ptr<NotificationSettings>> answer;
        _server->registerNotificationSettings(
            settings, "com.example.app", [&](auto got) { answer.push(got); });
        auto got = answer.waitFor(1);
        return got.empty() ? nullptr : got[0];
    }
    bool setObserving(const std::string& bundleIdentifier) override
    {
        Mailbox<bool> done;
        _server->setObservingRemoteNotifications(true, bundleIdentifier, [&] { done.push(true); });
        return !done.waitFor(1).empty();
    }
    void disconnect() override { _end->invalidate(); }

private:
    std::shared_ptr<IpcConnection> _end;
    std::shared_ptr<KTSNotificationRegistrarServerProtocol> _server;
};

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
class DbusTestClient : public TestClient {
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
    ~DbusTestClient() override { disconnect(); }

    Outcome notificationTypes(const std::string& bundleIdentifier) override
    {
        return outcome([&] { return _registrar->NotificationTypes(bundleIdentifier); });
    }
    std::shared_ptr<NotificationSettings> registerSettings(
        std::shared_ptr<NotificationSettings> settings) override
    {
        auto data = _registrar->RegisterNotificationSettings(
            *KeyedArchive::archivedData(Value(settings)), "com.example.app");
        return KTSNotificationSettingsWhitelistedUnarchiveFromData(data);
    }
    bool setObserving(const std::string& bundleIdentifier) override
    {
        return outcome([&] {
            _registrar->SetObservingRemoteNotifications(true, bundleIdentifier);
            return 0;
        }).answered;
    }
    void disconnect() override
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

enum class Transport { InProcess, Dbus };

constexpr IpcLimits limits { .maxRequestBytes = 8192, .maxListItems = 8, .maxPendingRequests = 4 };
constexpr const char* resolvedBundle = "com.example.resolved";

class ListenerFixture : public ::testing::Test {
protected:
    void start(Transport transport)
    {
        if (transport == Transport::InProcess) {
            listeners = std::make_unique<Listeners>(device.ipc(), delegate);
            return;
        }
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
        listeners.reset();
        daemon.reset();
        // Invalidation runs on the connections' queues; let it finish while the
        // delegate it reports to is alive.
        device.waitUntilIdle();
    }

    TestClient& connect()
    {
        if (daemon)
            return connectDbus();
        auto n = static_cast<int>(clients.size()) + 1;
        clients.push_back(std::make_unique<InProcessTestClient>(device.ipc(),
            IpcPeer { .pid = 4200 + n,
                .uid = 501,
                .name = "client-" + std::to_string(n),
                .bundleIdentifier = "com.example.client" + std::to_string(n) }));
        return *clients.back();
    }
    DbusTestClient& connectDbus()
    {
        clients.push_back(std::make_unique<DbusTestClient>(bus.address(), resolvedBundle));
        return static_cast<DbusTestClient&>(*clients.back());
    }
    std::shared_ptr<KTSNotificationRegistrarClientProtocol> eventsTo(const std::string& bundleIdentifier)
    {
        auto calls = delegate->registrar->callsFor(bundleIdentifier);
        if (calls.empty() || !calls.back().connection)
            return nullptr;
        return calls.back().connection->remoteObjectProxy<KTSNotificationRegistrarClientProtocol>();
    }

    SimulatedDevice device;
    PrivateBus bus;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::unique_ptr<Listeners> listeners;
    std::unique_ptr<Daemon> daemon;
    std::vector<std::unique_ptr<TestClient>> clients;
};

class IpcListenerTest : public ListenerFixture, public ::testing::WithParamInterface<Transport> {
protected:
    void SetUp() override { start(GetParam()); }
};

TEST_P(IpcListenerTest, RoundTripReachesTheHandlerAsTheCallersConnection)
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

    // A record there and back, on the connection already made.
    auto settings = NotificationSettings::settingsForTypes(
        NotificationSettings::TypeBadge | NotificationSettings::TypeAlert, {});
    auto registered = client.registerSettings(settings);
    ASSERT_TRUE(registered);
    EXPECT_TRUE(registered->isEqual(*settings));
    EXPECT_EQ(delegate->accepted.items(), std::vector { calls[0].connection });
}

TEST_P(IpcListenerTest, RefusedOrDroppedRequestGetsNoAnswer)
{
    auto& client = connect();
    for (auto bundleIdentifier : { "refuse", "drop" }) {
        SCOPED_TRACE(bundleIdentifier);
        auto outcome = client.notificationTypes(bundleIdentifier);
        EXPECT_FALSE(outcome.answered);
        // Only the bus tells the caller so.
        EXPECT_EQ(outcome.error, daemon ? DbusErrors::notEntitled : "");
    }
    EXPECT_TRUE(client.notificationTypes("com.example.app").answered);
}

TEST_P(IpcListenerTest, EventReachesOnlyItsAddressee)
{
    auto& a = connect();
    auto& b = connect();
    ASSERT_TRUE(a.setObserving("a"));
    ASSERT_TRUE(b.setObserving("b"));
    auto toA = eventsTo("a");
    auto toB = eventsTo("b");
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

TEST_P(IpcListenerTest, InvalidationHandlerRunsOnceWhenTheClientGoesAway)
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

INSTANTIATE_TEST_SUITE_P(Transports, IpcListenerTest,
    ::testing::Values(Transport::InProcess, Transport::Dbus),
    [](const auto& info) { return info.param == Transport::InProcess ? "InProcess" : "Dbus"; });

class DbusIpcListenerTest : public ListenerFixture {
protected:
    void SetUp() override { start(Transport::Dbus); }

    static Bytes notificationArchive()
    {
        auto notification = std::make_shared<LocalNotification>();
        notification->setAlertBody("Tea");
        return *KeyedArchive::archivedData(Value(notification));
    }
};

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
    auto& other = connectDbus();
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto& abuser = connectDbus();
        auto outcome = c.abuse(abuser);
        EXPECT_FALSE(outcome.answered);
        EXPECT_EQ(outcome.error, DbusErrors::limitExceeded);
        EXPECT_TRUE(other.notificationTypes("other").answered);
        auto calls = c.recorder.calls.items();
        EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                      [&](auto& call) {
                          return call.method == c.method && call.bundleIdentifier != "other"
                              && call.bundleIdentifier != "again";
                      }),
            c.expectedHandled);
        // Within bounds again, the abuser is served like anyone.
        daemon->registrar().releaseHeld();
        EXPECT_TRUE(abuser.notificationTypes("again").answered);
        EXPECT_TRUE(device.systemLog().contains(std::string("refuses ")));
    }
}

TEST_F(DbusIpcListenerTest, RecordsThatAreNoValidArchiveAreRefused)
{
    auto& client = connectDbus();
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
    auto& client = connectDbus();
    EXPECT_EQ(client.notificationTypes("com.example.app").error, DbusErrors::notEntitled);
    EXPECT_EQ(client.notificationTypes("com.example.app").error, DbusErrors::notEntitled);
    EXPECT_TRUE(daemon->registrar().calls.items().empty());
}

} // namespace
