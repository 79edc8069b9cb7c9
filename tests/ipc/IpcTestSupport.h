#pragma once

#include "platform/archive/KeyedArchive.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/ipc/IpcListener.h"
#include "platform/linux/dbus/DbusIpcService.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"
#include "services/KTSNotificationRegistrarServerProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"
#include "services/KTSNotificationSchedulerClientProtocol.h"
#include "services/KTSNotificationSchedulerServerProtocol.h"
#include "services/KTSNotificationSchedulerService.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

// The daemon side the IPC and client tests share: a private bus, and the real
// bus transport serving recording objects on it.
namespace tessel::ipctest {

using namespace std::chrono_literals;

// What arrived from other threads, in order; every wait is bounded.
template <typename T> class Mailbox {
public:
    void push(T item)
    {
        std::lock_guard guard(_mutex);
        _items.push_back(std::move(item));
        _changed.notify_all();
    }
    // What came, once there are count items or the time is up.
    std::vector<T> waitFor(size_t count, std::chrono::milliseconds timeout = 10s)
    {
        return waitUntil([&](const std::vector<T>& items) { return items.size() >= count; }, timeout);
    }
    // What came, once it satisfies done or the time is up.
    template <typename Done>
    std::vector<T> waitUntil(Done done, std::chrono::milliseconds timeout = 10s) const
    {
        std::unique_lock lock(_mutex);
        _changed.wait_for(lock, timeout, [&] { return done(_items); });
        return _items;
    }
    std::vector<T> items() const
    {
        std::lock_guard guard(_mutex);
        return _items;
    }

private:
    mutable std::mutex _mutex;
    mutable std::condition_variable _changed;
    std::vector<T> _items;
};

// A program with its standard output on a pipe; still running at the end, it is killed.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& arguments, bool quiet = false)
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            return;
        std::vector<char*> argv;
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        if (quiet)
            posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&_pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
            _pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        _output = fds[0];
    }
    ~ChildProcess()
    {
        if (_pid > 0 && !_status) {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
        close(_output);
    }

    // Output up to the first newline, or to its end; absent when neither came in time.
    std::optional<std::string> read(std::chrono::milliseconds timeout, bool wholeOutput = false)
    {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (wholeOutput || _buffer.find('\n') == std::string::npos) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd fd { _output, POLLIN, 0 };
            char chunk[4096];
            if (_pid <= 0 || left.count() <= 0 || poll(&fd, 1, static_cast<int>(left.count())) <= 0)
                return std::nullopt;
            auto count = ::read(_output, chunk, sizeof chunk);
            if (count <= 0)
                return wholeOutput ? std::optional(std::exchange(_buffer, {})) : std::nullopt;
            _buffer.append(chunk, static_cast<size_t>(count));
        }
        auto line = _buffer.substr(0, _buffer.find('\n'));
        _buffer.erase(0, line.size() + 1);
        return line;
    }
    // The exit status once output has ended.
    int exitStatus()
    {
        int status = 0;
        waitpid(_pid, &status, 0);
        _status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return *_status;
    }

private:
    pid_t _pid = -1;
    int _output = -1;
    std::string _buffer;
    std::optional<int> _status;
};

// A bus daemon of the test's own, on a socket in a fresh directory.
class PrivateBus {
public:
    PrivateBus()
        // Its complaints about descriptor limits it may not raise here are noise.
        : _daemon({ "/usr/bin/dbus-daemon", "--session", "--address=unix:dir=" + _directory.path(),
                      "--nofork", "--print-address" },
            true)
    {
        auto address = _daemon.read(10s);
        if (!address || address->rfind("unix:", 0) != 0)
            ADD_FAILURE() << "the bus daemon did not start";
        else
            _address = *address;
    }
    // Empty when the daemon did not start.
    const std::string& address() const { return _address; }

private:
    TemporaryDirectory _directory;
    ChildProcess _daemon;
    std::string _address;
};

struct Call {
    std::string method;
    std::string bundleIdentifier;
    std::shared_ptr<IpcConnection> connection; // current during the call
    size_t notifications = 0;
};

