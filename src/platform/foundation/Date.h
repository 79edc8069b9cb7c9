#pragma once

#include <compare>
#include <iosfwd>
#include <string>

namespace tessel {

// A moment in time: seconds since 2001-01-01 00:00:00 UTC, the reference date
// of every persisted date.
class Date {
public:
    static constexpr double intervalBetween1970AndReferenceDate = 978307200.0;

    constexpr Date() = default;
    constexpr explicit Date(double secondsSinceReferenceDate)
        : _seconds(secondsSinceReferenceDate)
    {
    }

    static constexpr Date fromTimeIntervalSince1970(double seconds)
    {
        return Date(seconds - intervalBetween1970AndReferenceDate);
    }
    // Year 1 and year 4001, as far apart as any real date can be.
    static constexpr Date distantPast() { return Date(-63113904000.0); }
    static constexpr Date distantFuture() { return Date(63113904000.0); }

    constexpr double timeIntervalSinceReferenceDate() const { return _seconds; }
    constexpr double timeIntervalSince1970() const { return _seconds + intervalBetween1970AndReferenceDate; }
    constexpr double timeIntervalSinceDate(Date other) const { return _seconds - other._seconds; }
    constexpr Date addingTimeInterval(double seconds) const { return Date(_seconds + seconds); }

    constexpr auto operator<=>(const Date&) const = default;

    // "2001-01-01 00:00:00 +0000"
    std::string description() const;

private:
    double _seconds = 0;
};

// For test failure messages.
void PrintTo(const Date& date, std::ostream* stream);

} // namespace tessel
