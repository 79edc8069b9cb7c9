// The listener contract on both transports, and the bus's own defences.
#include "ipc/IpcTestSupport.h"
#include "platform/archive/PropertyList.h"
#include "platform/linux/dbus/DbusErrors.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/CapturedSystemLog.h"
#include "services/KTSNotificationScheduleFetchRequest.h"

#include <gtest/gtest.h>

using namespace tessel;
using namespace tessel::ipctest;

namespace {

enum class Transport { InProcess, Dbus };

void PrintTo(Transport transport, std::ostream* out)
{
    *out << (transport == Transport::InProcess ? "InProcess" : "Dbus");
}

// One transport's service and its clients.
class Harness {
public:
    virtual ~Harness() = default;
    virtual IpcService& service() = 0;
    virtual std::unique_ptr<TestClient> connect() = 0;
    // The error a refused request gets; empty where it gets no answer at all.
    virtual std::string refusalError() const = 0;
    CapturedSystemLog& log() { return device.systemLog(); }

    SimulatedDevice device;
};

class InProcessHarness : public Harness {
public:
    IpcService& service() override { return device.ipc(); }
    std::unique_ptr<TestClient> connect() override
    {
        ++_clients;
        return std::make_unique<InProcessTestClient>(device.ipc(),
            IpcPeer { .pid = 4200 + _clients,
                .uid = 501,
                .name = "client-" + std::to_string(_clients),
                .bundleIdentifier = "com.example.client" + std::to_string(_clients) });
    }
    std::string refusalError() const override { return {}; }

private:
    int _clients = 0;
};

class DbusHarness : public Harness {
public:
    static constexpr IpcLimits limits { .maxRequestBytes = 8192, .maxListItems = 8, .maxPendingRequests = 4 };
    static constexpr const char* resolvedBundle = "com.example.resolved";

    DbusHarness()
        : _service(std::make_shared<DbusIpcService>(bus.address(), limits, [](int32_t pid, uint32_t) {
            // Claims pid 1 as well: the transport's word wins.
            return IpcPeer { .pid = 1, .bundleIdentifier = pid == getpid() ? resolvedBundle : "" };
        }))
    {
    }
    ~DbusHarness() override
    {
        // The bus thread goes before the bus.
        _service.reset();
    }

    IpcService& service() override { return *_service; }
    std::unique_ptr<TestClient> connect() override { return connectDbus(); }
    std::unique_ptr<DbusTestClient> connectDbus()
    {
        return std::make_unique<DbusTestClient>(bus.address(), resolvedBundle);
    }
    std::string refusalError() const override { return DbusErrors::notEntitled; }

    PrivateBus bus;

private:
    std::shared_ptr<DbusIpcService> _service;
};

class ListenerFixture : public ::testing::Test {
protected:
    void start(Transport transport)
    {
        if (transport == Transport::InProcess) {
            harness = std::make_unique<InProcessHarness>();
        } else {
            auto dbus = std::make_unique<DbusHarness>();
            dbusHarness = dbus.get();
            harness = std::move(dbus);
            ASSERT_FALSE(dbusHarness->bus.address().empty());
        }
        for (auto name : { KTSNotificationRegistrarServiceName, KTSNotificationSchedulerServiceName }) {
            auto listener = harness->service().makeListener(name);
            listener->setDelegate(delegate);
            listener->resume();
            listeners.push_back(listener);
        }
    }
    void TearDown() override
    {
        clients.clear();
        for (auto& listener : listeners)
            listener->invalidate();
        listeners.clear();
        harness.reset();
    }

    TestClient& connect()
    {
        clients.push_back(harness->connect());
        return *clients.back();
    }
    DbusTestClient& connectDbus()
    {
        clients.push_back(dbusHarness->connectDbus());
        return static_cast<DbusTestClient&>(*clients.back());
    }
    std::shared_ptr<KTSNotificationRegistrarClientProtocol> eventsTo(const std::string& bundleIdentifier)
    {
        auto calls = delegate->registrar->callsFor(bundleIdentifier);
        EXPECT_FALSE(calls.empty()) << bundleIdentifier << " never called";
        if (calls.empty() || !calls.back().connection)
            return nullptr;
        return calls.back().connection->remoteObjectProxy<KTSNotificationRegistrarClientProtocol>();
    }

    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::unique_ptr<Harness> harness;
    DbusHarness* dbusHarness = nullptr;
    std::vector<std::shared_ptr<IpcListener>> listeners;
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
    EXPECT_EQ(peer.pid, client.peer().pid);
    EXPECT_EQ(peer.uid, client.peer().uid);
    EXPECT_EQ(peer.name, client.peer().name);
    EXPECT_EQ(peer.bundleIdentifier, client.peer().bundleIdentifier);

