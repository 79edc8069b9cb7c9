#pragma once

#include "platform/archive/KeyedArchive.h"
#include "services/KTSConstants.h"
#include "services/KTSError.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"
#include "services/KTSNotificationSchedulerService.h"
#include "services/KTSNotificationSettingsWhitelistedUnarchive.h"

#include "dbus/registrar-adaptor.h"
#include "dbus/scheduler-adaptor.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

using namespace std::chrono_literals;

// Collects what other threads report; every wait is bounded.
template <typename T> class Inbox {
public:
    void push(T item)
    {
        std::lock_guard lock(_lock);
        _items.push_back(std::move(item));
        _changed.notify_all();
    }
    // What came, once there are count items or the limit passed.
    std::vector<T> waitFor(size_t count, std::chrono::milliseconds limit = 5s)
    {
        std::unique_lock lock(_lock);
        _changed.wait_for(lock, limit, [&] { return _items.size() >= count; });
        return _items;
    }
    std::vector<T> items()
    {
        std::lock_guard lock(_lock);
        return _items;
    }

private:
    std::mutex _lock;
    std::condition_variable _changed;
    std::vector<T> _items;
};

// What the fake daemons share: the calls they received as "Method arguments",
// the sender of the last one, and D-Bus errors to answer with instead.
class FakeDaemon {
public:
    Inbox<std::string> calls;

    // Every later call of method is answered with this D-Bus error, or never
    // for "hold".
    void answerWithError(const std::string& method, const std::string& errorName)
    {
        std::lock_guard lock(_lock);
        _errors[method] = errorName;
    }
    std::string lastSender()
    {
        std::lock_guard lock(_lock);
        return _lastSender;
    }

protected:
    // Logs the call; false when it was answered with an error.
    template <typename Result> bool take(Result& result, const sdbus::IObject& object, std::string call)
    {
        std::string method = call.substr(0, call.find(' '));
        std::string error;
        {
            std::lock_guard lock(_lock);
            _lastSender = object.getCurrentlyProcessedMessage()->getSender();
            if (auto found = _errors.find(method); found != _errors.end())
                error = found->second;
        }
        calls.push(std::move(call));
        if (error.empty())
            return true;
        if (error == "hold") {
            std::lock_guard lock(_lock);
            _held.push_back(std::make_shared<Result>(std::move(result)));
            return false;
        }
        result.returnError(sdbus::Error(error, "answered by the test"));
        return false;
    }

private:
    std::mutex _lock;
    std::map<std::string, std::string> _errors;
    std::string _lastSender;
    std::vector<std::shared_ptr<void>> _held;
};

