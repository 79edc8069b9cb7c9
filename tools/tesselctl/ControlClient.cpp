#include "tesselctl/ControlClient.h"

#include "tesselctl/CommandError.h"

#include "services/dbus/DbusAddressProbe.h"

#include "dbus/control-proxy.h"

namespace tessel::ctl {

namespace {

    constexpr const char* serviceName = "com.tamber.Tessel.Control";
    constexpr const char* objectPath = "/com/tamber/Tessel/Control";

    CommandError failure(const sdbus::Error& error, const std::string& operation)
    {
        const std::string& name = error.getName();
        const std::string& message = error.getMessage();
        if (name == "com.tamber.Tessel.Error.NotEntitled")
            return { ExitCode::Failed, "not entitled to " + operation };
        if (name == "com.tamber.Tessel.Error.InvalidArguments")
            return { ExitCode::Failed, "invalid arguments to " + operation + (message.empty() ? "" : ": " + message) };
        if (name == "org.freedesktop.DBus.Error.ServiceUnknown" || name == "org.freedesktop.DBus.Error.NameHasNoOwner")
            return { ExitCode::NoDaemon, "the daemon is not running" };
        // sd-bus answers the calls still waiting with this when the bus goes away.
        if (name == "org.freedesktop.DBus.Error.NoReply" && message == "Connection terminated")
            return { ExitCode::NoDaemon, "lost the bus" };
        if (name == "org.freedesktop.DBus.Error.NoReply" || name == "org.freedesktop.DBus.Error.Timeout"
            || name == "org.freedesktop.DBus.Error.TimedOut")
            return { ExitCode::Timeout, "no answer in time to " + operation };
        if (name == "org.freedesktop.DBus.Error.Disconnected" || name == "org.freedesktop.DBus.Error.NoServer")
            return { ExitCode::NoDaemon, "lost the bus" };
        return { ExitCode::Failed, operation + " failed: " + name + ": " + message };
    }

} // namespace

class ControlClient::Proxy : public sdbus::ProxyInterfaces<com::tamber::Tessel::Control1_proxy> {
public:
    explicit Proxy(sdbus::IConnection& connection)
        : ProxyInterfaces(connection, serviceName, objectPath)
    {
        registerProxy();
    }
    ~Proxy() { unregisterProxy(); }
};

ControlClient::ControlClient(const std::string& busAddress, std::chrono::milliseconds timeout)
{
    if (auto reason = dbusAddressUnreachable(busAddress))
        throw CommandError(ExitCode::NoDaemon, *reason);
    try {
        _connection = sdbus::createSessionBusConnectionWithAddress(busAddress);
        _connection->setMethodCallTimeout(timeout);
        _proxy = std::make_unique<Proxy>(*_connection);
    } catch (const sdbus::Error& error) {
        throw CommandError(ExitCode::NoDaemon, "cannot reach the bus at " + busAddress + ": " + error.getMessage());
    }
}

ControlClient::~ControlClient() = default;

template <typename Call> auto ControlClient::guarded(const char* operation, Call call)
{
    try {
        return call(*_proxy);
    } catch (const sdbus::Error& error) {
        throw failure(error, operation);
    }
}

bool ControlClient::isDaemonRunning()
{
    try {
        auto bus = sdbus::createProxy(*_connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
        bool running = false;
        bus->callMethod("NameHasOwner").onInterface("org.freedesktop.DBus").withArguments(std::string(serviceName)).storeResultsTo(running);
        return running;
    } catch (const sdbus::Error& error) {
        throw failure(error, "ask the bus for the daemon");
    }
}

ControlClient::Bytes ControlClient::status()
{
    return guarded("Status", [](Proxy& proxy) { return proxy.Status(); });
}

ControlClient::Bytes ControlClient::applications()
{
    return guarded("Applications", [](Proxy& proxy) { return proxy.Applications(); });
}

ControlClient::Bytes ControlClient::sectionSettings(const std::string& bundleIdentifier)
{
    return guarded("SectionSettings", [&](Proxy& proxy) { return proxy.SectionSettings(bundleIdentifier); });
}

ControlClient::Bytes ControlClient::updateSectionSettings(const std::string& bundleIdentifier, const Bytes& changes)
{
    return guarded("UpdateSectionSettings",
        [&](Proxy& proxy) { return proxy.UpdateSectionSettings(bundleIdentifier, changes); });
}

ControlClient::Bytes ControlClient::deliveredNotifications(const std::string& bundleIdentifier)
{
    return guarded(
        "DeliveredNotifications", [&](Proxy& proxy) { return proxy.DeliveredNotifications(bundleIdentifier); });
}

void ControlClient::clearDeliveredNotifications(const std::string& bundleIdentifier)
{
    guarded("ClearDeliveredNotifications",
        [&](Proxy& proxy) { proxy.ClearDeliveredNotifications(bundleIdentifier); });
}

bool ControlClient::injectPushMessage(
    const std::string& environment, const std::string& topic, const Bytes& payload, int64_t priority)
{
    return guarded("InjectPushMessage",
        [&](Proxy& proxy) { return proxy.InjectPushMessage(environment, topic, payload, priority); });
}

void ControlClient::requestPushToken(const std::string& bundleIdentifier, const std::string& environment)
{
    guarded("RequestPushToken", [&](Proxy& proxy) { proxy.RequestPushToken(bundleIdentifier, environment); });
}

} // namespace tessel::ctl
