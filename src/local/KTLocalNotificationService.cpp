#include "local/KTLocalNotificationService.h"

#include "core/KTApplicationProxyAdditions.h"
#include "core/KTNotificationSettingsChange.h"
#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/concurrency/WorkQueue.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"
#include "settings/KTNotificationSettingsService.h"
#include "tessel/Tessel.h"

#include <mutex>

namespace tessel {

namespace {

    void _KTLocalNotificationHandleSignificantTimeChange()
    {
        KTLocalNotificationService::sharedInstance()->_handleSignificantTimeChange();
    }

} // namespace

std::shared_ptr<KTLocalNotificationService> KTLocalNotificationService::sharedInstance()
{
    static std::once_flag once;
    static std::shared_ptr<KTLocalNotificationService> shared;
    std::call_once(once, [] {
        shared = std::make_shared<KTLocalNotificationService>();
        shared->start();
    });
    return shared;
}

KTLocalNotificationService::KTLocalNotificationService()
    : _queue(WorkQueue::create(queueLabel))
    , _appWorkspace(ApplicationWorkspace::defaultWorkspace())
{
}

KTLocalNotificationService::~KTLocalNotificationService()
{
    if (!Platform::isInstalled())
        return;
    auto& platform = Platform::current();
    if (_significantTimeChangeObserver)
        platform.systemNotificationCenter->removeObserver(*_significantTimeChangeObserver);
    platform.notificationCenter->removeObserver(this);
    if (platform.processManager)
        platform.processManager->removeObserver(this);
}

void KTLocalNotificationService::start()
{
    auto& platform = Platform::current();
    auto& center = *platform.notificationCenter;
    std::weak_ptr<KTLocalNotificationService> weakSelf = weak_from_this();
    auto forward = [weakSelf](void (KTLocalNotificationService::*handler)()) {
        return [weakSelf, handler](const Notification&) {
            if (auto self = weakSelf.lock())
                ((*self).*handler)();
        };
    };
    center.addObserver(this, CurrentLocaleDidChangeNotification, nullptr,
        forward(&KTLocalNotificationService::_handleLocaleChange));
    center.addObserver(this, ApplicationDidReceiveMemoryWarningNotification, nullptr,
        forward(&KTLocalNotificationService::_handleMemoryWarning));
    if (_appWorkspace)
        _appWorkspace->addObserver(shared_from_this());
    if (platform.processManager)
        platform.processManager->addObserver(shared_from_this());
    center.addObserver(this, KTNotificationSettingsDidChangeNotification, nullptr,
        [weakSelf](const Notification& notification) {
            if (auto self = weakSelf.lock())
                self->_userNotificationSettingsDidChange(notification);
        });
    auto self = shared_from_this();
    _queue->async([self] { self->_queue_start(); });
}

void KTLocalNotificationService::_queue_start()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _significantTimeChangeObserver
        = Platform::current().systemNotificationCenter->addObserver("SignificantTimeChangeNotification",
            [](const std::string&) { _KTLocalNotificationHandleSignificantTimeChange(); });
    auto applications = _appWorkspace ? _appWorkspace->allInstalledApplications()
                                      : std::vector<std::shared_ptr<ApplicationProxy>> {};
    std::set<std::string> bundleIdentifiers;
    for (auto& application : applications)
        bundleIdentifiers.insert(application->bundleIdentifier());
    auto enabled = KTNotificationSettingsService::sharedInstance()->bundleIdentifiersWithEnabledNotifications(
        bundleIdentifiers);
    _userNotificationEnabledBundleIdentifiers.insert(enabled.begin(), enabled.end());
    for (auto& application : applications)
        _queue_addLocalNotificationClientForApplicationProxy(*application);
}

void KTLocalNotificationService::withClient(const std::string& bundleIdentifier,
    std::function<void(KTLocalNotificationClient&)> work, Completion completion)
{
    auto self = shared_from_this();
    _queue->async([self, bundleIdentifier, work = std::move(work), completion = std::move(completion)] {
        if (auto client = self->_queue_clientForBundleIdentifier(bundleIdentifier))
            work(*client);
        if (completion)
            completion();
    });
}

void KTLocalNotificationService::postListOperation(ListOperation operation, const List& notifications,
    const std::string& bundleIdentifier, Completion completion)
{
    auto self = shared_from_this();
    _queue->async([self, operation, notifications, bundleIdentifier, completion = std::move(completion)] {
        ((*self).*operation)(notifications, bundleIdentifier);
        if (completion)
            completion();
    });
}