// Calls for the bundle "refuse" are refused, whatever the method.
class Recorder {
public:
    Mailbox<Call> calls;
    std::vector<Call> callsFor(const std::string& bundleIdentifier) const
    {
        auto found = calls.items();
        std::erase_if(found, [&](auto& call) { return call.bundleIdentifier != bundleIdentifier; });
        return found;
    }

protected:
    bool take(std::string method, const std::string& id, size_t notifications = 0)
    {
        calls.push({ std::move(method), id, IpcConnection::currentConnection(), notifications });
        if (id == "refuse")
            IpcConnection::refuseCurrentRequest();
        return id != "refuse";
    }
    std::mutex _mutex;
};

// NotificationTypes answers 42, but drops "drop" and keeps "hold" until releaseHeld().
class RecordingRegistrar : public KTSNotificationRegistrarServerProtocol, public Recorder {
public:
    void releaseHeld()
    {
        std::vector<TypesResult> held;
        {
            std::lock_guard guard(_mutex);
            held.swap(_held);
        }
        for (auto& result : held)
            result(7);
    }

    void notificationTypesForBundleIdentifier(const std::string& id, TypesResult result) override
    {
        std::lock_guard guard(_mutex);
        if (!take("NotificationTypes", id) || id == "drop")
            return;
        if (id == "hold")
            _held.push_back(std::move(result));
        else
            result(42);
    }
    // Registered settings come back as the daemon would keep them.
    void registerNotificationSettings(
        std::shared_ptr<NotificationSettings> settings, const std::string& id, SettingsResult result) override
    {
        if (!take("RegisterNotificationSettings", id))
            return;
        std::lock_guard guard(_mutex);
        result(_settings[id] = settings->validatedSettings());
    }
    void notificationSettingsForBundleIdentifier(const std::string& id, SettingsResult result) override
    {
        if (!take("NotificationSettings", id))
            return;
        std::lock_guard guard(_mutex);
        result(_settings[id]);
    }
    void setObservingRemoteNotifications(bool observing, const std::string& id, Completion done) override
    {
        if (!take("SetObservingRemoteNotifications" + std::string(observing ? "" : " off"), id))
            return;
        done();
    }
    void invalidateTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& id, Completion done) override
    {
        if (take("InvalidateToken", id))
            done();
    }
    void registerBadgeSettingForBundleIdentifier(const std::string& id, Completion done) override
    {
        if (take("RegisterBadgeSetting", id))
            done();
    }
    void allowsRemoteNotificationsForBundleIdentifier(const std::string& id, BoolResult result) override
    {
        if (take("AllowsRemoteNotifications", id))
            result(true);
    }
    void remoteNotificationTypesForBundleIdentifier(const std::string& id, TypesResult result) override
    {
        if (take("RemoteNotificationTypes", id))
            result(5);
    }
    // Registering no types succeeds; anything else is not supported.
    void registerRemoteNotificationTypes(uint64_t types, const std::string& id, ErrorResult result) override
    {
        if (take("RegisterRemoteNotificationTypes", id))
            result(
                types ? std::optional(KTSError { "KTSErrorDomain", 3010, "not supported" }) : std::nullopt);
    }
    void requestTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& id, ErrorResult result) override
    {
        if (take("RequestToken", id))
            result(std::nullopt);
    }
    void backgroundAppRefreshBundleIdentifierMappingWithResult(MappingResult result) override
    {
        if (take("BackgroundAppRefreshMapping", ""))
            result({ { "com.example.a", true }, { "com.example.b", false } });
    }
    void setAllowsBackgroundRefresh(bool, const std::string& id, Completion done) override
    {
        if (take("SetAllowsBackgroundRefresh", id))
            done();
    }

private:
    std::vector<TypesResult> _held;
    std::map<std::string, std::shared_ptr<NotificationSettings>> _settings;
};

