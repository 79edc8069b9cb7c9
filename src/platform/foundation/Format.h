#pragma once

#include "platform/foundation/Value.h"

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

namespace tessel {

// One argument of format(): a C string, a text, an integer, a real or a Value.
class FormatArgument {
public:
    FormatArgument(const char* text)
        : _argument(text)
    {
    }
    FormatArgument(const std::string& text)
        : _argument(std::string_view(text))
    {
    }
    FormatArgument(std::string_view text)
        : _argument(text)
    {
    }
    template <std::signed_integral T>
    FormatArgument(T number)
        : _argument(static_cast<int64_t>(number))
    {
    }
    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>) FormatArgument(T number)
        : _argument(static_cast<uint64_t>(number))
    {
    }
    FormatArgument(bool flag)
        : _argument(static_cast<int64_t>(flag))
    {
    }
    FormatArgument(double number)
        : _argument(number)
    {
    }
    FormatArgument(const Value& value)
        : _argument(&value)
    {
    }
    FormatArgument(const Date& date)
        : _argument(date)
    {
    }

    std::string objectText() const;
    int64_t signedValue() const;
    uint64_t unsignedValue() const;
    double realValue() const;
    // Text for "%s": C strings and texts; anything else as for "%@".
    std::string cText() const;

private:
    std::variant<const char*, std::string_view, int64_t, uint64_t, double, const Value*, Date> _argument;
};

// printf-like formatting for log texts: %@ %d %i %u %x %X %o %c %ld %lu %lx %f
// %e %g %s %p %% with flags, width and precision. A missing argument formats as
// null or zero, an unknown conversion is copied as it stands.
std::string formatArguments(std::string_view format, std::initializer_list<FormatArgument> arguments);

template <typename... Arguments> std::string format(std::string_view format, const Arguments&... arguments)
{
    return formatArguments(format, { FormatArgument(arguments)... });
}

} // namespace tessel
