// Round trips through the client library to a daemon-side adaptor on a private
// bus: a small request (NotificationTypes) against org.freedesktop.DBus.Peer.Ping
// to the same peer, which is the least a round trip through the bus costs, and
// lists of 64 archived local notifications each way. The adaptor answers at
// once, so what is measured is the bus and the library on both ends.
#include "platform/archive/KeyedArchive.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSConstants.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerService.h"

#include "dbus/registrar-adaptor.h"
#include "dbus/scheduler-adaptor.h"

#include <benchmark/benchmark.h>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <tessel/TesselServices.h>
#include <unistd.h>

using namespace tessel;

namespace {

constexpr const char* bundleID = "com.example.bench";
using Archives = std::vector<std::vector<uint8_t>>;

// A dbus-daemon of the run's own on a socket in a temporary directory; it dies
// with the process at the latest.
class BenchBus {
public:
    BenchBus()
    {
        char directory[] = "/tmp/tessel-bench-XXXXXX";
        if (!mkdtemp(directory))
            return;
        _directory = directory;
        int output[2];
        if (pipe(output) != 0)
            return;
        std::string listen = "--address=unix:dir=" + _directory;
        _pid = fork();
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(output[1], STDOUT_FILENO);
            close(output[0]);
            execlp("dbus-daemon", "dbus-daemon", "--session", listen.c_str(), "--nofork", "--print-address",
                static_cast<char*>(nullptr));
            _exit(127);
        }
        close(output[1]);
        char buffer[512];
        size_t length = 0;
        pollfd readable { output[0], POLLIN, 0 };
        while (length < sizeof buffer - 1 && poll(&readable, 1, 10'000) > 0) {
            auto count = read(output[0], buffer + length, sizeof buffer - 1 - length);
            if (count <= 0)
                break;
            length += static_cast<size_t>(count);
            if (memchr(buffer, '\n', length))
                break;
        }
        close(output[0]);
        _address.assign(buffer, length);
        _address = _address.substr(0, _address.find('\n'));
    }
    ~BenchBus()
    {
        if (_pid > 0) {
            kill(_pid, SIGTERM);
            waitpid(_pid, nullptr, 0);
        }
        if (!_directory.empty())
            rmdir(_directory.c_str());
    }

    const std::string& address() const { return _address; }

private:
    std::string _directory;
    pid_t _pid = -1;
    std::string _address;
};

class Registrar final : public sdbus::AdaptorInterfaces<com::tamber::Tessel::Registrar1_adaptor> {
public:
    explicit Registrar(sdbus::IConnection& bus)
        : AdaptorInterfaces(bus, KTSNotificationRegistrarService::objectPath())
    {
        registerAdaptor();
    }
    ~Registrar() { unregisterAdaptor(); }

private:
    void NotificationTypes(sdbus::Result<uint64_t>&& result, std::string) override
    {
        result.returnResults(7);
    }
    void SetObservingRemoteNotifications(sdbus::Result<>&& result, bool, std::string) override
    {
        result.returnResults();
    }
    void InvalidateTokenForRemoteNotifications(sdbus::Result<>&& result, std::string) override
    {
        result.returnResults();
    }
    void RegisterNotificationSettings(
        sdbus::Result<std::vector<uint8_t>>&& result, std::vector<uint8_t> settings, std::string) override
    {
        result.returnResults(settings);
    }
    void RegisterBadgeSetting(sdbus::Result<>&& result, std::string) override { result.returnResults(); }
    void NotificationSettings(sdbus::Result<std::vector<uint8_t>>&& result, std::string) override
    {
        result.returnResults({});
    }
    void AllowsRemoteNotifications(sdbus::Result<bool>&& result, std::string) override
    {
        result.returnResults(true);
    }
    void RemoteNotificationTypes(sdbus::Result<uint64_t>&& result, std::string) override
    {
        result.returnResults(7);
    }
    void RegisterRemoteNotificationTypes(
        sdbus::Result<std::string, int64_t, std::string>&& result, uint64_t, std::string) override
    {
        result.returnResults("", 0, "");
    }
    void RequestTokenForRemoteNotifications(
        sdbus::Result<std::string, int64_t, std::string>&& result, std::string) override
    {
        result.returnResults("", 0, "");
    }
    void BackgroundAppRefreshBundleIdentifierMapping(sdbus::Result<std::vector<uint8_t>>&& result) override
    {
        result.returnResults({});
    }
    void SetAllowsBackgroundRefresh(sdbus::Result<>&& result, bool, std::string) override
    {
        result.returnResults();
    }
};

// Decodes what it is sent with the safe decoder, as the daemon must, and
// answers the list it holds archived.
class Scheduler final : public sdbus::AdaptorInterfaces<com::tamber::Tessel::Scheduler1_adaptor> {
public:
    explicit Scheduler(sdbus::IConnection& bus)
        : AdaptorInterfaces(bus, KTSNotificationSchedulerService::objectPath())
    {
        registerAdaptor();
    }
    ~Scheduler() { unregisterAdaptor(); }

private:
    void ScheduledLocalNotifications(sdbus::Result<Archives>&& result, std::string) override
    {
        Archives list;
        for (auto& notification : _scheduled)
            list.push_back(*KeyedArchive::archivedData(Value(notification)));
        result.returnResults(list);
    }
    void SetScheduledLocalNotifications(sdbus::Result<>&& result, Archives list, std::string) override
    {
        _scheduled.clear();
        for (auto& archive : list)
            if (auto notification = KTSLocalNotificationWhitelistedUnarchiveFromData(archive))
                _scheduled.push_back(std::move(notification));
        result.returnResults();
    }
    void Schedule(sdbus::Result<std::vector<uint8_t>>&& result, std::string, std::vector<uint8_t>) override
    {
        result.returnResults({});
    }
    void AddScheduledLocalNotifications(sdbus::Result<>&& result, Archives, std::string) override
    {
        result.returnResults();
    }
    void CancelScheduledLocalNotifications(sdbus::Result<>&& result, Archives, std::string) override
    {
        result.returnResults();
    }
    void SnoozeScheduledLocalNotifications(sdbus::Result<>&& result, Archives, std::string) override
    {
        result.returnResults();
    }
    void SetObservingScheduledLocalNotifications(sdbus::Result<>&& result, bool, std::string) override
    {
        result.returnResults();
    }

