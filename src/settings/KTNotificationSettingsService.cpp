#include "settings/KTNotificationSettingsService.h"

#include "bulletins/KTDefaultDataProviderFactory.h"
#include "core/KTSectionInfoAdditions.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/records/NotificationSettings.h"
#include "settings/KTNotificationAuthorizationAlertController.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <tessel/Tessel.h>

namespace tessel {

namespace {

    constexpr int64_t allowed = 1;
    // What a refused application is recorded as supporting, whatever it asked.
    constexpr uint64_t refusedTypes = NotificationSettings::TypeBadge;

    // One answer handed from the factory's queue to a blocked caller.
    template <typename T> class Answer {
    public:
        void set(T value)
        {
            std::lock_guard lock(_lock);
            _value = std::move(value);
            _ready.notify_all();
        }
        T wait()
        {
            std::unique_lock lock(_lock);
            _ready.wait(lock, [&] { return _value.has_value(); });
            return std::move(*_value);
        }

    private:
        std::mutex _lock;
        std::condition_variable _ready;
        std::optional<T> _value;
    };

} // namespace

std::shared_ptr<KTNotificationSettingsService> KTNotificationSettingsService::sharedInstance()
{
    // Never destroyed: it lives for the process, and its providers reach other
    // singletons that exit-time destruction may already have taken down.
    static std::once_flag once;
    static std::shared_ptr<KTNotificationSettingsService>* shared;
    std::call_once(once, [] {
        shared = new std::shared_ptr<KTNotificationSettingsService>(
            std::make_shared<KTNotificationSettingsService>());
    });
    return *shared;
}

KTNotificationSettingsService::KTNotificationSettingsService()
    : _queue(WorkQueue::create(queueLabel))
    , _authorizationAlertController(std::make_shared<KTNotificationAuthorizationAlertController>(_queue))
{
}

void KTNotificationSettingsService::notificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier, std::function<void(uint64_t)> result)
{
    _queue->async([bundleIdentifier, result = std::move(result)]() mutable {
        KTDefaultDataProviderFactory::sharedInstance()->notificationTypesForBundleIdentifier(
            bundleIdentifier, std::move(result));
    });
}

void KTNotificationSettingsService::notificationSettingsForBundleIdentifier(
    const std::string& bundleIdentifier, SettingsResult result)
{
    _queue->async([bundleIdentifier, result = std::move(result)]() mutable {
        KTDefaultDataProviderFactory::sharedInstance()->notificationSettingsForBundleIdentifier(
            bundleIdentifier, std::move(result));
    });
}

void KTNotificationSettingsService::bundleIdentifiersWithEnabledNotifications(
    const std::set<std::string>& bundleIdentifiers, std::function<void(std::set<std::string>)> result)
{
    _queue->async([bundleIdentifiers, result = std::move(result)]() mutable {
        KTDefaultDataProviderFactory::sharedInstance()->bundleIdentifiersWithEnabledNotifications(
            bundleIdentifiers, std::move(result));
    });
}

void KTNotificationSettingsService::_queue_withAuthorizationForBundleIdentifier(
    const std::string& bundleIdentifier, std::function<void(bool, int64_t)> next)
{
    KT_ASSERT_ON_QUEUE(_queue);
    KTDefaultDataProviderFactory::sharedInstance()->isBundleIdentifierRegistered(
        bundleIdentifier, [self = shared_from_this(), bundleIdentifier, next](bool registered) {
            self->_queue->async([self, bundleIdentifier, next, registered] {
                if (registered) {
                    next(true, allowed);
                    return;
                }
                self->_authorizationAlertController->requestAuthorizationForBundleIdentifier(
                    bundleIdentifier, [next](int64_t answer) { next(false, answer); });
            });
        });
}

void KTNotificationSettingsService::registerNotificationSettings(
    std::shared_ptr<NotificationSettings> settings, const std::string& bundleIdentifier,
    SettingsResult result)
{
    _queue->async([self = shared_from_this(), settings, bundleIdentifier, result] {
        self->_queue_withAuthorizationForBundleIdentifier(
            bundleIdentifier, [settings, bundleIdentifier, result](bool registered, int64_t answer) {
                auto factory = KTDefaultDataProviderFactory::sharedInstance();
                if (!registered && answer == allowed)
                    factory->enableNotificationsWithSettings(settings, bundleIdentifier, result);
                else
                    factory->updateNotificationSettings(settings, bundleIdentifier, result);
            });
    });
}

void KTNotificationSettingsService::registerNotificationTypes(
    uint64_t types, const std::string& bundleIdentifier)
{
    _queue->async([self = shared_from_this(), types, bundleIdentifier] {
        self->_queue_withAuthorizationForBundleIdentifier(
            bundleIdentifier, [types, bundleIdentifier](bool registered, int64_t answer) {
                auto factory = KTDefaultDataProviderFactory::sharedInstance();
                if (registered)
                    factory->updateNotificationTypes(types, bundleIdentifier);
                else if (answer == allowed)
                    factory->enableNotificationsWithTypes(types, bundleIdentifier);
                else
                    factory->updateNotificationTypes(refusedTypes, bundleIdentifier);
            });
    });
}

void KTNotificationSettingsService::_assertMayWait() const
{
    KT_ASSERT_NOT_ON_QUEUE(_queue);
    KT_ASSERT_NOT_ON_QUEUE(KTDefaultDataProviderFactory::sharedInstance()->queue());
}

uint64_t KTNotificationSettingsService::notificationTypesForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    _assertMayWait();
    auto answer = std::make_shared<Answer<uint64_t>>();
    notificationTypesForBundleIdentifier(bundleIdentifier, [answer](uint64_t types) { answer->set(types); });
    return answer->wait();
}

std::set<std::string> KTNotificationSettingsService::bundleIdentifiersWithEnabledNotifications(
    const std::set<std::string>& bundleIdentifiers)
{
    _assertMayWait();
    auto answer = std::make_shared<Answer<std::set<std::string>>>();
    bundleIdentifiersWithEnabledNotifications(
        bundleIdentifiers, [answer](std::set<std::string> enabled) { answer->set(std::move(enabled)); });
    return answer->wait();
}

} // namespace tessel

extern "C" unsigned long KTSupportedTypesForPushSettings(unsigned long pushSettings)
{
    return pushSettings & tessel::KTSupportedTypesMask;
}

extern "C" unsigned long KTEnabledTypesForPushSettings(unsigned long pushSettings)
{
    return (pushSettings >> 3) & tessel::KTSupportedTypesMask;
}
