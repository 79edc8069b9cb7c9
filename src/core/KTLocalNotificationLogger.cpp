#include "core/KTLocalNotificationLogger.h"

#include <atomic>
#include <tessel/Tessel.h>

extern "C" {
int32_t KTLocalNotificationLoggingLevel = -1;
}

namespace tessel {

namespace {

    std::atomic<std::shared_ptr<KTLocalNotificationLogger>>& registered()
    {
        static std::atomic<std::shared_ptr<KTLocalNotificationLogger>> logger;
        return logger;
    }

} // namespace

KTLocalNotificationLogger::KTLocalNotificationLogger()
    : KTLevelLogger(KTLocalNotificationLoggingLevel)
{
}

std::shared_ptr<KTLocalNotificationLogger> KTLocalNotificationLogger::registeredLogger()
{
    return registered().load();
}

void KTLocalNotificationLogger::setRegisteredLogger(std::shared_ptr<KTLocalNotificationLogger> logger)
{
    registered().store(std::move(logger));
}

} // namespace tessel