    std::vector<std::shared_ptr<LocalNotification>> _scheduled;
};

// The bus and the daemon side, for the whole run.
struct Daemon {
    Daemon()
    {
        if (bus.address().empty())
            return;
        connection = sdbus::createSessionBusConnectionWithAddress(bus.address());
        registrar = std::make_unique<Registrar>(*connection);
        scheduler = std::make_unique<Scheduler>(*connection);
        connection->requestName(KTSNotificationRegistrarServiceName);
        connection->requestName(KTSNotificationSchedulerServiceName);
        connection->enterEventLoopAsync();
    }
    ~Daemon()
    {
        if (!connection)
            return;
        connection->leaveEventLoop();
        registrar.reset();
        scheduler.reset();
        connection.reset();
    }

    ClientOptions options() const { return { .busAddress = bus.address() }; }

    BenchBus bus;
    std::unique_ptr<sdbus::IConnection> connection;
    std::unique_ptr<Registrar> registrar;
    std::unique_ptr<Scheduler> scheduler;
};

Daemon& daemon()
{
    static Daemon instance;
    return instance;
}

// Counts answers; the measuring thread waits for each in turn.
class Answers {
public:
    // Notified unlocked, so that the woken thread does not wait for the lock.
    void add()
    {
        {
            std::lock_guard lock(_lock);
            ++_count;
        }
        _changed.notify_one();
    }
    void waitFor(int64_t count)
    {
        std::unique_lock lock(_lock);
        _changed.wait(lock, [&] { return _count >= count; });
    }

private:
    std::mutex _lock;
    std::condition_variable _changed;
    int64_t _count = 0;
};

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
    if (!daemon().connection)
        return state.SkipWithError("no private bus");
    // A connection without a loop of its own: the caller reads the reply itself.
    auto connection = sdbus::createSessionBusConnectionWithAddress(daemon().bus.address());
    auto peer = sdbus::createProxy(
        *connection, KTSNotificationRegistrarServiceName, KTSNotificationRegistrarService::objectPath());
    for (auto _ : state)
        peer->callMethod("Ping").onInterface("org.freedesktop.DBus.Peer");
}
BENCHMARK(BM_PeerPing)->UseRealTime();

void BM_ClientNotificationTypes(benchmark::State& state)
{
    if (!daemon().connection)
        return state.SkipWithError("no private bus");
    KTSNotificationRegistrarClient client(daemon().options());
    Answers answers;
    int64_t sent = 0;
    uint64_t types = 0;
    for (auto _ : state) {
        client.notificationTypesForBundleIdentifier(bundleID, [&](uint64_t answer) {
            types = answer;
            answers.add();
        });
        answers.waitFor(++sent);
    }
    if (types != 7)
        state.SkipWithError("wrong answer");
}
BENCHMARK(BM_ClientNotificationTypes)->UseRealTime();

// 64 archived notifications to the daemon, which decodes each.
void BM_ClientSet64Notifications(benchmark::State& state)
{
    if (!daemon().connection)
        return state.SkipWithError("no private bus");
    KTSNotificationSchedulerClient client(daemon().options());
    auto list = sixtyFour();
    Answers answers;
    int64_t sent = 0;
    for (auto _ : state) {
        client.setScheduledLocalNotifications(list, bundleID, [&] { answers.add(); });
        answers.waitFor(++sent);
    }
}
BENCHMARK(BM_ClientSet64Notifications)->UseRealTime();

// 64 archived notifications from the daemon, each validated by the client.
void BM_ClientList64Notifications(benchmark::State& state)
{
    if (!daemon().connection)
        return state.SkipWithError("no private bus");
    KTSNotificationSchedulerClient client(daemon().options());
    Answers answers;
    client.setScheduledLocalNotifications(sixtyFour(), bundleID, [&] { answers.add(); });
    answers.waitFor(1);
    int64_t sent = 1;
    size_t count = 0;
    for (auto _ : state) {
        client.scheduledLocalNotificationsForBundleIdentifier(bundleID, [&](auto list) {
            count = list.size();
            answers.add();
        });
        answers.waitFor(++sent);
    }
    if (count != 64)
        state.SkipWithError("wrong answer");
}
BENCHMARK(BM_ClientList64Notifications)->UseRealTime();

} // namespace
