#pragma once

#include "platform/foundation/Value.h"
#include "platform/ipc/IpcListener.h"
#include "services/ControlServerProtocol.h"

#include <memory>
#include <string>

namespace tessel {

class KTRemoteNotificationServer;

// Publishes the control service: what the daemon knows of applications,
// their section settings as the user changes them, their delivered
// notifications, and the loopback push source. Only callers whose manifest
// grants the control entitlement are served, but anyone may ask the status.
class ControlConnectionListener final : public IpcListenerDelegate,
                                        public ControlServerProtocol,
                                        public std::enable_shared_from_this<ControlConnectionListener> {
public:
    // staticStatus: what the host says of itself in every status answer.
    static std::shared_ptr<ControlConnectionListener> make(
        std::shared_ptr<KTRemoteNotificationServer> pushServer, Value::Dictionary staticStatus);
    ControlConnectionListener(std::shared_ptr<KTRemoteNotificationServer> pushServer, Value::Dictionary staticStatus);
    ~ControlConnectionListener() override;

    void invalidate();

    bool listenerShouldAcceptNewConnection(
        IpcListener& listener, const std::shared_ptr<IpcConnection>& connection) override;

    void status(Answer answer) override;
    void applications(Answer answer) override;
    void sectionSettings(const std::string& bundleIdentifier, Answer answer) override;
    void updateSectionSettings(const std::string& bundleIdentifier, const Value& changes, Answer answer) override;
    void deliveredNotifications(const std::string& bundleIdentifier, Answer answer) override;
    void clearDeliveredNotifications(const std::string& bundleIdentifier, Answer answer) override;
    void injectPushMessage(const std::string& environment, const std::string& topic, const Value& payload,
        int64_t priority, Answer answer) override;
    void requestPushToken(const std::string& bundleIdentifier, const std::string& environment, Answer answer) override;

private:
    // A refusal is logged and drops the request.
    static bool _isAllowed(const char* operation);
    // False, with the answer given, for an identifier no installed application has.
    static bool _isInstalled(const std::string& bundleIdentifier, const Answer& answer);

    const std::shared_ptr<KTRemoteNotificationServer> _pushServer;
    const Value::Dictionary _staticStatus;
    std::shared_ptr<IpcListener> _listener;
};

} // namespace tessel
