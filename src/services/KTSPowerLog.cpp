#include "services/KTSPowerLog.h"

#include <mutex>

namespace tessel {

namespace {

    struct Handlers {
        std::mutex mutex;
        KTSLocalNotificationFiredPowerHandler localNotificationFired;
        KTSRemoteNotificationReceivedPowerHandler remoteNotificationReceived;
    };

    Handlers& handlers()
    {
        static Handlers instance;
        return instance;
    }

} // namespace

void KTSSetLocalNotificationFiredPowerHandler(KTSLocalNotificationFiredPowerHandler handler)
{
    std::lock_guard lock(handlers().mutex);
    handlers().localNotificationFired = std::move(handler);
}

void KTSSetRemoteNotificationReceivedPowerHandler(KTSRemoteNotificationReceivedPowerHandler handler)
{
    std::lock_guard lock(handlers().mutex);
    handlers().remoteNotificationReceived = std::move(handler);
}

// Handlers run outside the lock so that one may replace itself.
void _KTPostLocalNotificationFiredPowerNotification(int32_t pid, const std::string& bundleIdentifier)
{
    KTSLocalNotificationFiredPowerHandler handler;
    {
        std::lock_guard lock(handlers().mutex);
        handler = handlers().localNotificationFired;
    }
    if (handler)
        handler(pid, bundleIdentifier);
}

void _KTPostRemoteNotificationRecievedPowerNotification(int32_t pid, const std::string& bundleIdentifier)
{
    KTSRemoteNotificationReceivedPowerHandler handler;
    {
        std::lock_guard lock(handlers().mutex);
        handler = handlers().remoteNotificationReceived;
    }
    if (handler)
        handler(pid, bundleIdentifier);
}

} // namespace tessel
