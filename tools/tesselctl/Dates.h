#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessel::ctl {

// Dates as the records hold them, seconds since 2001-01-01 00:00:00 UTC, read
// from and written for people. A zone is an IANA name such as Europe/Berlin;
// none means the local zone.
class Dates {
public:
    // Unix time of the reference date.
    static constexpr double referenceDate = 978307200;

    static double now();

    // "YYYY-MM-DD[( |T)HH:MM[:SS[.fff]]][Z|±HH[:MM]]": with an offset a
    // moment, without one the wall-clock time in zone. Absent with the reason
    // for anything else, and for times that do not exist on the calendar.
    static std::optional<double> parse(
        std::string_view text, const std::optional<std::string>& zone = {}, std::string* error = nullptr);

    // "YYYY-MM-DD HH:MM:SS" in zone.
    static std::string readable(double date, const std::optional<std::string>& zone = {});
    // "YYYY-MM-DDTHH:MM:SS±HH:MM" in zone (with fractions of a second when
    // there are any).
    static std::string iso(double date, const std::optional<std::string>& zone = {});

    // Whether the system's zone database has this name.
    static bool isKnownZone(const std::string& zone);
};

} // namespace tessel::ctl
