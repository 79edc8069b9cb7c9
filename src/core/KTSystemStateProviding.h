#pragma once

#include "platform/foundation/Date.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <functional>
#include <string>
#include <tessel/TesselExport.h>

namespace tessel {

// The host's answers about applications, asked by the push server on its queue.
class TESSEL_EXPORT KTSystemStateProviding {
public:
    virtual ~KTSystemStateProviding() = default;

    virtual bool isApplicationInstalled(const std::string& bundleIdentifier) = 0;
    virtual bool isApplicationRestricted(const std::string& bundleIdentifier) = 0;
    virtual bool isGazetteApplication(const std::string& bundleIdentifier) = 0;
    virtual bool isGazetteContentBackgroundModeSupportedForApplication(const std::string& bundleIdentifier)
        = 0;
    virtual bool isBackgroundAppRefreshSupportedForApplication(const std::string& bundleIdentifier) = 0;

    virtual bool isRemoteNotificationBackgroundModeSupportedForApplication(
        const std::string& bundleIdentifier)
        = 0;
    // The host owns the daily rule and updates the count and day that the server keeps.
    virtual bool shouldThrottleContentNotificationForApplicatin(
        const std::string& bundleIdentifier, Date onDate, int64_t& withLastCount, int64_t& onDay)
        = 0;
    virtual void handleGazetteNotificationForApplication(
        const std::string& bundleIdentifier, const Value& userInfo)
        = 0;
    // The host runs completion when the application's background work ends.
    virtual void handleContentAvailableNotificationForApplication(const std::string& bundleIdentifier,
        const Value& userInfo, int64_t priority, std::function<void()> completion)
        = 0;
};

} // namespace tessel
