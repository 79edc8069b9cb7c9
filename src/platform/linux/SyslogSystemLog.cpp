#include "platform/linux/SyslogSystemLog.h"

#include <string>
#include <syslog.h>

namespace tessel {

namespace {

    int syslogPriority(LogPriority priority)
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

} // namespace

SyslogSystemLog::SyslogSystemLog()
{
    // The ident is kept by pointer, so it has to be a literal.
    openlog("tessel", LOG_PID | LOG_NDELAY, LOG_DAEMON);
}

void SyslogSystemLog::log(LogPriority priority, std::string_view message)
{
    // Messages may carry "%" and need not be terminated.
    std::string text(message);
    syslog(LOG_DAEMON | syslogPriority(priority), "%s", text.c_str());
}

} // namespace tessel