    // A record there and back, on the connection already made.
    auto settings = NotificationSettings::settingsForTypes(
        NotificationSettings::TypeBadge | NotificationSettings::TypeAlert, {});
    auto registered = client.registerSettings(settings);
    ASSERT_TRUE(registered);
    EXPECT_TRUE(registered->isEqual(*settings));
    ASSERT_EQ(delegate->accepted.items().size(), 1u);
    EXPECT_EQ(delegate->accepted.items()[0], calls[0].connection);
}

TEST_P(IpcListenerTest, RefusedOrDroppedRequestGetsNoAnswer)
{
    auto& client = connect();
    for (auto bundleIdentifier : { "refuse", "drop" }) {
        SCOPED_TRACE(bundleIdentifier);
        auto outcome = client.notificationTypes(bundleIdentifier);
        EXPECT_FALSE(outcome.answered);
        EXPECT_EQ(outcome.error, harness->refusalError());
        EXPECT_EQ(delegate->registrar->callsFor(bundleIdentifier).size(), 1u);
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
    ASSERT_TRUE(a.tokens->waitFor(2));
    ASSERT_TRUE(b.tokens->waitFor(2));
    EXPECT_EQ(a.tokens->items(), (std::vector<Token> { { { 1, 2, 3 }, "a" }, { {}, "end" } }));
    EXPECT_EQ(b.tokens->items(), (std::vector<Token> { { { 4 }, "b" }, { {}, "end" } }));
}

TEST_P(IpcListenerTest, InvalidationHandlerRunsOnceWhenTheClientGoesAway)
{
    auto& leaving = connect();
    auto& staying = connect();
    ASSERT_TRUE(leaving.notificationTypes("leaving").answered);
    ASSERT_TRUE(staying.notificationTypes("staying").answered);
    auto name = leaving.peer().name;

    leaving.disconnect();
    ASSERT_TRUE(delegate->invalidated->waitFor(1));
    EXPECT_EQ(delegate->invalidated->items()[0], name);

    // The other client is still served, and nothing more was invalidated.
    EXPECT_TRUE(staying.notificationTypes("staying").answered);
    EXPECT_EQ(delegate->invalidated->items(), std::vector<std::string> { name });
}

INSTANTIATE_TEST_SUITE_P(Transports, IpcListenerTest,
    ::testing::Values(Transport::InProcess, Transport::Dbus),
    [](const ::testing::TestParamInfo<Transport>& info) {
        return info.param == Transport::InProcess ? "InProcess" : "Dbus";
    });

class DbusIpcListenerTest : public ListenerFixture {
protected:
    void SetUp() override { start(Transport::Dbus); }

    static Bytes nestedPropertyList(int depth)
    {
        std::string text = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
        for (int i = 0; i < depth; ++i)
            text += "<array>";
        for (int i = 0; i < depth; ++i)
            text += "</array>";
        text += "</plist>";
        return Bytes(text.begin(), text.end());
    }
    static Bytes notificationArchive()
    {
        auto notification = std::make_shared<LocalNotification>();
        notification->setAlertBody("Tea");
        return *KeyedArchive::archivedData(Value(notification));
    }
};

TEST_F(DbusIpcListenerTest, BeyondALimitTheCallerIsRefusedWhileOthersAreServed)
{
    const auto& limits = DbusHarness::limits;
    auto count = [](const Mailbox<Call>& calls, const std::string& method) {
        size_t found = 0;
        for (auto& call : calls.items())
            found += call.method == method;
        return found;
    };
    struct Case {
        const char* name;
        std::function<Outcome(DbusTestClient&)> abuse;
        // Calls that reached a handler: none but those within the bound.
        std::function<size_t()> handled;
        size_t expectedHandled;
    } cases[] = {
        { "oversized request",
            [&](DbusTestClient& client) {
                return client.registerSettingsData(Bytes(limits.maxRequestBytes + 1, 'x'));
            },
            [&] { return count(delegate->registrar->calls, "RegisterNotificationSettings"); }, 0 },
        { "too long a list",
            [&](DbusTestClient& client) {
                return client.addNotifications(
                    std::vector<Bytes>(limits.maxListItems + 1, notificationArchive()));
            },
            [&] { return count(delegate->scheduler->calls, "Add"); }, 0 },
        { "too many unanswered requests",
            [&](DbusTestClient& client) {
                auto outcomes = std::make_shared<Mailbox<Outcome>>();
                for (size_t i = 0; i <= limits.maxPendingRequests; ++i)
                    client.notificationTypesAsync("hold", outcomes);
                // The held ones stay unanswered: only the one beyond the bound comes back.
                EXPECT_TRUE(outcomes->waitFor(1));
                auto items = outcomes->items();
                return items.empty() ? Outcome {} : items[0];
            },
            [&] { return delegate->registrar->callsFor("hold").size(); }, limits.maxPendingRequests },
    };
    auto& other = connectDbus();
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto& abuser = connectDbus();
        auto outcome = c.abuse(abuser);
        EXPECT_FALSE(outcome.answered);
        EXPECT_EQ(outcome.error, DbusErrors::limitExceeded);
        EXPECT_TRUE(other.notificationTypes("other").answered);
        EXPECT_EQ(c.handled(), c.expectedHandled);
        // Within bounds again, the abuser is served like anyone.
        delegate->registrar->releaseHeld();
        EXPECT_TRUE(abuser.notificationTypes("again").answered);
        EXPECT_TRUE(harness->log().contains(std::string("refuses ")));
    }
}

TEST_F(DbusIpcListenerTest, RecordsThatAreNoValidArchiveAreRefused)
{
    auto& client = connectDbus();
    auto wrongClass = notificationArchive();
    struct Case {
        const char* name;
        std::function<Outcome()> call;
    } cases[] = {
        { "settings that are no archive",
            [&] {
                return client.registerSettingsData(Bytes { 'n', 'o', 'p', 'e' });
            } },
        { "settings archive of another class", [&] { return client.registerSettingsData(wrongClass); } },
        // Nesting is bounded by the archive decoder itself, before it parses.
        { "settings nested deeper than any archive",
            [&] {
                return client.registerSettingsData(nestedPropertyList(PropertyList::maximumDepth + 20));
            } },
        { "a list with one bad entry",
            [&] {
                return client.addNotifications({ notificationArchive(), Bytes { 0, 1, 2 } });
            } },
        { "a list with an empty entry", [&] { return client.addNotifications({ Bytes {} }); } },
        { "a fetch request of another class", [&] { return client.schedule(wrongClass); } },
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto outcome = c.call();
        EXPECT_FALSE(outcome.answered);
        EXPECT_EQ(outcome.error, DbusErrors::invalidArguments);
    }
    EXPECT_TRUE(delegate->registrar->calls.items().empty());
    EXPECT_TRUE(delegate->scheduler->calls.items().empty());

    // What the decoders accept goes through.
    EXPECT_TRUE(client.addNotifications({ notificationArchive(), notificationArchive() }).answered);
    auto request = std::make_shared<KTSNotificationScheduleFetchRequest>();
    request->setMaxSize(3);
    EXPECT_TRUE(client.schedule(*KeyedArchive::archivedData(Value(request))).answered);
    auto calls = delegate->scheduler->calls.items();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].notifications, 2u);
}

TEST_F(DbusIpcListenerTest, ACallerTheDelegateTurnsAwayIsNotEntitled)
{
    delegate->turnAway = true;
    auto& client = connectDbus();
    EXPECT_EQ(client.notificationTypes("com.example.app").error, DbusErrors::notEntitled);
    EXPECT_EQ(client.notificationTypes("com.example.app").error, DbusErrors::notEntitled);
    EXPECT_TRUE(delegate->registrar->calls.items().empty());
}

} // namespace
