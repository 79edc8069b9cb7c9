#pragma once

#include "core/KTSystemStateProviding.h"

#include <tessel/Tessel.h>

namespace tessel {

// A C host's callback table seen as a state provider. Missing callbacks answer
// false or do nothing (a missing completion handler runs the completion at once).
class KTSystemStateProvidingCallbacksAdapter final : public KTSystemStateProviding {
public:
    explicit KTSystemStateProvidingCallbacksAdapter(const KTSystemStateProvidingCallbacks& callbacks);

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

private:
    bool ask(bool (*question)(void*, const char*), const std::string& bundleIdentifier) const;

    const KTSystemStateProvidingCallbacks _callbacks;
};

} // namespace tessel
