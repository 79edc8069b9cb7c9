#include "platform/sim/SimulatedSystemState.h"

namespace tessel {

bool SimulatedSystemState::isApplicationInstalled(const std::string& b) { return !uninstalled.contains(b); }

bool SimulatedSystemState::isApplicationRestricted(const std::string& b) { return restricted.contains(b); }

bool SimulatedSystemState::isGazetteApplication(const std::string& b) { return gazette.contains(b); }

bool SimulatedSystemState::isGazetteContentBackgroundModeSupportedForApplication(const std::string& b)
{
    return gazetteContent.contains(b);
}

bool SimulatedSystemState::isBackgroundAppRefreshSupportedForApplication(const std::string& b)
{
    return backgroundRefresh.contains(b);
}

bool SimulatedSystemState::isRemoteNotificationBackgroundModeSupportedForApplication(const std::string&)
{
    return false;
}

bool SimulatedSystemState::shouldThrottleContentNotificationForApplicatin(
    const std::string&, Date, int64_t&, int64_t&)
{
    return false;
}

void SimulatedSystemState::handleGazetteNotificationForApplication(const std::string&, const Value&) { }

void SimulatedSystemState::handleContentAvailableNotificationForApplication(
    const std::string&, const Value&, int64_t, std::function<void()>)
{
}

} // namespace tessel
