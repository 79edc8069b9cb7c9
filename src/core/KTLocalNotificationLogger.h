#pragma once

#include "core/KTNotificationLogger.h"

#include <tessel/Tessel.h>

namespace tessel {

using KTLocalNotificationLogger = KTNotificationLogger<KTLocalNotificationLoggingLevel>;

template <> inline std::string KTLocalNotificationLogger::name() const { return "KTLocalNotificationLog"; }

template <> inline std::string KTLocalNotificationLogger::logPreferenceName() const
{
    return KTLocalNotificationLoggingPreferenceKey;
}

} // namespace tessel
