#pragma once

#include "dbus/registrar-adaptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessel {

class DbusIpcListener;

// The registrar's methods on the bus: each call's records are decoded on its
// connection's queue and handed to the exported KTSNotificationRegistrarServerProtocol.
class DbusRegistrarAdaptor final : public com::tamber::Tessel::Registrar1_adaptor,
                                   public com::tamber::Tessel::RegistrarClient1_adaptor {
public:
    DbusRegistrarAdaptor(sdbus::IObject& object, DbusIpcListener& listener);

private:
    using Bytes = std::vector<uint8_t>;

    void SetObservingRemoteNotifications(
        sdbus::Result<>&& result, bool observing, std::string bundleIdentifier) override;
    void InvalidateTokenForRemoteNotifications(
        sdbus::Result<>&& result, std::string bundleIdentifier) override;
    void RegisterNotificationSettings(
        sdbus::Result<Bytes>&& result, Bytes settings, std::string bundleIdentifier) override;
    void RegisterBadgeSetting(sdbus::Result<>&& result, std::string bundleIdentifier) override;
    void NotificationSettings(sdbus::Result<Bytes>&& result, std::string bundleIdentifier) override;
    void NotificationTypes(sdbus::Result<uint64_t>&& result, std::string bundleIdentifier) override;
    void AllowsRemoteNotifications(sdbus::Result<bool>&& result, std::string bundleIdentifier) override;
    void RemoteNotificationTypes(sdbus::Result<uint64_t>&& result, std::string bundleIdentifier) override;
    void RegisterRemoteNotificationTypes(sdbus::Result<std::string, int64_t, std::string>&& result,
        uint64_t types, std::string bundleIdentifier) override;
    void RequestTokenForRemoteNotifications(
        sdbus::Result<std::string, int64_t, std::string>&& result, std::string bundleIdentifier) override;
    void BackgroundAppRefreshBundleIdentifierMapping(sdbus::Result<Bytes>&& result) override;
    void SetAllowsBackgroundRefresh(
        sdbus::Result<>&& result, bool allowed, std::string bundleIdentifier) override;

    DbusIpcListener& _listener;
};

} // namespace tessel
