#include "platform/Date.h"

#include <cmath>
#include <ctime>

namespace tessel {

std::string Date::description() const
{
    double since1970 = std::floor(timeIntervalSince1970());
    if (!std::isfinite(since1970) || std::fabs(since1970) > 1e15)
        return "(invalid date)";
    time_t seconds = static_cast<time_t>(since1970);
    struct tm parts {};
    if (!gmtime_r(&seconds, &parts))
        return "(invalid date)";
    char text[64];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts);
    return text;
}

} // namespace tessel