// Keeps each bundle's list; Snooze takes no part in it.
class RecordingScheduler : public KTSNotificationSchedulerServerProtocol, public Recorder {
public:
    void scheduledLocalNotificationsForBundleIdentifier(const std::string& id, ListResult result) override
    {
        if (!take("ScheduledLocalNotifications", id))
            return;
        std::lock_guard guard(_mutex);
        result(_lists[id]);
    }
    // Each notification once, on its own date, up to the maximum.
    void scheduleForBundleIdentifier(const std::string& id,
        std::shared_ptr<KTSNotificationScheduleFetchRequest> request, ScheduleResult result) override
    {
        if (!take("Schedule", id))
            return;
        auto schedule = std::make_shared<KTSNotificationSchedule>();
        std::lock_guard guard(_mutex);
        for (auto& notification : _lists[id])
            if (notification->fireDate() && schedule->count() < request->maxSize())
                schedule->addLocalNotification(notification, *notification->fireDate());
        result(schedule);
    }
    void setScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        change("Set", list, id, done, [&](List& kept) { kept = list; });
    }
    void addScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        change("Add", list, id, done, [&](List& kept) { kept.insert(kept.end(), list.begin(), list.end()); });
    }
    void cancelScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        change("Cancel", list, id, done, [&](List& kept) {
            std::erase_if(kept, [&](auto& one) {
                return std::any_of(list.begin(), list.end(), [&](auto& gone) { return one->isEqual(*gone); });
            });
        });
    }
    void snoozeScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        change("Snooze", list, id, done, [](List&) {});
    }
    void setObservingScheduledLocalNotifications(bool, const std::string& id, Completion done) override
    {
        if (take("SetObserving", id))
            done();
    }

private:
    template <typename Edit>
    void change(const char* method, const List& list, const std::string& id, Completion& done, Edit edit)
    {
        if (!take(method, id, list.size()))
            return;
        {
            std::lock_guard guard(_mutex);
            edit(_lists[id]);
        }
        if (done)
            done();
    }
    std::map<std::string, List> _lists;
};

// Takes every connection (unless told to turn them away) and notes when one ends.
class RecordingDelegate : public IpcListenerDelegate {
public:
    std::shared_ptr<RecordingRegistrar> registrar = std::make_shared<RecordingRegistrar>();
    std::shared_ptr<RecordingScheduler> scheduler = std::make_shared<RecordingScheduler>();
    Mailbox<std::shared_ptr<IpcConnection>> accepted;
    // Shared with the handlers, which may run after the delegate is gone.
    std::shared_ptr<Mailbox<std::string>> invalidations = std::make_shared<Mailbox<std::string>>();
    Mailbox<std::string>& invalidated = *invalidations;
    std::atomic<bool> turnAway { false };

    bool listenerShouldAcceptNewConnection(
        IpcListener& listener, const std::shared_ptr<IpcConnection>& connection) override
    {
        if (turnAway)
            return false;
        if (listener.serviceName() == KTSNotificationRegistrarServiceName) {
            connection->setExportedInterface(KTSNotificationRegistrarService::serverInterface());
            connection->setExportedObject<KTSNotificationRegistrarServerProtocol>(registrar);
            connection->setRemoteObjectInterface(KTSNotificationRegistrarService::clientInterface());
        } else {
            connection->setExportedInterface(KTSNotificationSchedulerService::serverInterface());
            connection->setExportedObject<KTSNotificationSchedulerServerProtocol>(scheduler);
            connection->setRemoteObjectInterface(KTSNotificationSchedulerService::clientInterface());
        }
        connection->setInvalidationHandler(
            [box = invalidations, name = connection->peer().name] { box->push(name); });
        accepted.push(connection);
        connection->resume();
        return true;
    }
};

// The daemon side on a bus: the real transport, recording objects behind it.
class Daemon {
public:
    explicit Daemon(
        const std::string& address, IpcLimits limits = {}, DbusIpcService::PeerResolver resolver = {})
        : service(std::make_shared<DbusIpcService>(address, limits, std::move(resolver)))
    {
        for (auto name : { KTSNotificationRegistrarServiceName, KTSNotificationSchedulerServiceName }) {
            _listeners.push_back(service->makeListener(name));
            _listeners.back()->setDelegate(delegate);
            _listeners.back()->resume();
        }
    }
    ~Daemon()
    {
        // The listeners, then the bus thread.
        for (auto& listener : _listeners)
            listener->invalidate();
        _listeners.clear();
        service.reset();
    }
    RecordingRegistrar& registrar() { return *delegate->registrar; }
    RecordingScheduler& scheduler() { return *delegate->scheduler; }
    // The connection of the last call for bundleIdentifier, as the daemon sends events on it.
    template <typename Protocol>
    std::shared_ptr<Protocol> eventsTo(const Recorder& recorder, const std::string& bundleIdentifier)
    {
        auto calls = recorder.callsFor(bundleIdentifier);
        if (calls.empty() || !calls.back().connection)
            return nullptr;
        return calls.back().connection->remoteObjectProxy<Protocol>();
    }

    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<DbusIpcService> service;

private:
    std::vector<std::shared_ptr<IpcListener>> _listeners;
};

} // namespace tessel::ipctest
