#include "core/KTRemoteNotificationLogger.h"

#include <atomic>
#include <tessel/Tessel.h>

extern "C" {
int32_t KTRemoteNotificationLoggingLevel = -1;
}

namespace tessel {

namespace {

    std::atomic<std::shared_ptr<KTRemoteNotificationLogger>>& registered()
    {
        static std::atomic<std::shared_ptr<KTRemoteNotificationLogger>> logger;
        return logger;
    }

} // namespace

KTRemoteNotificationLogger::KTRemoteNotificationLogger()
    : KTLevelLogger(KTRemoteNotificationLoggingLevel)
{
}

std::shared_ptr<KTRemoteNotificationLogger> KTRemoteNotificationLogger::registeredLogger()
{
    return registered().load();
}

void KTRemoteNotificationLogger::setRegisteredLogger(std::shared_ptr<KTRemoteNotificationLogger> logger)
{
    registered().store(std::move(logger));
}

} // namespace tessel
