#pragma once

#include <memory>
#include <string>

namespace tessel {

class IpcListener;

// Makes listeners on one transport (a bus for the daemon, in-process on the
// simulated device).
class IpcService {
public:
    virtual ~IpcService();
    virtual std::shared_ptr<IpcListener> makeListener(const std::string& serviceName) = 0;
};

} // namespace tessel
