#include "platform/linux/SyslogSystemLog.h"

#include "platform/linux/SyslogPriority.h"

#include <string>
#include <syslog.h>

namespace tessel {

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
