#include "ipc/KTNotificationSchedulerConnectionListener.h"

#include "ipc/KTConnectionTable.h"
#include "ipc/KTCurrentCaller.h"
#include "local/KTLocalNotificationService.h"
#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/NotificationCenter.h"
#include "platform/foundation/Format.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/ipc/IpcService.h"
#include "platform/logging/SystemLog.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationSchedulerClientProtocol.h"
#include "services/KTSNotificationSchedulerService.h"

#include <mutex>
#include <tessel/Tessel.h>

namespace tessel {

namespace {

    constexpr const char* listenerName = "KTNotificationSchedulerConnectionListener";

    // The list and the bundle identifier a local client posted; anything else in
    // the list is skipped.
    std::pair<KTSNotificationSchedulerServerProtocol::List, std::string> postedList(
        const Notification& notification)
    {
        KTSNotificationSchedulerServerProtocol::List list;
        const Value& posted = notification.userInfo[KTLocalNotificationsKey];
        if (posted.isArray())
            for (const auto& item : posted.arrayValue())
                if (auto localNotification = item.objectAs<LocalNotification>())
                    list.push_back(std::move(localNotification));
        return { std::move(list), notification.userInfo[KTBundleIdentifierKey].stringValue() };
    }

    KTLocalNotificationService& localService() { return *KTLocalNotificationService::sharedInstance(); }

} // namespace

std::shared_ptr<KTNotificationSchedulerConnectionListener>
KTNotificationSchedulerConnectionListener::sharedInstance()
{
    static std::once_flag once;
    static std::shared_ptr<KTNotificationSchedulerConnectionListener> shared;
    std::call_once(once, [] { shared = init(); });
    return shared;
}

std::shared_ptr<KTNotificationSchedulerConnectionListener> KTNotificationSchedulerConnectionListener::init()
{
    auto listener = std::make_shared<KTNotificationSchedulerConnectionListener>();
    listener->start();
    return listener;
}

KTNotificationSchedulerConnectionListener::KTNotificationSchedulerConnectionListener()
    : _queue(WorkQueue::create(queueLabel))
    , _connections(std::make_shared<KTConnectionTable>(_queue))
{
}

void KTNotificationSchedulerConnectionListener::start()
{
    auto& platform = Platform::current();
    _listener = platform.ipc->makeListener(KTSNotificationSchedulerServiceName);
    _listener->setDelegate(weak_from_this());
    _listener->resume();
    std::weak_ptr<KTNotificationSchedulerConnectionListener> weakSelf = shared_from_this();
    platform.notificationCenter->addObserver(this, KTLocalNotificationsDidChangeNotification, nullptr,
        [weakSelf](const Notification& notification) {
            if (auto self = weakSelf.lock())
                self->_localNotificationsDidChange(notification);
        });
    platform.notificationCenter->addObserver(
        this, KTLocalNotificationDidFireNotification, nullptr, [weakSelf](const Notification& notification) {
            if (auto self = weakSelf.lock())
                self->_localNotificationDidFire(notification);
        });
}

KTNotificationSchedulerConnectionListener::~KTNotificationSchedulerConnectionListener()
{
    if (Platform::isInstalled())
        Platform::current().notificationCenter->removeObserver(this);
    invalidate();
}

void KTNotificationSchedulerConnectionListener::invalidate()
{
    if (_listener)
        _listener->invalidate();
}

bool KTNotificationSchedulerConnectionListener::listenerShouldAcceptNewConnection(
    IpcListener&, const std::shared_ptr<IpcConnection>& connection)
{
    connection->setRemoteObjectInterface(KTSNotificationSchedulerService::clientInterface());
    connection->setExportedInterface(KTSNotificationSchedulerService::serverInterface());
    connection->setExportedObject<KTSNotificationSchedulerServerProtocol>(shared_from_this());
    _connections->watchConnection(connection, listenerName);
    connection->resume();
    return true;
}

bool KTNotificationSchedulerConnectionListener::_isAllowedToScheduleForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    if (KTCurrentCaller::actsFor(bundleIdentifier,
            { KTSNotificationSchedulerProxyEntitlementName, KTLocalNotificationsSchedulingProxyEntitlement }))
        return true;
    return KTCurrentCaller::refuse(format("Entitlment '%@' required to schedule local notifications for %@",
        KTSNotificationSchedulerProxyEntitlementName, bundleIdentifier));
}

