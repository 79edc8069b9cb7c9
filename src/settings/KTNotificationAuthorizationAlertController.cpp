#include "settings/KTNotificationAuthorizationAlertController.h"

#include "core/KTApplicationProxyAdditions.h"
#include "core/KTFormatNetworkString.h"
#include "platform/Platform.h"
#include "platform/alerts/SystemAlert.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/Bundle.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/foundation/Format.h"
#include "platform/logging/SystemLog.h"

#include <mutex>
#include <tessel/Tessel.h>
#include <unordered_map>

namespace tessel {

namespace {

    // Completions of the alerts on screen, by alert identity; main queue only.
    std::unordered_map<const SystemAlert*,
        std::pair<std::shared_ptr<SystemAlert>, std::function<void(int64_t)>>>&
    resultCallbacks()
    {
        static std::once_flag once;
        static std::unordered_map<const SystemAlert*,
            std::pair<std::shared_ptr<SystemAlert>, std::function<void(int64_t)>>>* callbacks;
        std::call_once(once, [] { callbacks = new std::remove_pointer_t<decltype(callbacks)>(); });
        return *callbacks;
    }

    std::string hostText(const std::shared_ptr<Bundle>& host, const char* key)
    {
        return host ? host->localizedStringForKey(key, "", "Vantry") : std::string(key);
    }

} // namespace

KTNotificationAuthorizationAlertController::KTNotificationAuthorizationAlertController(
    std::shared_ptr<WorkQueue> queue)
    : _queue(std::move(queue))
{
}

bool KTNotificationAuthorizationAlertController::_queue_isAlertActiveForBundleIdentifier(
    const std::string& bundleIdentifier) const
{
    KT_ASSERT_ON_QUEUE(_queue);
    return _bundleIdentifersForActiveAlerts.contains(bundleIdentifier);
}

void KTNotificationAuthorizationAlertController::_queue_addAlertActiveForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(_queue);
    _bundleIdentifersForActiveAlerts.insert(bundleIdentifier);
}

void KTNotificationAuthorizationAlertController::_queue_removeAlertActiveForBundleIdentifier(
    const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(_queue);
    _bundleIdentifersForActiveAlerts.erase(bundleIdentifier);
}

void KTNotificationAuthorizationAlertController::_queue_addResultBlock(
    ResultBlock result, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(_queue);
    _bundleIdentifiersToResultBlocks[bundleIdentifier].push_back(std::move(result));
}

void KTNotificationAuthorizationAlertController::_queue_sendResponse(
    int64_t result, const std::string& bundleIdentifier)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto found = _bundleIdentifiersToResultBlocks.find(bundleIdentifier);
    if (found == _bundleIdentifiersToResultBlocks.end())
        return;
    auto waiting = std::move(found->second);
    _bundleIdentifiersToResultBlocks.erase(found);
    for (const auto& block : waiting)
        block(result);
}

void KTNotificationAuthorizationAlertController::requestAuthorizationForBundleIdentifier(
    const std::string& bundleIdentifier, ResultBlock result)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto application = ApplicationProxy::applicationProxyForIdentifier(bundleIdentifier);
    if (application && kt_isSystemApplication(*application)) {
        result(1);
        return;
    }
    _queue_addResultBlock(std::move(result), bundleIdentifier);
    if (_queue_isAlertActiveForBundleIdentifier(bundleIdentifier))
        return;
    _queue_addAlertActiveForBundleIdentifier(bundleIdentifier);
    std::string displayName = application ? application->localizedName() : std::string();
    std::weak_ptr<KTNotificationAuthorizationAlertController> weakSelf = weak_from_this();
    WorkQueue::main().async([weakSelf, bundleIdentifier, displayName] {
        auto self = weakSelf.lock();
        if (!self)
            return;
        self->_main_requestUserAuthorizationForBundleIdentifier(
            bundleIdentifier, displayName, [weakSelf, bundleIdentifier](int64_t answer) {
                auto controller = weakSelf.lock();
                if (!controller)
                    return;
                controller->_queue->async([controller, bundleIdentifier, answer] {
                    controller->_queue_removeAlertActiveForBundleIdentifier(bundleIdentifier);
                    controller->_queue_sendResponse(answer, bundleIdentifier);
                });
            });
    });
}

