#include "settings/KTNotificationSettingsService.h"

namespace tessel {

std::shared_ptr<KTNotificationSettingsService> KTNotificationSettingsService::sharedInstance()
{
    static auto shared = std::make_shared<KTNotificationSettingsService>();
    return shared;
}

void KTNotificationSettingsService::bundleIdentifiersWithEnabledNotifications(
    const std::set<std::string>&, std::function<void(std::set<std::string>)> result)
{
    if (result)
        result({});
}

std::set<std::string> KTNotificationSettingsService::bundleIdentifiersWithEnabledNotifications(
    const std::set<std::string>&)
{
    return {};
}

} // namespace tessel