void KTLocalNotificationService::addScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    postListOperation(&KTLocalNotificationService::_queue_addScheduledLocalNotifications, notifications,
        bundleIdentifier, std::move(completion));
}

void KTLocalNotificationService::setScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    postListOperation(&KTLocalNotificationService::_queue_setScheduledLocalNotifications, notifications,
        bundleIdentifier, std::move(completion));
}

void KTLocalNotificationService::cancelScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    postListOperation(&KTLocalNotificationService::_queue_cancelScheduledLocalNotifications, notifications,
        bundleIdentifier, std::move(completion));
}

void KTLocalNotificationService::snoozeLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    postListOperation(&KTLocalNotificationService::_queue_snoozeLocalNotifications, notifications,
        bundleIdentifier, std::move(completion));
}

void KTLocalNotificationService::scheduledLocalNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, std::function<void(List)> result)
{
    auto self = shared_from_this();
    _queue->async([self, bundleIdentifier, result = std::move(result)] {
        auto list = self->_queue_scheduledLocalNotificationsForBundleIdentifier(bundleIdentifier);
        if (result)
            result(std::move(list));
    });
}

KTLocalNotificationService::List KTLocalNotificationService::scheduledLocalNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_NOT_ON_QUEUE(*_queue);
    return _queue->sync(
        [&] { return _queue_scheduledLocalNotificationsForBundleIdentifier(bundleIdentifier); });
}

void KTLocalNotificationService::scheduleForBundleIdentifier(const std::string& bundleIdentifier,
    std::shared_ptr<KTSNotificationScheduleFetchRequest> fetchRequest,
    std::function<void(std::shared_ptr<KTSNotificationSchedule>)> result)
{
    auto self = shared_from_this();
    _queue->async([self, bundleIdentifier, fetchRequest, result = std::move(result)] {
        auto schedule = fetchRequest
            ? self->_queue_scheduledForBundleIdentifier(bundleIdentifier, *fetchRequest)
            : nullptr;
        if (result)
            result(std::move(schedule));
    });
}

void KTLocalNotificationService::bundleIdentifierAuthorizedForRegionMonitoring(
    const std::string& bundleIdentifier, std::function<void(bool)> result)
{
    auto self = shared_from_this();
    _queue->async([self, bundleIdentifier, result = std::move(result)] {
        bool authorized = self->_queue_isBundleIdentifierAuthorizedForRegionMonitoring(bundleIdentifier);
        if (result)
            result(authorized);
    });
}

bool KTLocalNotificationService::bundleIdentifierAuthorizedForRegionMonitoring(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_NOT_ON_QUEUE(*_queue);
    return _queue->sync(
        [&] { return _queue_isBundleIdentifierAuthorizedForRegionMonitoring(bundleIdentifier); });
}

void KTLocalNotificationService::triggerLocationArrowForBundleIdentifier(const std::string& bundleIdentifier)
{
    auto self = shared_from_this();
    _queue->async(
        [self, bundleIdentifier] { self->_queue_triggerLocationArrowForBundleIdentifier(bundleIdentifier); });
}

void KTLocalNotificationService::_queue_addScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (auto client = _queue_clientForBundleIdentifier(bundleIdentifier))
        client->scheduleLocalNotifications(notifications, false);
}

void KTLocalNotificationService::_queue_setScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (auto client = _queue_clientForBundleIdentifier(bundleIdentifier))
        client->scheduleLocalNotifications(notifications, true);
}

void KTLocalNotificationService::_queue_cancelScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (auto client = _queue_clientForBundleIdentifier(bundleIdentifier))
        client->cancelLocalNotifications(notifications);
}

void KTLocalNotificationService::_queue_snoozeLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (auto client = _queue_clientForBundleIdentifier(bundleIdentifier))
        client->snoozeLocalNotifications(notifications);
}

KTLocalNotificationService::List
KTLocalNotificationService::_queue_scheduledLocalNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    return client ? client->scheduledLocalNotifications() : List {};
}

std::shared_ptr<KTSNotificationSchedule> KTLocalNotificationService::_queue_scheduledForBundleIdentifier(
    const std::string& bundleIdentifier, const KTSNotificationScheduleFetchRequest& fetchRequest)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    return client ? client->scheduleForFetchRequest(fetchRequest) : nullptr;
}

bool KTLocalNotificationService::_queue_isBundleIdentifierAuthorizedForRegionMonitoring(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto client = _queue_clientForBundleIdentifier(bundleIdentifier);
    return client && client->appIsAuthorizedForRegionMonitoring();
}

