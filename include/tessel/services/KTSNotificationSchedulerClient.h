#ifndef TESSEL_SERVICES_KTSNOTIFICATIONSCHEDULERCLIENT_H
#define TESSEL_SERVICES_KTSNOTIFICATIONSCHEDULERCLIENT_H

#include <tessel/TesselExport.h>
#include <tessel/services/ClientOptions.h>
#include <tessel/services/Records.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tessel {

// The scheduler service: an application's scheduled local notifications, each
// an archived record (Records.h). Calls return at once; results come through
// the executor of the options, failures through their error handler (see
// ClientOptions). A client stops its callbacks when it is destroyed, which
// may happen inside one of them.
class TESSEL_EXPORT KTSNotificationSchedulerClient {
public:
    using List = std::vector<ArchivedRecord>;
    using Completion = std::function<void()>;
    // Every record validated.
    using ListResult = std::function<void(List notifications)>;
    using ScheduleResult = std::function<void(std::vector<ScheduleEntry> schedule)>;
    using NotificationsEvent
        = std::function<void(const List& notifications, const std::string& bundleIdentifier)>;

    struct Observer {
        NotificationsEvent didChangeScheduledLocalNotifications;
        NotificationsEvent didFireLocalNotifications;
    };

    // Connects to the bus; it never waits for the daemon.
    explicit KTSNotificationSchedulerClient(ClientOptions options = {});
    ~KTSNotificationSchedulerClient();
    KTSNotificationSchedulerClient(const KTSNotificationSchedulerClient&) = delete;
    KTSNotificationSchedulerClient& operator=(const KTSNotificationSchedulerClient&) = delete;

    // Events arrive only for bundle identifiers observed with
    // setObservingScheduledLocalNotifications, which the client registers
    // again whenever the daemon restarts.
    void setObserver(Observer observer);

    void scheduledLocalNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, ListResult result);
    void scheduleForBundleIdentifier(
        const std::string& bundleIdentifier, const ScheduleFetchRequest& request, ScheduleResult result);
    // Completions say the daemon took the request.
    void setScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void addScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void cancelScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void snoozeScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void setObservingScheduledLocalNotifications(
        bool observing, const std::string& bundleIdentifier, Completion completion = {});

private:
    class Impl;
    std::unique_ptr<Impl> _impl;
};

} // namespace tessel

#endif