void KTNotificationAuthorizationAlertController::_main_requestUserAuthorizationForBundleIdentifier(
    const std::string& bundleIdentifier, const std::string& displayName, std::function<void(int64_t)> result)
{
    KT_ASSERT_ON_QUEUE(WorkQueue::main());
    KTShowNotificationAuthorizationAlert(bundleIdentifier, displayName, std::move(result));
}

void KTShowNotificationAuthorizationAlert(const std::string& bundleIdentifier, const std::string& displayName,
    std::function<void(int64_t)> completion)
{
    KT_ASSERT_ON_QUEUE(WorkQueue::main());
    auto& platform = Platform::current();
    auto host = platform.hostBundlePath.empty() ? nullptr : Bundle::bundleWithPath(platform.hostBundlePath);
    auto titleFormat = hostText(host, "USER_NOTIFICATION_PERMISSION_ALERT_TITLE");
    Value::Dictionary dictionary {
        { SystemAlertHeaderKey,
            KTFormatNetworkString(std::string_view(titleFormat), { Value(displayName) }).value_or("") },
        { SystemAlertMessageKey, hostText(host, "USER_NOTIFICATION_PERMISSION_ALERT_BODY") },
        { SystemAlertDefaultButtonTitleKey, hostText(host, "USER_NOTIFICATION_PERMISSION_ALERT_ALLOW") },
        { SystemAlertAlternateButtonTitleKey, hostText(host, "USER_NOTIFICATION_PERMISSION_ALERT_DENY") },
        { kKTNotificationAuthorizationAlertBundleIdentifierKey, bundleIdentifier },
    };
    std::string error;
    auto alert = platform.systemAlerts ? platform.systemAlerts->createAlert(0, SystemAlertStopLevel,
                     SystemAlertNoDefaultButtonFlag, Value(std::move(dictionary)), &error)
                                       : nullptr;
    if (!alert) {
        // Deliberately no retry: the application's request waits until the next start.
        platform.systemLog->log(LogPriority::Error,
            format("Could not show the notification permission alert for %@: %@", bundleIdentifier, error));
        return;
    }
    resultCallbacks()[alert.get()] = { alert, std::move(completion) };
    alert->setResponseHandler(KTNotificationAuthorizationAlertResponseHandler);
}

void KTNotificationAuthorizationAlertResponseHandler(SystemAlert& alert, int64_t response)
{
    KT_ASSERT_ON_QUEUE(WorkQueue::main());
    auto& callbacks = resultCallbacks();
    auto found = callbacks.find(&alert);
    if (found == callbacks.end())
        return;
    auto completion = std::move(found->second.second);
    callbacks.erase(found);
    int64_t result = response == SystemAlertDefaultResponse ? 1
        : response == SystemAlertAlternateResponse          ? 0
                                                            : -1;
    if (completion)
        completion(result);
}

} // namespace tessel

extern "C" void KTShowNotificationAuthorizationAlert(const char* bundleIdentifier, const char* displayName,
    void (*completion)(void* context, int result), void* context)
{
    std::string identifier = bundleIdentifier ? bundleIdentifier : "";
    std::string name = displayName ? displayName : "";
    auto show = [identifier, name, completion, context] {
        tessel::KTShowNotificationAuthorizationAlert(identifier, name, [completion, context](int64_t result) {
            if (completion)
                completion(context, static_cast<int>(result));
        });
    };
    // C hosts may call from any thread; the alert belongs on the main queue.
    if (tessel::WorkQueue::main().isCurrent())
        show();
    else
        tessel::WorkQueue::main().async(show);
}