void KTNotificationSchedulerConnectionListener::scheduledLocalNotificationsForBundleIdentifier(
    const std::string& bundleIdentifier, ListResult result)
{
    if (_isAllowedToScheduleForBundleIdentifier(bundleIdentifier))
        localService().scheduledLocalNotificationsForBundleIdentifier(bundleIdentifier, std::move(result));
}

void KTNotificationSchedulerConnectionListener::scheduleForBundleIdentifier(
    const std::string& bundleIdentifier, std::shared_ptr<KTSNotificationScheduleFetchRequest> fetchRequest,
    ScheduleResult result)
{
    if (_isAllowedToScheduleForBundleIdentifier(bundleIdentifier))
        localService().scheduleForBundleIdentifier(
            bundleIdentifier, std::move(fetchRequest), std::move(result));
}

void KTNotificationSchedulerConnectionListener::setScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    if (_isAllowedToScheduleForBundleIdentifier(bundleIdentifier))
        localService().setScheduledLocalNotifications(notifications, bundleIdentifier, std::move(completion));
}

void KTNotificationSchedulerConnectionListener::addScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    if (_isAllowedToScheduleForBundleIdentifier(bundleIdentifier))
        localService().addScheduledLocalNotifications(notifications, bundleIdentifier, std::move(completion));
}

void KTNotificationSchedulerConnectionListener::cancelScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    if (_isAllowedToScheduleForBundleIdentifier(bundleIdentifier))
        localService().cancelScheduledLocalNotifications(
            notifications, bundleIdentifier, std::move(completion));
}

// Both forms, with and without a completion.
void KTNotificationSchedulerConnectionListener::snoozeScheduledLocalNotifications(
    const List& notifications, const std::string& bundleIdentifier, Completion completion)
{
    if (_isAllowedToScheduleForBundleIdentifier(bundleIdentifier))
        localService().snoozeLocalNotifications(notifications, bundleIdentifier, std::move(completion));
}

void KTNotificationSchedulerConnectionListener::setObservingScheduledLocalNotifications(
    bool observing, const std::string& bundleIdentifier, Completion completion)
{
    if (!_isAllowedToScheduleForBundleIdentifier(bundleIdentifier))
        return;
    _connections->setCurrentConnectionObserving(observing, bundleIdentifier);
    if (completion)
        completion();
}

void KTNotificationSchedulerConnectionListener::_localNotificationsDidChange(const Notification& notification)
{
    _queue->async([self = shared_from_this(), posted = postedList(notification)] {
        self->_queue_localNotificationsDidChange(posted.first, posted.second);
    });
}

void KTNotificationSchedulerConnectionListener::_localNotificationDidFire(const Notification& notification)
{
    _queue->async([self = shared_from_this(), posted = postedList(notification)] {
        self->_queue_localNotificationDidFire(posted.first, posted.second);
    });
}

void KTNotificationSchedulerConnectionListener::_queue_localNotificationsDidChange(
    const List& notifications, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _connections->_queue_sendToObservers<KTSNotificationSchedulerClientProtocol>(bundleIdentifier,
        [&](auto& client) { client.didChangeScheduledLocalNotifications(notifications, bundleIdentifier); });
}

void KTNotificationSchedulerConnectionListener::_queue_localNotificationDidFire(
    const List& notifications, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(*_queue);
    _connections->_queue_sendToObservers<KTSNotificationSchedulerClientProtocol>(bundleIdentifier,
        [&](auto& client) { client.didFireLocalNotifications(notifications, bundleIdentifier); });
}

} // namespace tessel
