#include "ipc/KTCurrentCaller.h"

#include "core/KTSafeBoolValue.h"
#include "platform/Platform.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/logging/SystemLog.h"

namespace tessel {

bool KTCurrentCaller::actsFor(
    const std::string& bundleIdentifier, std::initializer_list<const char*> entitlements)
{
    auto connection = IpcConnection::currentConnection();
    return (connection && connection->peer().bundleIdentifier == bundleIdentifier) || holdsAny(entitlements);
}

bool KTCurrentCaller::holdsAny(std::initializer_list<const char*> entitlements)
{
    auto connection = IpcConnection::currentConnection();
    if (!connection)
        return false;
    for (const char* entitlement : entitlements)
        if (kt_safeBoolValue(connection->valueForEntitlement(entitlement)))
            return true;
    return false;
}

bool KTCurrentCaller::refuse(const std::string& reason)
{
    Platform::log(LogPriority::Error, reason);
    IpcConnection::refuseCurrentRequest();
    return false;
}

} // namespace tessel
