#pragma once

#include "local/KTLocalNotificationClient.h"
#include "platform/applications/ApplicationWorkspace.h"
#include "platform/events/NotificationCenter.h"
#include "platform/events/SystemNotificationCenter.h"
#include "platform/processes/ProcessManager.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace tessel {

class ApplicationProxy;
class KTSNotificationSchedule;
class KTSNotificationScheduleFetchRequest;
class WorkQueue;

// The registry of local notification clients, one per installed application,
// all confined to one queue. Public operations post to that queue and return;
// completions and results are called there. An unknown application is
// ignored: results are empty or false, completions still report success.
class KTLocalNotificationService : public ApplicationWorkspaceObserver,
                                   public ProcessManagerObserver,
                                   public std::enable_shared_from_this<KTLocalNotificationService> {
public:
    using List = KTLocalNotificationClient::LocalNotificationList;
    using Completion = std::function<void()>;

    static constexpr const char* queueLabel = "com.tamber.KTLocalNotificationService";

    static std::shared_ptr<KTLocalNotificationService> sharedInstance();
    KTLocalNotificationService();
    ~KTLocalNotificationService() override;
    // Observes the platform and creates the clients on the queue; once, after
    // construction (sharedInstance does it).
    void start();

    const std::shared_ptr<WorkQueue>& queue() const { return _queue; }

    void addScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void setScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void cancelScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void snoozeLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier, Completion completion = {});
    void scheduledLocalNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, std::function<void(List)> result);
    // Blocks until the queue answers; never call it from the queue.
    List scheduledLocalNotificationsForBundleIdentifier(const std::string& bundleIdentifier);
    void scheduleForBundleIdentifier(const std::string& bundleIdentifier,
        std::shared_ptr<KTSNotificationScheduleFetchRequest> fetchRequest,
        std::function<void(std::shared_ptr<KTSNotificationSchedule>)> result);
    void bundleIdentifierAuthorizedForRegionMonitoring(
        const std::string& bundleIdentifier, std::function<void(bool)> result);
    // Blocks until the queue answers; never call it from the queue.
    bool bundleIdentifierAuthorizedForRegionMonitoring(const std::string& bundleIdentifier);
    void triggerLocationArrowForBundleIdentifier(const std::string& bundleIdentifier);

    void _queue_addScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier);
    void _queue_setScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier);
    void _queue_cancelScheduledLocalNotifications(
        const List& notifications, const std::string& bundleIdentifier);
    void _queue_snoozeLocalNotifications(const List& notifications, const std::string& bundleIdentifier);
    List _queue_scheduledLocalNotificationsForBundleIdentifier(const std::string& bundleIdentifier);
    std::shared_ptr<KTSNotificationSchedule> _queue_scheduledForBundleIdentifier(
        const std::string& bundleIdentifier, const KTSNotificationScheduleFetchRequest& fetchRequest);
    bool _queue_isBundleIdentifierAuthorizedForRegionMonitoring(const std::string& bundleIdentifier);
    void _queue_triggerLocationArrowForBundleIdentifier(const std::string& bundleIdentifier);

    std::shared_ptr<KTLocalNotificationClient> _queue_clientForBundleIdentifier(
        const std::string& bundleIdentifier);
    std::shared_ptr<KTLocalNotificationClient> _queue_addLocalNotificationClientForApplicationProxy(
        const ApplicationProxy& application);
    void _queue_removeNotificationClientForBundleIdentifier(const std::string& bundleIdentifier);
    bool _queue_isTesselEnabled(const std::string& bundleIdentifier);
    void _queue_userNotificationSettingsDidChange(const Notification& notification);

    // Observer entry points: any thread.
    void _handleSignificantTimeChange();
    void _handleLocaleChange();
    void _handleMemoryWarning();
    void _userNotificationSettingsDidChange(const Notification& notification);
    void applicationsDidInstall(const std::vector<std::shared_ptr<ApplicationProxy>>& applications) override;
    void applicationsDidUninstall(
        const std::vector<std::shared_ptr<ApplicationProxy>>& applications) override;
    void processManagerDidAddProcess(
        ProcessManager& manager, const std::shared_ptr<ApplicationProcess>& process) override;
    void processManagerDidRemoveProcess(
        ProcessManager& manager, const std::shared_ptr<ApplicationProcess>& process) override;

private:
    void _queue_start();
    using ListOperation = void (KTLocalNotificationService::*)(const List&, const std::string&);
    void postListOperation(ListOperation operation, const List& notifications,
        const std::string& bundleIdentifier, Completion completion);
    template <typename Call> void forEachClient(Call call);
    void withClient(const std::string& bundleIdentifier, std::function<void(KTLocalNotificationClient&)> work,
        Completion completion);

    const std::shared_ptr<WorkQueue> _queue;
    std::map<std::string, std::shared_ptr<KTLocalNotificationClient>> _clients;
    std::set<std::string> _userNotificationEnabledBundleIdentifiers;
    std::shared_ptr<ApplicationWorkspace> _appWorkspace;
    std::optional<SystemNotificationCenter::ObserverId> _significantTimeChangeObserver;
};

} // namespace tessel
