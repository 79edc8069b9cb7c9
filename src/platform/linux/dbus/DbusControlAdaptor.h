#pragma once

#include "dbus/control-adaptor.h"
#include "services/ControlServerProtocol.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessel {

class DbusIpcListener;

// The control service's methods on the bus: values travel as binary property
// lists, read on the call's connection queue and handed to the exported
// ControlServerProtocol.
class DbusControlAdaptor final : public com::tamber::Tessel::Control1_adaptor {
public:
    DbusControlAdaptor(sdbus::IObject& object, DbusIpcListener& listener);

private:
    using Bytes = std::vector<uint8_t>;
    using Server = ControlServerProtocol;

    void Status(sdbus::Result<Bytes>&& result) override;
    void Applications(sdbus::Result<Bytes>&& result) override;
    void SectionSettings(sdbus::Result<Bytes>&& result, std::string bundleIdentifier) override;
    void UpdateSectionSettings(sdbus::Result<Bytes>&& result, std::string bundleIdentifier, Bytes changes) override;
    void DeliveredNotifications(sdbus::Result<Bytes>&& result, std::string bundleIdentifier) override;
    void ClearDeliveredNotifications(sdbus::Result<>&& result, std::string bundleIdentifier) override;
    void InjectPushMessage(sdbus::Result<bool>&& result, std::string environment, std::string topic,
        Bytes payload, int64_t priority) override;
    void RequestPushToken(sdbus::Result<>&& result, std::string bundleIdentifier, std::string environment) override;

    // Calls the server with an answer that replies the value as a property list.
    void deliverValue(sdbus::Result<Bytes>& result, std::function<void(Server&, Server::Answer)> call);
    // Calls the server with an answer that replies nothing but its error.
    void deliverEmpty(sdbus::Result<>& result, std::function<void(Server&, Server::Answer)> call);

    DbusIpcListener& _listener;
};

} // namespace tessel
