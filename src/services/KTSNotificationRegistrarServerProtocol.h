#pragma once

#include "platform/foundation/Value.h"
#include "platform/records/NotificationSettings.h"
#include "services/KTSError.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tessel {

// What the registrar service answers; the listener exports an object of it.
// A refused request is dropped: its result callback is never called.
class KTSNotificationRegistrarServerProtocol {
public:
    using SettingsResult = std::function<void(std::shared_ptr<NotificationSettings>)>;
    using TypesResult = std::function<void(uint64_t)>;
    using BoolResult = std::function<void(bool)>;
    using ErrorResult = std::function<void(std::optional<KTSError>)>;
    using MappingResult = std::function<void(Value::Dictionary)>;
    using Completion = std::function<void()>;

    virtual ~KTSNotificationRegistrarServerProtocol() = default;

    // Operations without a result take a completion that says they were taken.
    virtual void setObservingRemoteNotifications(
        bool observing, const std::string& bundleIdentifier, Completion completion)
        = 0;
    virtual void invalidateTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, Completion completion)
        = 0;
    virtual void registerNotificationSettings(std::shared_ptr<NotificationSettings> settings,
        const std::string& bundleIdentifier, SettingsResult result)
        = 0;
    virtual void registerBadgeSettingForBundleIdentifier(
        const std::string& bundleIdentifier, Completion completion)
        = 0;
    virtual void notificationSettingsForBundleIdentifier(
        const std::string& bundleIdentifier, SettingsResult result)
        = 0;
    virtual void notificationTypesForBundleIdentifier(const std::string& bundleIdentifier, TypesResult result)
        = 0;
    virtual void allowsRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, BoolResult result)
        = 0;
    virtual void remoteNotificationTypesForBundleIdentifier(
        const std::string& bundleIdentifier, TypesResult result)
        = 0;
    virtual void registerRemoteNotificationTypes(
        uint64_t types, const std::string& bundleIdentifier, ErrorResult result)
        = 0;
    virtual void requestTokenForRemoteNotificationsForBundleIdentifier(
        const std::string& bundleIdentifier, ErrorResult result)
        = 0;
    virtual void backgroundAppRefreshBundleIdentifierMappingWithResult(MappingResult result) = 0;
    virtual void setAllowsBackgroundRefresh(
        bool allowed, const std::string& bundleIdentifier, Completion completion)
        = 0;
};

} // namespace tessel
