#pragma once

#include <cstdint>

namespace tessel {

// How often a local notification repeats. The values are persisted in archives
// and must never be renumbered.
enum class CalendarUnit : int32_t {
    None = 0,
    Second = 1,
    Minute = 2,
    Hour = 3,
    Day = 4,
    Week = 5,
    Month = 6,
    Quarter = 7,
    Year = 8,
};

constexpr bool isValidCalendarUnit(int64_t value) { return value >= 0 && value <= 8; }

} // namespace tessel
