#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tessel {

class SystemAlert;
class WorkQueue;

// Asks the user, at most once at a time per application, whether it may send
// notifications, and hands the one answer to every caller waiting for it:
// 1 allowed, 0 denied, -1 the alert ended without either button.
class KTNotificationAuthorizationAlertController
    : public std::enable_shared_from_this<KTNotificationAuthorizationAlertController> {
public:
    using ResultBlock = std::function<void(int64_t result)>;

    // initWithQueue: all bookkeeping happens on the owner's queue.
    explicit KTNotificationAuthorizationAlertController(std::shared_ptr<WorkQueue> queue);

    // Must be called on the controller's queue.
    void requestAuthorizationForBundleIdentifier(const std::string& bundleIdentifier, ResultBlock result);

private:
    bool _queue_isAlertActiveForBundleIdentifier(const std::string& bundleIdentifier) const;
    void _queue_addAlertActiveForBundleIdentifier(const std::string& bundleIdentifier);
    void _queue_removeAlertActiveForBundleIdentifier(const std::string& bundleIdentifier);
    void _queue_addResultBlock(ResultBlock result, const std::string& bundleIdentifier);
    void _queue_sendResponse(int64_t result, const std::string& bundleIdentifier);
    void _main_requestUserAuthorizationForBundleIdentifier(const std::string& bundleIdentifier,
        const std::string& displayName, std::function<void(int64_t)> result);

    std::shared_ptr<WorkQueue> _queue;
    std::set<std::string> _bundleIdentifersForActiveAlerts;
    std::map<std::string, std::vector<ResultBlock>> _bundleIdentifiersToResultBlocks;
};

// Shows the permission alert for an application; runs on the main queue. The
// completion gets the result, or is never called when the alert cannot be shown.
void KTShowNotificationAuthorizationAlert(const std::string& bundleIdentifier, const std::string& displayName,
    std::function<void(int64_t)> completion);

// The alert's answer: the default button allows, exactly the alternate button
// denies, anything else is -1. Main queue.
void KTNotificationAuthorizationAlertResponseHandler(SystemAlert& alert, int64_t response);

} // namespace tessel
