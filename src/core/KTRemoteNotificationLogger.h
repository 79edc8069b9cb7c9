#pragma once

#include "core/KTNotificationLogger.h"

#include <tessel/Tessel.h>

namespace tessel {

using KTRemoteNotificationLogger = KTNotificationLogger<KTRemoteNotificationLoggingLevel>;

template <> inline std::string KTRemoteNotificationLogger::name() const { return "KTRemoteNotificationLog"; }

template <> inline std::string KTRemoteNotificationLogger::logPreferenceName() const
{
    return KTRemoteNotificationLoggingPreferenceKey;
}

} // namespace tessel
