#include "platform/foundation/Date.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <ostream>

namespace tessel {

std::string Date::description() const
{
    double since1970 = std::floor(timeIntervalSince1970());
    if (!std::isfinite(since1970) || std::fabs(since1970) > 1e15)
        return "(invalid date)";
    time_t seconds = static_cast<time_t>(since1970);
    struct tm parts { };
    if (!gmtime_r(&seconds, &parts))
        return "(invalid date)";
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d +0000", parts.tm_year + 1900,
        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

void PrintTo(const Date& date, std::ostream* stream)
{
    *stream << date.description() << " (" << date.timeIntervalSinceReferenceDate() << ")";
}

} // namespace tessel
