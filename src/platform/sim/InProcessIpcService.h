#pragma once

#include "platform/ipc/IpcListener.h"
#include "platform/ipc/IpcPeer.h"
#include "platform/ipc/IpcService.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace tessel {

class IpcConnection;
class InProcessIpcListener;

// Named services inside one process: tests connect as whichever peer they
// play, and listeners see that peer as the transport's word.
class InProcessIpcService : public IpcService, public std::enable_shared_from_this<InProcessIpcService> {
public:
    std::shared_ptr<IpcListener> makeListener(const std::string& serviceName) override;

    // The client's end of a new connection to a resumed listener, not yet
    // resumed; null when nothing listens or the listener turned it away.
    std::shared_ptr<IpcConnection> connect(const std::string& serviceName, const IpcPeer& client);

    void listenerDidResume(const std::shared_ptr<InProcessIpcListener>& listener);
    void listenerDidInvalidate(const InProcessIpcListener& listener);

private:
    std::mutex _mutex;
    std::map<std::string, std::weak_ptr<InProcessIpcListener>> _listeners;
};

} // namespace tessel
