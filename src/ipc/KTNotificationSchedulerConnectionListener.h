#pragma once

#include "platform/ipc/IpcListener.h"
#include "services/KTSNotificationSchedulerServerProtocol.h"

#include <memory>
#include <string>

namespace tessel {

class KTConnectionTable;
struct Notification;
class WorkQueue;

// Publishes the scheduler service: applications, and system clients acting for
// them, read, replace, add, cancel and snooze their scheduled local
// notifications, and observers hear when an application's list changes or
// some of it fires. Every request is checked against the caller first; a
// refused one is logged and dropped unanswered.
class KTNotificationSchedulerConnectionListener final
    : public IpcListenerDelegate,
      public KTSNotificationSchedulerServerProtocol,
      public std::enable_shared_from_this<KTNotificationSchedulerConnectionListener> {
public:
    static constexpr const char* queueLabel = "com.tamber.KTNotificationSchedulerConnectionListener";

    // Made on first use; the server start makes its own instance with init() instead.
    static std::shared_ptr<KTNotificationSchedulerConnectionListener> sharedInstance();
    // Publishes the service and observes the local notification service's changes and firings.
    static std::shared_ptr<KTNotificationSchedulerConnectionListener> init();
    KTNotificationSchedulerConnectionListener();
    ~KTNotificationSchedulerConnectionListener() override;

    // Stops publishing the service and ends its connections; for an orderly shutdown.
    void invalidate();

    bool listenerShouldAcceptNewConnection(
        IpcListener& listener, const std::shared_ptr<IpcConnection>& connection) override;

    void scheduledLocalNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, ListResult result) override;
    void scheduleForBundleIdentifier(const std::string& bundleIdentifier,
        std::shared_ptr<KTSNotificationScheduleFetchRequest> fetchRequest, ScheduleResult result) override;
    void setScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion) override;
    void addScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion) override;
    void cancelScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion) override;
    void snoozeScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion) override;
    void setObservingScheduledLocalNotifications(
        bool observing, const std::string& bundleIdentifier, Completion completion) override;

    // From the in-process notification center, on any thread.
    void _localNotificationsDidChange(const Notification& notification);
    void _localNotificationDidFire(const Notification& notification);
    void _queue_localNotificationsDidChange(const List& notifications, const std::string& bundleIdentifier);
    void _queue_localNotificationDidFire(const List& notifications, const std::string& bundleIdentifier);

private:
    void start();
    // Against the connection whose request is being handled; a refusal is
    // logged and drops the request.
    static bool _isAllowedToScheduleForBundleIdentifier(const std::string& bundleIdentifier);

    const std::shared_ptr<WorkQueue> _queue;
    std::shared_ptr<IpcListener> _listener;
    const std::shared_ptr<KTConnectionTable> _connections;
};

} // namespace tessel
