// Round trips through the client library to the daemon's listeners on a private
// bus: a small request (NotificationTypes) against org.freedesktop.DBus.Peer.Ping
// to the same peer, which is the least a round trip through the bus costs, and
// lists of 64 archived local notifications each way. The exported objects answer
// at once, so what is measured is the bus, the transport and the library.
#include "platform/records/LocalNotification.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerService.h"

#include "BenchBus.h"
#include "Latch.h"
#include "Latencies.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/ipc/IpcListener.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "services/KTSNotificationRegistrarServerProtocol.h"
#include "services/KTSNotificationSchedulerServerProtocol.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <tessel/TesselServices.h>

using namespace tessel;

namespace {

constexpr const char* bundleID = "com.example.bench";
using Archives = std::vector<std::vector<uint8_t>>;

// The daemon's side is the real transport; the exported objects answer at once.
class Registrar final : public KTSNotificationRegistrarServerProtocol {
public:
    void setObservingRemoteNotifications(bool, const std::string&, Completion done) override { done(); }
    void invalidateTokenForRemoteNotificationsForBundleIdentifier(
        const std::string&, Completion done) override
    {
        done();
    }
    void registerNotificationSettings(
        std::shared_ptr<NotificationSettings> settings, const std::string&, SettingsResult result) override
    {
        result(settings);
    }
    void registerBadgeSettingForBundleIdentifier(const std::string&, Completion done) override { done(); }
    void notificationSettingsForBundleIdentifier(const std::string&, SettingsResult result) override
    {
        result(nullptr);
    }
    void notificationTypesForBundleIdentifier(const std::string&, TypesResult result) override { result(7); }
    void allowsRemoteNotificationsForBundleIdentifier(const std::string&, BoolResult result) override
    {
        result(true);
    }
    void remoteNotificationTypesForBundleIdentifier(const std::string&, TypesResult result) override
    {
        result(7);
    }
    void registerRemoteNotificationTypes(uint64_t, const std::string&, ErrorResult result) override
    {
        result(std::nullopt);
    }
    void requestTokenForRemoteNotificationsForBundleIdentifier(
        const std::string&, ErrorResult result) override
    {
        result(std::nullopt);
    }
    void backgroundAppRefreshBundleIdentifierMappingWithResult(MappingResult result) override { result({}); }
    void setAllowsBackgroundRefresh(bool, const std::string&, Completion done) override { done(); }
};

// Keeps the list it is given (the transport decoded it with the safe decoder)
// and answers it.
class Scheduler final : public KTSNotificationSchedulerServerProtocol {
public:
    void scheduledLocalNotificationsForBundleIdentifier(const std::string&, ListResult result) override
    {
        result(_scheduled);
    }
    void scheduleForBundleIdentifier(const std::string&, std::shared_ptr<KTSNotificationScheduleFetchRequest>,
        ScheduleResult result) override
    {
        result(nullptr);
    }
    void setScheduledLocalNotifications(const List& list, const std::string&, Completion done) override
    {
        _scheduled = list;
        done();
    }
    void addScheduledLocalNotifications(const List&, const std::string&, Completion done) override { done(); }
    void cancelScheduledLocalNotifications(const List&, const std::string&, Completion done) override
    {
        done();
    }
    void snoozeScheduledLocalNotifications(const List&, const std::string&, Completion done) override
    {
        if (done)
            done();
    }
    void setObservingScheduledLocalNotifications(bool, const std::string&, Completion done) override
    {
        done();
    }

private:
    List _scheduled;
};

class Delegate final : public IpcListenerDelegate {
public:
    bool listenerShouldAcceptNewConnection(
        IpcListener& listener, const std::shared_ptr<IpcConnection>& connection) override
    {
        if (listener.serviceName() == KTSNotificationRegistrarServiceName) {
            connection->setExportedInterface(KTSNotificationRegistrarService::serverInterface());
            connection->setExportedObject<KTSNotificationRegistrarServerProtocol>(_registrar);
            connection->setRemoteObjectInterface(KTSNotificationRegistrarService::clientInterface());
        } else {
            connection->setExportedInterface(KTSNotificationSchedulerService::serverInterface());
            connection->setExportedObject<KTSNotificationSchedulerServerProtocol>(_scheduler);
            connection->setRemoteObjectInterface(KTSNotificationSchedulerService::clientInterface());
        }
        connection->resume();
        return true;
    }

private:
    std::shared_ptr<Registrar> _registrar = std::make_shared<Registrar>();
    std::shared_ptr<Scheduler> _scheduler = std::make_shared<Scheduler>();
};

// The bus and the daemon side, for the whole run.
struct Daemon {
    Daemon()
    {
        if (bus.address().empty())
            return;
        service = std::make_shared<DbusIpcService>(bus.address());
        for (auto name : { KTSNotificationRegistrarServiceName, KTSNotificationSchedulerServiceName }) {
            listeners.push_back(service->makeListener(name));
            listeners.back()->setDelegate(delegate);
            listeners.back()->resume();
        }
        running = service->start();
    }
    ~Daemon()
    {
        for (auto& listener : listeners)
            listener->invalidate();
    }