class FakeRegistrar final : public FakeDaemon,
                            public sdbus::AdaptorInterfaces<com::tamber::Tessel::Registrar1_adaptor,
                                com::tamber::Tessel::RegistrarClient1_adaptor> {
public:
    static const char* serviceName() { return KTSNotificationRegistrarServiceName; }

    // Canned answers.
    uint64_t types = NotificationSettings::TypeBadge | NotificationSettings::TypeAlert;
    bool allowsRemote = true;
    KTSError registrationError { "KTSErrorDomain", 3010, "remote notifications are not supported" };
    Value::Dictionary backgroundRefresh { { "com.example.a", true }, { "com.example.b", false } };
    // Answered for NotificationSettings instead of what was registered.
    std::optional<Bytes> settingsAnswer;

    explicit FakeRegistrar(sdbus::IConnection& bus)
        : AdaptorInterfaces(bus, KTSNotificationRegistrarService::objectPath())
    {
        registerAdaptor();
    }
    ~FakeRegistrar() { unregisterAdaptor(); }

    // A unicast event, as the daemon sends it to the observing connection only.
    void sendToken(const std::string& destination, const Bytes& token, const std::string& bundleIdentifier)
    {
        auto signal = getObject().createSignal(INTERFACE_NAME, "DidReceiveDeviceToken");
        signal << token << bundleIdentifier;
        signal.setDestination(destination);
        getObject().emitSignal(signal);
    }

    // An event whose token is text, as no daemon of ours would send it.
    void sendMalformedToken(const std::string& destination, const std::string& bundleIdentifier)
    {
        auto signal = getObject().createSignal(INTERFACE_NAME, "DidReceiveDeviceToken");
        signal << std::string("not bytes") << bundleIdentifier;
        signal.setDestination(destination);
        getObject().emitSignal(signal);
    }

private:
    using RegistrarClient1_adaptor::INTERFACE_NAME;

    template <typename Result> bool take(Result& result, std::string call)
    {
        return FakeDaemon::take(result, getObject(), std::move(call));
    }

    void SetObservingRemoteNotifications(sdbus::Result<>&& result, bool observing, std::string id) override
    {
        if (take(result, "SetObservingRemoteNotifications " + std::to_string(observing) + " " + id))
            result.returnResults();
    }
    void InvalidateTokenForRemoteNotifications(sdbus::Result<>&& result, std::string id) override
    {
        if (take(result, "InvalidateTokenForRemoteNotifications " + id))
            result.returnResults();
    }
    void RegisterNotificationSettings(
        sdbus::Result<std::vector<uint8_t>>&& result, std::vector<uint8_t> archive, std::string id) override
    {
        auto settings = KTSNotificationSettingsWhitelistedUnarchiveFromData(archive);
        if (!settings) {
            result.returnError(sdbus::Error("com.tamber.Tessel.Error.InvalidArguments", "settings"));
            return;
        }
        if (!take(result,
                "RegisterNotificationSettings " + id + " types " + std::to_string(settings->types())
                    + " categories " + std::to_string(settings->categories().size())))
            return;
        auto registered = settings->validatedSettings();
        _registered = *KeyedArchive::archivedData(Value(registered));
        result.returnResults(_registered);
    }
    void RegisterBadgeSetting(sdbus::Result<>&& result, std::string id) override
    {
        if (take(result, "RegisterBadgeSetting " + id))
            result.returnResults();
    }
    void NotificationSettings(sdbus::Result<std::vector<uint8_t>>&& result, std::string id) override
    {
        if (take(result, "NotificationSettings " + id))
            result.returnResults(settingsAnswer.value_or(_registered));
    }
    void NotificationTypes(sdbus::Result<uint64_t>&& result, std::string id) override
    {
        if (take(result, "NotificationTypes " + id))
            result.returnResults(types);
    }
    void AllowsRemoteNotifications(sdbus::Result<bool>&& result, std::string id) override
    {
        if (take(result, "AllowsRemoteNotifications " + id))
            result.returnResults(allowsRemote);
    }
    void RemoteNotificationTypes(sdbus::Result<uint64_t>&& result, std::string id) override
    {
        if (take(result, "RemoteNotificationTypes " + id))
            result.returnResults(types);
    }
    void RegisterRemoteNotificationTypes(
        sdbus::Result<std::string, int64_t, std::string>&& result, uint64_t types, std::string id) override
    {
        // Registering no types succeeds; anything else gets the canned error.
        if (!take(result, "RegisterRemoteNotificationTypes " + std::to_string(types) + " " + id))
            return;
        if (types == 0)
            result.returnResults("", 0, "");
        else
            result.returnResults(
                registrationError.domain, registrationError.code, registrationError.localizedDescription);
    }
    void RequestTokenForRemoteNotifications(
        sdbus::Result<std::string, int64_t, std::string>&& result, std::string id) override
    {
        if (take(result, "RequestTokenForRemoteNotifications " + id))
            result.returnResults("", 0, "");
    }
    void BackgroundAppRefreshBundleIdentifierMapping(sdbus::Result<std::vector<uint8_t>>&& result) override
    {
        if (take(result, "BackgroundAppRefreshBundleIdentifierMapping"))
            result.returnResults(*KeyedArchive::archivedData(Value(backgroundRefresh)));
    }
    void SetAllowsBackgroundRefresh(sdbus::Result<>&& result, bool allowed, std::string id) override
    {
        if (take(result, "SetAllowsBackgroundRefresh " + std::to_string(allowed) + " " + id))
            result.returnResults();
    }

    Bytes _registered;
};

