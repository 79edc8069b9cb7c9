#include "platform/linux/JournalSystemLog.h"

#include "platform/linux/SyslogPriority.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

namespace tessel {

JournalSystemLog::JournalSystemLog(std::string identifier)
    : _identifier(std::move(identifier))
{
}

void JournalSystemLog::log(LogPriority priority, std::string_view message)
{
    std::string text(message);
    int result = sd_journal_send("MESSAGE=%s", text.c_str(), "PRIORITY=%d", syslogPriority(priority),
        "SYSLOG_IDENTIFIER=%s", _identifier.c_str(), nullptr);
    // Lost from the journal is not lost altogether.
    if (result < 0)
        std::fprintf(stderr, "%s\n", text.c_str());
}

bool JournalSystemLog::isStandardErrorJournal()
{
    // systemd sets JOURNAL_STREAM to "device:inode" of the stream it connected.
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (!stream || fstat(STDERR_FILENO, &status) != 0)
        return false;
    unsigned long long device = 0, inode = 0;
    if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2)
        return false;
    return status.st_dev == device && status.st_ino == inode;
}

} // namespace tessel
