#pragma once

#include "platform/ipc/IpcConnection.h"
#include "platform/ipc/IpcListener.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarServerProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerServerProtocol.h"
#include "services/KTSNotificationSchedulerService.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// The listener side of the IPC tests, on either transport; free of the test
// framework so that the helper program serves with it too.
namespace tessel::ipctest {

constexpr auto waitLimit = std::chrono::seconds(10);

// What arrived from another thread, in order, with bounded waits.
template <typename T> class Mailbox {
public:
    void push(T item)
    {
        std::lock_guard guard(_mutex);
        _items.push_back(std::move(item));
        _changed.notify_all();
    }
    // False when fewer than count arrived in time.
    bool waitFor(size_t count, std::chrono::milliseconds timeout = waitLimit)
    {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, timeout, [&] { return _items.size() >= count; });
    }
    std::vector<T> items() const
    {
        std::lock_guard guard(_mutex);
        return _items;
    }

private:
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<T> _items;
};

struct Call {
    std::string method;
    std::string bundleIdentifier;
    std::shared_ptr<IpcConnection> connection; // current during the call
    size_t notifications = 0;
};

// Answers NotificationTypes with 42, except: "refuse" refuses, "drop" drops
// the callback, "hold" keeps it until releaseHeld().
class RecordingRegistrar : public KTSNotificationRegistrarServerProtocol {
public:
    Mailbox<Call> calls;
    // Runs in the handler of an observing client's SetObservingRemoteNotifications, once answered.
    std::function<void(const std::string& bundleIdentifier)> onObserving;

    std::vector<Call> callsFor(const std::string& bundleIdentifier) const
    {
        std::vector<Call> found;
        for (auto& call : calls.items())
            if (call.bundleIdentifier == bundleIdentifier)
                found.push_back(call);
        return found;
    }
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
        record("NotificationTypes", id);
        if (id == "refuse") {
            IpcConnection::refuseCurrentRequest();
        } else if (id == "hold") {
            std::lock_guard guard(_mutex);
            _held.push_back(std::move(result));
        } else if (id != "drop") {
            result(42);
        }
    }
    void registerNotificationSettings(
        std::shared_ptr<NotificationSettings> settings, const std::string& id, SettingsResult result) override
    {
        record("RegisterNotificationSettings", id);
        result(settings);
    }
    void setObservingRemoteNotifications(
        bool observing, const std::string& id, Completion completion) override
    {
        record("SetObservingRemoteNotifications", id);
        completion();
        if (observing && onObserving)
            onObserving(id);
    }
    void invalidateTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& id, Completion done) override
    {
        record("InvalidateToken", id);
        done();
    }
    void registerBadgeSettingForBundleIdentifier(const std::string& id, Completion done) override
    {
        record("RegisterBadgeSetting", id);
        done();
    }
    void notificationSettingsForBundleIdentifier(const std::string& id, SettingsResult result) override
    {
        record("NotificationSettings", id);
        result(nullptr);
    }
    void allowsRemoteNotificationsForBundleIdentifier(const std::string& id, BoolResult result) override
    {
        record("AllowsRemoteNotifications", id);
        result(true);
    }
    void remoteNotificationTypesForBundleIdentifier(const std::string& id, TypesResult result) override
    {
        record("RemoteNotificationTypes", id);
        result(0);
    }
    void registerRemoteNotificationTypes(uint64_t, const std::string& id, ErrorResult result) override
    {
        record("RegisterRemoteNotificationTypes", id);
        result(std::nullopt);
    }
    void requestTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& id, ErrorResult result) override
    {
        record("RequestToken", id);
        result(std::nullopt);
    }
    void backgroundAppRefreshBundleIdentifierMappingWithResult(MappingResult result) override
    {
        record("BackgroundAppRefreshMapping", "");
        result({});
    }
    void setAllowsBackgroundRefresh(bool, const std::string& id, Completion done) override
    {
        record("SetAllowsBackgroundRefresh", id);
        done();
    }

private:
    void record(std::string method, const std::string& id)
    {
        calls.push({ std::move(method), id, IpcConnection::currentConnection() });
    }

    std::mutex _mutex;
    std::vector<TypesResult> _held;
};

class RecordingScheduler : public KTSNotificationSchedulerServerProtocol {
public:
    Mailbox<Call> calls;

    void scheduledLocalNotificationsForBundleIdentifier(const std::string& id, ListResult result) override
    {
        record("ScheduledLocalNotifications", id, 0);
        result({});
    }
    void scheduleForBundleIdentifier(const std::string& id,
        std::shared_ptr<KTSNotificationScheduleFetchRequest>, ScheduleResult result) override
    {
        record("Schedule", id, 0);
        result(nullptr);
    }
    void setScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        record("Set", id, list.size());
        done();
    }
    void addScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        record("Add", id, list.size());
        done();
    }
    void cancelScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        record("Cancel", id, list.size());
        done();
    }
    void snoozeScheduledLocalNotifications(const List& list, const std::string& id, Completion done) override
    {
        record("Snooze", id, list.size());
        if (done)
            done();
    }
    void setObservingScheduledLocalNotifications(bool, const std::string& id, Completion done) override
    {
        record("SetObserving", id, 0);
        done();
    }

private:
    void record(std::string method, const std::string& id, size_t count)
    {
        calls.push({ std::move(method), id, IpcConnection::currentConnection(), count });
    }
};

// Takes every connection (unless told to turn them away) and notes when one ends.
class RecordingDelegate : public IpcListenerDelegate {
public:
    std::shared_ptr<RecordingRegistrar> registrar = std::make_shared<RecordingRegistrar>();
    std::shared_ptr<RecordingScheduler> scheduler = std::make_shared<RecordingScheduler>();
    Mailbox<std::shared_ptr<IpcConnection>> accepted;
    std::shared_ptr<Mailbox<std::string>> invalidated = std::make_shared<Mailbox<std::string>>();
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
            [invalidated = invalidated, name = connection->peer().name] { invalidated->push(name); });
        accepted.push(connection);
        connection->resume();
        return true;
    }
};

} // namespace tessel::ipctest
