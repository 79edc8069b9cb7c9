#pragma once

#include "dbus/scheduler-adaptor.h"
#include "services/KTSNotificationSchedulerServerProtocol.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessel {

class DbusIpcListener;

// The scheduler's methods on the bus: each notification travels as its own
// archive, decoded on the call's connection queue and handed to the exported
// KTSNotificationSchedulerServerProtocol.
class DbusSchedulerAdaptor final : public com::tamber::Tessel::Scheduler1_adaptor,
                                   public com::tamber::Tessel::SchedulerClient1_adaptor {
public:
    DbusSchedulerAdaptor(sdbus::IObject& object, DbusIpcListener& listener);

private:
    using Bytes = std::vector<uint8_t>;
    using Archives = std::vector<Bytes>;

    void ScheduledLocalNotifications(sdbus::Result<Archives>&& result, std::string bundleIdentifier) override;
    void Schedule(sdbus::Result<Bytes>&& result, std::string bundleIdentifier, Bytes fetchRequest) override;
    void SetScheduledLocalNotifications(
        sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier) override;
    void AddScheduledLocalNotifications(
        sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier) override;
    void CancelScheduledLocalNotifications(
        sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier) override;
    void SnoozeScheduledLocalNotifications(
        sdbus::Result<>&& result, Archives notifications, std::string bundleIdentifier) override;
    void SetObservingScheduledLocalNotifications(
        sdbus::Result<>&& result, bool observing, std::string bundleIdentifier) override;

    // The four list operations differ only in the method they call.
    using Server = KTSNotificationSchedulerServerProtocol;
    using ListOperation = void (Server::*)(const Server::List&, const std::string&, Server::Completion);
    void deliverList(sdbus::Result<>& result, Archives notifications, std::string bundleIdentifier,
        ListOperation operation);

    DbusIpcListener& _listener;
};

} // namespace tessel
