#pragma once

// Interim: only the enabled-set query the local notification service needs,
// answering that no application has notifications enabled.

#include <functional>
#include <memory>
#include <set>
#include <string>

namespace tessel {

class KTNotificationSettingsService {
public:
    static std::shared_ptr<KTNotificationSettingsService> sharedInstance();
    void bundleIdentifiersWithEnabledNotifications(
        const std::set<std::string>& bundleIdentifiers, std::function<void(std::set<std::string>)> result);
    std::set<std::string> bundleIdentifiersWithEnabledNotifications(
        const std::set<std::string>& bundleIdentifiers);
};

} // namespace tessel
