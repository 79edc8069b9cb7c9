#include "tessel/services/KTSNotificationSchedulerClient.h"

#include "client/ClientConnection.h"
#include "client/ClientRecords.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationSchedulerService.h"

#include "dbus/scheduler-proxy.h"

namespace tessel {

namespace {

    using Work = ClientConnection::Work;
    using List = KTSNotificationSchedulerClient::List;

    using Interface = com::tamber::Tessel::Scheduler1_proxy;
    using ClientInterface = com::tamber::Tessel::SchedulerClient1_proxy;

} // namespace

// Hidden, so that no instantiation over it is exported with the class.
class __attribute__((visibility("hidden"))) KTSNotificationSchedulerClient::Impl {
public:
    struct State {
        std::mutex lock;
        Observer observer;
    };

    explicit Impl(ClientOptions options)
        : connection(std::move(options), KTSNotificationSchedulerServiceName,
            KTSNotificationSchedulerService::objectPath(), Interface::INTERFACE_NAME)
    {
        observe("DidChangeScheduledLocalNotifications", "didChangeScheduledLocalNotifications",
            &Observer::didChangeScheduledLocalNotifications);
        observe(
            "DidFireLocalNotifications", "didFireLocalNotifications", &Observer::didFireLocalNotifications);
        connection.start();
    }

    void observe(const char* member, const char* event, NotificationsEvent Observer::*handler)
    {
        connection.onSignal(ClientInterface::INTERFACE_NAME, member, event,
            [state = state, handler](sdbus::Signal& signal) -> Work {
                auto notifications = validatedNotifications(readByteArrays(signal));
                std::string bundleIdentifier;
                if (!(signal >> bundleIdentifier))
                    throw MalformedAnswer("an event without its bundle identifier");
                return [state, handler, notifications = std::move(notifications),
                           bundleIdentifier = std::move(bundleIdentifier)] {
                    NotificationsEvent event;
                    {
                        std::lock_guard lock(state->lock);
                        event = state->observer.*handler;
                    }
                    if (event)
                        event(notifications, bundleIdentifier);
                };
            });
    }

    void sendList(const char* method, const char* operation, const List& notifications,
        const std::string& bundleIdentifier, Completion completion)
    {
        connection.call(method, operation, ClientConnection::completionReader(std::move(completion)),
            notifications, bundleIdentifier);
    }

    std::shared_ptr<State> state = std::make_shared<State>();
    ClientConnection connection;
};

KTSNotificationSchedulerClient::KTSNotificationSchedulerClient(ClientOptions options)
    : _impl(std::make_unique<Impl>(std::move(options)))
{
}

KTSNotificationSchedulerClient::~KTSNotificationSchedulerClient() = default;

void KTSNotificationSchedulerClient::setObserver(Observer observer)
{
    std::lock_guard lock(_impl->state->lock);
    _impl->state->observer = std::move(observer);
}

void KTSNotificationSchedulerClient::scheduledLocalNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, ListResult result)
{
    _impl->connection.call(
        "ScheduledLocalNotifications", "scheduledLocalNotificationsForBundleIdentifier",
        [result = std::move(result)](sdbus::MethodReply& reply) -> Work {
            auto validated = validatedNotifications(readByteArrays(reply));
            if (!result)
                return {};
            return [result, validated = std::move(validated)]() mutable { result(std::move(validated)); };
        },
        bundleIdentifier);
}

void KTSNotificationSchedulerClient::scheduleForBundleIdentifier(
    const std::string& bundleIdentifier, const ScheduleFetchRequest& request, ScheduleResult result)
{
    _impl->connection.call(
        "Schedule", "scheduleForBundleIdentifier",
        [result = std::move(result)](sdbus::MethodReply& reply) -> Work {
            auto entries = scheduleEntries(readBytes(reply));
            if (!result)
                return {};
            return [result, entries = std::move(entries)]() mutable { result(std::move(entries)); };
        },
        bundleIdentifier, archivedFetchRequest(request));
}

void KTSNotificationSchedulerClient::setScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    _impl->sendList("SetScheduledLocalNotifications", "setScheduledLocalNotifications", notifications,
        bundleIdentifier, std::move(completion));
}

void KTSNotificationSchedulerClient::addScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    _impl->sendList("AddScheduledLocalNotifications", "addScheduledLocalNotifications", notifications,
        bundleIdentifier, std::move(completion));
}

void KTSNotificationSchedulerClient::cancelScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    _impl->sendList("CancelScheduledLocalNotifications", "cancelScheduledLocalNotifications", notifications,
        bundleIdentifier, std::move(completion));
}

void KTSNotificationSchedulerClient::snoozeScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    _impl->sendList("SnoozeScheduledLocalNotifications", "snoozeScheduledLocalNotifications", notifications,
        bundleIdentifier, std::move(completion));
}

void KTSNotificationSchedulerClient::setObservingScheduledLocalNotifications(
    bool observing, const std::string& bundleIdentifier, Completion completion)
{
    _impl->connection.setObserving("SetObservingScheduledLocalNotifications",
        "setObservingScheduledLocalNotifications", observing, bundleIdentifier, std::move(completion));
}

} // namespace tessel