class FakeScheduler final : public FakeDaemon,
                            public sdbus::AdaptorInterfaces<com::tamber::Tessel::Scheduler1_adaptor,
                                com::tamber::Tessel::SchedulerClient1_adaptor> {
public:
    using List = std::vector<std::vector<uint8_t>>;
    static const char* serviceName() { return KTSNotificationSchedulerServiceName; }

    // Answered for ScheduledLocalNotifications instead of what was scheduled.
    std::optional<List> listAnswer;

    explicit FakeScheduler(sdbus::IConnection& bus)
        : AdaptorInterfaces(bus, KTSNotificationSchedulerService::objectPath())
    {
        registerAdaptor();
    }
    ~FakeScheduler() { unregisterAdaptor(); }

    void sendEvent(const char* name, const std::string& destination, const List& list, const std::string& id)
    {
        auto signal = getObject().createSignal(INTERFACE_NAME, name);
        signal << list << id;
        signal.setDestination(destination);
        getObject().emitSignal(signal);
    }

private:
    using SchedulerClient1_adaptor::INTERFACE_NAME;

    template <typename Result> bool take(Result& result, std::string call)
    {
        return FakeDaemon::take(result, getObject(), std::move(call));
    }

    // Decoded as the daemon must, with the safe decoder; null when one fails.
    static std::optional<std::vector<std::shared_ptr<LocalNotification>>> decoded(const List& list)
    {
        std::vector<std::shared_ptr<LocalNotification>> notifications;
        for (auto& bytes : list) {
            auto notification = KTSLocalNotificationWhitelistedUnarchiveFromData(bytes);
            if (!notification)
                return std::nullopt;
            notifications.push_back(std::move(notification));
        }
        return notifications;
    }

    void changeList(sdbus::Result<>& result, const char* method, const List& list, const std::string& id)
    {
        auto notifications = decoded(list);
        if (!notifications) {
            result.returnError(sdbus::Error("com.tamber.Tessel.Error.InvalidArguments", "notification"));
            return;
        }
        if (!take(result, std::string(method) + " " + id + " " + std::to_string(list.size())))
            return;
        std::lock_guard lock(_lock);
        auto& scheduled = _scheduled[id];
        std::string name = method;
        if (name == "SetScheduledLocalNotifications")
            scheduled = *notifications;
        else if (name == "AddScheduledLocalNotifications")
            scheduled.insert(scheduled.end(), notifications->begin(), notifications->end());
        else if (name == "CancelScheduledLocalNotifications")
            std::erase_if(scheduled, [&](auto& kept) {
                return std::any_of(notifications->begin(), notifications->end(),
                    [&](auto& cancelled) { return kept->isEqual(*cancelled); });
            });
        result.returnResults();
    }

    void ScheduledLocalNotifications(sdbus::Result<List>&& result, std::string id) override
    {
        if (!take(result, "ScheduledLocalNotifications " + id))
            return;
        if (listAnswer)
            return result.returnResults(*listAnswer);
        List list;
        std::lock_guard lock(_lock);
        for (auto& notification : _scheduled[id])
            list.push_back(*KeyedArchive::archivedData(Value(notification)));
        result.returnResults(list);
    }
    void Schedule(
        sdbus::Result<std::vector<uint8_t>>&& result, std::string id, std::vector<uint8_t> archive) override
    {
        KTSNotificationScheduleFetchRequest::registerArchivableClass();
        auto root = KeyedArchive::unarchive(archive,
            UnarchiveOptions { .expectedClass = KTSNotificationScheduleFetchRequest::archivedClassName,
                .allowedClasses = { KTSNotificationScheduleFetchRequest::archivedClassName } });
        auto request = root ? root->objectAs<KTSNotificationScheduleFetchRequest>() : nullptr;
        if (!request) {
            result.returnError(sdbus::Error("com.tamber.Tessel.Error.InvalidArguments", "fetch request"));
            return;
        }
        auto start = request->startDate()
            ? std::to_string(request->startDate()->timeIntervalSinceReferenceDate())
            : "now";
        if (!take(result, "Schedule " + id + " from " + start + " max " + std::to_string(request->maxSize())))
            return;
        // Each notification once, on its own date, up to the maximum.
        KTSNotificationSchedule schedule;
        std::lock_guard lock(_lock);
        for (auto& notification : _scheduled[id])
            if (notification->fireDate() && schedule.count() < request->maxSize())
                schedule.addLocalNotification(notification, *notification->fireDate());
        result.returnResults(
            *KeyedArchive::archivedData(Value(std::make_shared<KTSNotificationSchedule>(schedule))));
    }
    void SetScheduledLocalNotifications(sdbus::Result<>&& result, List list, std::string id) override
    {
        changeList(result, "SetScheduledLocalNotifications", list, id);
    }
    void AddScheduledLocalNotifications(sdbus::Result<>&& result, List list, std::string id) override
    {
        changeList(result, "AddScheduledLocalNotifications", list, id);
    }
    void CancelScheduledLocalNotifications(sdbus::Result<>&& result, List list, std::string id) override
    {
        changeList(result, "CancelScheduledLocalNotifications", list, id);
    }
    void SnoozeScheduledLocalNotifications(sdbus::Result<>&& result, List list, std::string id) override
    {
        changeList(result, "SnoozeScheduledLocalNotifications", list, id);
    }
    void SetObservingScheduledLocalNotifications(
        sdbus::Result<>&& result, bool observing, std::string id) override
    {
        if (take(result, "SetObservingScheduledLocalNotifications " + std::to_string(observing) + " " + id))
            result.returnResults();
    }

    std::mutex _lock;
    std::map<std::string, std::vector<std::shared_ptr<LocalNotification>>> _scheduled;
};

// A fake on a connection of its own that owns the service's name while it
// lives, as a daemon process would.
template <typename Fake> class Running {
public:
    explicit Running(const std::string& address)
        : _bus(sdbus::createSessionBusConnectionWithAddress(address))
        , _fake(std::make_unique<Fake>(*_bus))
    {
        // The object is in place before anyone can learn of the name.
        _bus->requestName(Fake::serviceName());
        _bus->enterEventLoopAsync();
    }
    ~Running()
    {
        _bus->leaveEventLoop();
        _fake.reset();
    }

    Fake* operator->() { return _fake.get(); }
    Fake& operator*() { return *_fake; }

private:
    std::unique_ptr<sdbus::IConnection> _bus;
    std::unique_ptr<Fake> _fake;
};

} // namespace tessel
