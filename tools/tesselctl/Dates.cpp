#include "tesselctl/Dates.h"

#include <chrono>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/stat.h>

namespace tessel::ctl {

namespace {

    // Switches the process's zone for as long as it lives: the C library
    // converts wall-clock times only in the zone of TZ. Commands read and
    // write dates on one thread.
    class ZoneScope {
    public:
        explicit ZoneScope(const std::optional<std::string>& zone)
            : _active(zone.has_value())
        {
            if (!_active)
                return;
            if (const char* previous = std::getenv("TZ"))
                _previous = previous;
            setenv("TZ", zone->c_str(), 1);
            tzset();
        }
        ~ZoneScope()
        {
            if (!_active)
                return;
            if (_previous)
                setenv("TZ", _previous->c_str(), 1);
            else
                unsetenv("TZ");
            tzset();
        }
        ZoneScope(const ZoneScope&) = delete;
        ZoneScope& operator=(const ZoneScope&) = delete;

    private:
        bool _active;
        std::optional<std::string> _previous;
    };

    class Reader {
    public:
        explicit Reader(std::string_view text)
            : _text(text)
        {
        }
        bool atEnd() const { return _at == _text.size(); }
        bool take(char c)
        {
            if (atEnd() || _text[_at] != c)
                return false;
            ++_at;
            return true;
        }
        bool digits(size_t count, int& value)
        {
            if (_text.size() - _at < count)
                return false;
            value = 0;
            for (size_t i = 0; i < count; ++i) {
                char c = _text[_at + i];
                if (c < '0' || c > '9')
                    return false;
                value = value * 10 + (c - '0');
            }
            _at += count;
            return true;
        }
        // Digits after a decimal point, as a fraction.
        bool fraction(double& value)
        {
            size_t start = _at;
            double scale = 0.1;
            value = 0;
            while (!atEnd() && _text[_at] >= '0' && _text[_at] <= '9' && _at - start < 9) {
                value += (_text[_at++] - '0') * scale;
                scale /= 10;
            }
            return _at > start;
        }

    private:
        std::string_view _text;
        size_t _at = 0;
    };

    struct Fields {
        int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
        double fraction = 0;
        std::optional<int> offsetSeconds;
    };

    bool isLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

    int daysInMonth(int year, int month)
    {
        static constexpr int days[] = { 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31 };
        return month == 2 && isLeap(year) ? 29 : days[month - 1];
    }

    bool readOffset(Reader& reader, Fields& fields)
    {
        if (reader.take('Z')) {
            fields.offsetSeconds = 0;
            return true;
        }
        int sign = reader.take('+') ? 1 : reader.take('-') ? -1 : 0;
        if (!sign)
            return true;
        int hours = 0, minutes = 0;
        if (!reader.digits(2, hours))
            return false;
        if (reader.take(':') ? !reader.digits(2, minutes) : !reader.atEnd() && !reader.digits(2, minutes))
            return false;
        if (hours > 23 || minutes > 59)
            return false;
        fields.offsetSeconds = sign * (hours * 3600 + minutes * 60);
        return true;
    }

    std::optional<Fields> readFields(std::string_view text)
    {
        Reader reader(text);
        Fields fields;
        if (!reader.digits(4, fields.year) || !reader.take('-') || !reader.digits(2, fields.month)
            || !reader.take('-') || !reader.digits(2, fields.day))
            return std::nullopt;
        if (reader.take('T') || reader.take(' ')) {
            if (!reader.digits(2, fields.hour) || !reader.take(':') || !reader.digits(2, fields.minute))
                return std::nullopt;
            if (reader.take(':')) {
                if (!reader.digits(2, fields.second))
                    return std::nullopt;
                if (reader.take('.') && !reader.fraction(fields.fraction))
                    return std::nullopt;
            }
            if (!readOffset(reader, fields))
                return std::nullopt;
        }
        if (!reader.atEnd())
            return std::nullopt;
        return fields;
    }

    const char* invalidField(const Fields& fields)
    {
        if (fields.year < 1900 || fields.month < 1 || fields.month > 12)
            return "the year must be from 1900 and the month from 01 to 12";
        if (fields.day < 1 || fields.day > daysInMonth(fields.year, fields.month))
            return "that month has no such day";
        if (fields.hour > 23 || fields.minute > 59 || fields.second > 59)
            return "the time must be from 00:00:00 to 23:59:59";
        return nullptr;
    }

    std::tm calendarTime(const Fields& fields)
    {
        std::tm time {};
        time.tm_year = fields.year - 1900;
        time.tm_mon = fields.month - 1;
        time.tm_mday = fields.day;
        time.tm_hour = fields.hour;
        time.tm_min = fields.minute;
        time.tm_sec = fields.second;
        time.tm_isdst = -1;
        return time;
    }

    void fail(std::string* error, std::string reason)
    {
        if (error)
            *error = std::move(reason);
    }

    // The calendar fields of date in the current zone, and its offset.
    std::tm broken(double date)
    {
        auto seconds = static_cast<time_t>(std::floor(date + Dates::referenceDate));
        std::tm time {};
        localtime_r(&seconds, &time);
        return time;
    }

} // namespace

double Dates::now()
{
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count() - referenceDate;
}

std::optional<double> Dates::parse(std::string_view text, const std::optional<std::string>& zone, std::string* error)
{
    auto fields = readFields(text);
    if (!fields) {
        fail(error,
            "\"" + std::string(text) + "\" is not a date such as 2030-01-31 09:30, 2030-01-31T09:30:00+01:00");
        return std::nullopt;
    }
    if (const char* problem = invalidField(*fields)) {
        fail(error, "\"" + std::string(text) + "\": " + problem);
        return std::nullopt;
    }
    std::tm time = calendarTime(*fields);
    time_t moment;
    if (fields->offsetSeconds) {
        moment = timegm(&time) - *fields->offsetSeconds;
    } else {
        ZoneScope scope(zone);
        moment = mktime(&time);
    }
    return static_cast<double>(moment) - referenceDate + fields->fraction;
}

std::string Dates::readable(double date, const std::optional<std::string>& zone)
{
    ZoneScope scope(zone);
    std::tm time = broken(date);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.tm_year + 1900, time.tm_mon + 1,
        time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
    return text;
}

std::string Dates::iso(double date, const std::optional<std::string>& zone)
{
    ZoneScope scope(zone);
    std::tm time = broken(date);
    char text[96];
    int written = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", time.tm_year + 1900,
        time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
    long micros = std::lround((date - std::floor(date)) * 1e6);
    if (micros > 0 && micros < 1000000) {
        written += std::snprintf(text + written, sizeof text - written, ".%06ld", micros);
        while (text[written - 1] == '0')
            text[--written] = '\0';
    }
    long offset = time.tm_gmtoff;
    char sign = offset < 0 ? '-' : '+';
    offset = std::labs(offset);
    std::snprintf(text + written, sizeof text - written, "%c%02ld:%02ld", sign, offset / 3600, offset % 3600 / 60);
    return text;
}

bool Dates::isKnownZone(const std::string& zone)
{
    if (zone.empty() || zone.size() > 255 || zone[0] == '/' || zone.find("..") != std::string::npos)
        return false;
    for (char c : zone)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '/' || c == '_' || c == '-' || c == '+'))
            return false;
    const char* directory = std::getenv("TZDIR");
    std::string path = std::string(directory && *directory ? directory : "/usr/share/zoneinfo") + "/" + zone;
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace tessel::ctl