    ClientOptions options() const { return { .busAddress = bus.address() }; }

    BenchBus bus;
    std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
    std::shared_ptr<DbusIpcService> service;
    std::vector<std::shared_ptr<IpcListener>> listeners;
    bool running = false;
};

Daemon& daemon()
{
    static Daemon instance;
    return instance;
}

Archives sixtyFour()
{
    Archives list;
    for (int index = 0; index < 64; ++index) {
        LocalNotificationFields fields {
            .fireDate = 700'000'000.0 + 3600 * index,
            .alertBody = "Reminder " + std::to_string(index),
            .soundName = LocalNotificationFields::defaultSoundName,
            .applicationIconBadgeNumber = index,
        };
        if (index % 2)
            fields.repeatInterval = RepeatUnit::Day;
        list.push_back(*fields.archive());
    }
    return list;
}

void BM_PeerPing(benchmark::State& state)
{
    if (!daemon().running)
        return state.SkipWithError("no private bus");
    // A connection without a loop of its own: the caller reads the reply itself.
    auto connection = sdbus::createSessionBusConnectionWithAddress(daemon().bus.address());
    auto peer = sdbus::createProxy(
        *connection, KTSNotificationRegistrarServiceName, KTSNotificationRegistrarService::objectPath());
    Latencies latencies;
    for (auto _ : state)
        latencies.time([&] { peer->callMethod("Ping").onInterface("org.freedesktop.DBus.Peer"); });
    latencies.report(state);
}
BENCHMARK(BM_PeerPing)->UseRealTime();

void BM_ClientNotificationTypes(benchmark::State& state)
{
    if (!daemon().running)
        return state.SkipWithError("no private bus");
    KTSNotificationRegistrarClient client(daemon().options());
    Latch answers;
    int64_t sent = 0;
    uint64_t types = 0;
    Latencies latencies;
    for (auto _ : state) {
        latencies.time([&] {
            client.notificationTypesForBundleIdentifier(bundleID, [&](uint64_t answer) {
                types = answer;
                answers.signal();
            });
            answers.waitFor(++sent);
        });
    }
    latencies.report(state);
    if (types != 7)
        state.SkipWithError("wrong answer");
}
BENCHMARK(BM_ClientNotificationTypes)->UseRealTime();

// 64 archived notifications to the daemon, which decodes each.
void BM_ClientSet64Notifications(benchmark::State& state)
{
    if (!daemon().running)
        return state.SkipWithError("no private bus");
    KTSNotificationSchedulerClient client(daemon().options());
    auto list = sixtyFour();
    Latch answers;
    int64_t sent = 0;
    for (auto _ : state) {
        client.setScheduledLocalNotifications(list, bundleID, [&] { answers.signal(); });
        answers.waitFor(++sent);
    }
}
BENCHMARK(BM_ClientSet64Notifications)->UseRealTime();

// 64 archived notifications from the daemon, each validated by the client.
void BM_ClientList64Notifications(benchmark::State& state)
{
    if (!daemon().running)
        return state.SkipWithError("no private bus");
    KTSNotificationSchedulerClient client(daemon().options());
    Latch answers;
    client.setScheduledLocalNotifications(sixtyFour(), bundleID, [&] { answers.signal(); });
    answers.waitFor(1);
    int64_t sent = 1;
    size_t count = 0;
    for (auto _ : state) {
        client.scheduledLocalNotificationsForBundleIdentifier(bundleID, [&](auto list) {
            count = list.size();
            answers.signal();
        });
        answers.waitFor(++sent);
    }
    if (count != 64)
        state.SkipWithError("wrong answer");
}
BENCHMARK(BM_ClientList64Notifications)->UseRealTime();

} // namespace
