#include "core/KTLogging.h"

#include "core/KTLocalNotificationLogger.h"
#include "core/KTRemoteNotificationLogger.h"

#include <atomic>
#include <tessel/Tessel.h>

extern "C" {
int32_t KTRemoteNotificationLoggingLevel = tessel::KTLevelLogger::levelOff;
int32_t KTLocalNotificationLoggingLevel = tessel::KTLevelLogger::levelOff;
}

namespace tessel {

namespace {

    bool atLeastOn(int32_t& level)
    {
        return std::atomic_ref<int32_t>(level).load(std::memory_order_relaxed) >= KTLevelLogger::levelOn;
    }

} // namespace

bool ktRemoteLoggingEnabled() { return atLeastOn(KTRemoteNotificationLoggingLevel); }

bool ktLocalLoggingEnabled() { return atLeastOn(KTLocalNotificationLoggingLevel); }

void ktRemoteLog(const std::string& text)
{
    if (auto logger = KTRemoteNotificationLogger::registeredLogger())
        logger->log(text);
}

void ktLocalLog(std::string_view bundleIdentifier, const std::string& text)
{
    if (auto logger = KTLocalNotificationLogger::registeredLogger())
        logger->log(format("[%@] ", bundleIdentifier) + text);
}

void ktLocalLogLine(const std::string& text)
{
    if (auto logger = KTLocalNotificationLogger::registeredLogger())
        logger->log(text);
}

} // namespace tessel
