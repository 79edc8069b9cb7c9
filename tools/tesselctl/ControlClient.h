#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace sdbus {
class IConnection;
}

namespace tessel::ctl {

// The daemon's control service, called synchronously within the timeout;
// every failure is a CommandError with its exit code. Answers are the
// service's binary property lists as they came.
class ControlClient {
public:
    using Bytes = std::vector<uint8_t>;

    // Connects to the bus; exit 3 when it cannot be reached.
    ControlClient(const std::string& busAddress, std::chrono::milliseconds timeout);
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    // Asks the bus, so that asking never starts the daemon.
    bool isDaemonRunning();

    Bytes status();
    Bytes applications();
    Bytes sectionSettings(const std::string& bundleIdentifier);
    Bytes updateSectionSettings(const std::string& bundleIdentifier, const Bytes& changes);
    Bytes deliveredNotifications(const std::string& bundleIdentifier);
    void clearDeliveredNotifications(const std::string& bundleIdentifier);
    bool injectPushMessage(const std::string& environment, const std::string& topic, const Bytes& payload,
        int64_t priority);
    void requestPushToken(const std::string& bundleIdentifier, const std::string& environment);

private:
    class Proxy;

    template <typename Call> auto guarded(const char* operation, Call call);

    std::unique_ptr<sdbus::IConnection> _connection;
    std::unique_ptr<Proxy> _proxy;
};

} // namespace tessel::ctl
