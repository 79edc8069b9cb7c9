#include "services/KTSPowerLog.h"

#include <mutex>

namespace tessel {

namespace {

    struct Handlers {
        std::mutex mutex;
        KTSLocalNotificationFiredPowerHandler localNotificationFired;
        KTSPushWakePowerHandler pushWake;
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

void KTSSetPushWakePowerHandler(KTSPushWakePowerHandler handler)
{
    std::lock_guard lock(handlers().mutex);
    handlers().pushWake = std::move(handler);
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

void _KTPostPushWakePowerNotification(
    int32_t pid, const std::string& bundleIdentifier, const std::string& topic)
{
    KTSPushWakePowerHandler handler;
    {
        std::lock_guard lock(handlers().mutex);
        handler = handlers().pushWake;
    }
    if (handler)
        handler(pid, bundleIdentifier, topic);
}

} // namespace tessel