void KTLocalNotificationService::_queue_triggerLocationArrowForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    if (auto client = _queue_clientForBundleIdentifier(bundleIdentifier))
        client->triggerLocationArrow();
}

std::shared_ptr<KTLocalNotificationClient> KTLocalNotificationService::_queue_clientForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto found = _clients.find(bundleIdentifier);
    return found == _clients.end() ? nullptr : found->second;
}

std::shared_ptr<KTLocalNotificationClient>
KTLocalNotificationService::_queue_addLocalNotificationClientForApplicationProxy(
    const ApplicationProxy& application)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    const auto& bundleIdentifier = application.bundleIdentifier();
    if (auto existing = _queue_clientForBundleIdentifier(bundleIdentifier))
        return existing;
    auto client = KTLocalNotificationClient::create(bundleIdentifier, kt_isSystemApplication(application),
        kt_requiresLocalNotification(application), _queue_isTesselEnabled(bundleIdentifier), _queue);
    _clients[bundleIdentifier] = client;
    return client;
}

void KTLocalNotificationService::_queue_removeNotificationClientForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto found = _clients.find(bundleIdentifier);
    if (found == _clients.end())
        return;
    found->second->handleUninstall();
    _clients.erase(found);
}

bool KTLocalNotificationService::_queue_isTesselEnabled(const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return _userNotificationEnabledBundleIdentifiers.contains(bundleIdentifier);
}

void KTLocalNotificationService::_queue_userNotificationSettingsDidChange(const Notification& notification)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    auto change = KTNotificationSettingsChange::fromUserInfo(notification.userInfo);
    if (!change)
        return;
    const auto& [bundleIdentifier, enabled] = *change;
    if (_queue_isTesselEnabled(bundleIdentifier) == enabled)
        return;
    if (enabled)
        _userNotificationEnabledBundleIdentifiers.insert(bundleIdentifier);
    else
        _userNotificationEnabledBundleIdentifiers.erase(bundleIdentifier);
    if (auto client = _queue_clientForBundleIdentifier(bundleIdentifier))
        client->setUserNotificationsEnabled(enabled);
}

template <typename Call> void KTLocalNotificationService::forEachClient(Call call)
{
    auto self = shared_from_this();
    _queue->async([self, call] {
        for (auto& [bundleIdentifier, client] : self->_clients)
            call(*client);
    });
}

void KTLocalNotificationService::_handleSignificantTimeChange()
{
    forEachClient([](KTLocalNotificationClient& client) { client.handleSignificantTimeChange(); });
}

void KTLocalNotificationService::_handleLocaleChange()
{
    forEachClient([](KTLocalNotificationClient& client) { client.handleLocaleChange(); });
}

void KTLocalNotificationService::_handleMemoryWarning()
{
    forEachClient([](KTLocalNotificationClient& client) { client.handleMemoryWarning(); });
}

void KTLocalNotificationService::_userNotificationSettingsDidChange(const Notification& notification)
{
    auto self = shared_from_this();
    Notification copy { notification.name, notification.object, notification.userInfo };
    _queue->async([self, copy] { self->_queue_userNotificationSettingsDidChange(copy); });
}

void KTLocalNotificationService::applicationsDidInstall(
    const std::vector<std::shared_ptr<ApplicationProxy>>& applications)
{
    auto self = shared_from_this();
    _queue->async([self, applications] {
        for (auto& application : applications) {
            if (application)
                self->_queue_addLocalNotificationClientForApplicationProxy(*application);
        }
    });
}

void KTLocalNotificationService::applicationsDidUninstall(
    const std::vector<std::shared_ptr<ApplicationProxy>>& applications)
{
    auto self = shared_from_this();
    _queue->async([self, applications] {
        for (auto& application : applications) {
            if (application)
                self->_queue_removeNotificationClientForBundleIdentifier(application->bundleIdentifier());
        }
    });
}

void KTLocalNotificationService::processManagerDidAddProcess(
    ProcessManager&, const std::shared_ptr<ApplicationProcess>&)
{
}

void KTLocalNotificationService::processManagerDidRemoveProcess(
    ProcessManager&, const std::shared_ptr<ApplicationProcess>& process)
{
    if (!process || process->bundleIdentifier().empty())
        return;
    withClient(process->bundleIdentifier(),
        [](KTLocalNotificationClient& client) { client.handleProcessExit(); }, {});
}

} // namespace tessel
