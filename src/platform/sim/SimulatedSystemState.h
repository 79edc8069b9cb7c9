#pragma once

#include "core/KTSystemStateProviding.h"

#include <set>
#include <string>

namespace tessel {

// The host's answers on the simulated device: every application is installed
// and ordinary unless a set says otherwise; nothing is throttled, woken or
// downloaded. Change the sets only while the push server's queue is idle.
class SimulatedSystemState final : public KTSystemStateProviding {
public:
    std::set<std::string> uninstalled, restricted, gazette, gazetteContent, backgroundRefresh;

    bool isApplicationInstalled(const std::string& bundleIdentifier) override;
    bool isApplicationRestricted(const std::string& bundleIdentifier) override;
    bool isGazetteApplication(const std::string& bundleIdentifier) override;
    bool isGazetteContentBackgroundModeSupportedForApplication(const std::string& bundleIdentifier) override;
    bool isBackgroundAppRefreshSupportedForApplication(const std::string& bundleIdentifier) override;
    bool isRemoteNotificationBackgroundModeSupportedForApplication(
        const std::string& bundleIdentifier) override;
    bool shouldThrottleContentNotificationForApplicatin(
        const std::string& bundleIdentifier, Date onDate, int64_t& withLastCount, int64_t& onDay) override;
    void handleGazetteNotificationForApplication(
        const std::string& bundleIdentifier, const Value& userInfo) override;
    void handleContentAvailableNotificationForApplication(const std::string& bundleIdentifier,
        const Value& userInfo, int64_t priority, std::function<void()> completion) override;
};

} // namespace tessel
