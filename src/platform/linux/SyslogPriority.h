#pragma once

#include "platform/logging/SystemLog.h"

#include <syslog.h>

namespace tessel {

// The syslog level of a priority, which the journal shares.
inline int syslogPriority(LogPriority priority)
{
    switch (priority) {
    case LogPriority::Error:
        return LOG_ERR;
    case LogPriority::Warning:
        return LOG_WARNING;
    case LogPriority::Notice:
        return LOG_NOTICE;
    case LogPriority::Info:
        return LOG_INFO;
    case LogPriority::Debug:
        return LOG_DEBUG;
    }
    return LOG_NOTICE;
}

} // namespace tessel
