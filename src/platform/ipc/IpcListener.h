#pragma once

#include <memory>
#include <string>

namespace tessel {

class IpcConnection;
class IpcListener;

class IpcListenerDelegate {
public:
    virtual ~IpcListenerDelegate();
    // Configures and resumes the connection to take it; false turns it away.
    virtual bool listenerShouldAcceptNewConnection(
        IpcListener& listener, const std::shared_ptr<IpcConnection>& connection)
        = 0;
};

// Publishes a named service. A connection is offered to the delegate when a
// client first reaches the service.
class IpcListener {
public:
    virtual ~IpcListener();

    const std::string& serviceName() const { return _serviceName; }
    // Not retained.
    void setDelegate(std::weak_ptr<IpcListenerDelegate> delegate) { _delegate = std::move(delegate); }
    // Clients are accepted from here on.
    virtual void resume() = 0;
    // Stops publishing and invalidates every connection.
    virtual void invalidate() = 0;

protected:
    explicit IpcListener(std::string serviceName);
    // Asks the delegate; a listener without one accepts nobody.
    bool offerConnection(const std::shared_ptr<IpcConnection>& connection);

private:
    const std::string _serviceName;
    std::weak_ptr<IpcListenerDelegate> _delegate;
};

} // namespace tessel
