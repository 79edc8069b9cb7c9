#include "platform/foundation/Format.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace tessel {

namespace {

    bool isFlag(char c) { return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '\''; }
    bool isDigit(char c) { return c >= '0' && c <= '9'; }
    bool isLengthModifier(char c)
    {
        return c == 'h' || c == 'l' || c == 'q' || c == 'z' || c == 'j' || c == 't' || c == 'L';
    }

    // One conversion, as parsed from the format.
    struct Directive {
        std::string flags;
        std::string width;
        std::string precision; // with its leading '.', or empty
        std::string length;
        char conversion = 0;

        // Without a length modifier integers are of C's int size.
        bool isWide() const { return !length.empty() && length != "h" && length != "hh"; }

        std::string printfFormat(const char* length, char conversion) const
        {
            return "%" + flags + width + precision + length + conversion;
        }
    };

    const FormatArgument* argumentAt(std::initializer_list<FormatArgument> arguments, size_t index)
    {
        return index < arguments.size() ? arguments.begin() + index : nullptr;
    }

    template <typename T> void appendPrintf(std::string& out, const std::string& format, T value)
    {
        char small[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        int needed = std::snprintf(small, sizeof small, format.c_str(), value);
        if (needed < 0)
            return;
        if (static_cast<size_t>(needed) < sizeof small) {
            out.append(small, static_cast<size_t>(needed));
            return;
        }
        std::string large(static_cast<size_t>(needed) + 1, '\0');
        std::snprintf(large.data(), large.size(), format.c_str(), value);
#pragma GCC diagnostic pop
        out.append(large.data(), static_cast<size_t>(needed));
    }

    void appendText(std::string& out, const Directive& directive, const std::string& text)
    {
        if (directive.flags.empty() && directive.width.empty() && directive.precision.empty()) {
            out += text;
            return;
        }
        appendPrintf(out, directive.printfFormat("", 's'), text.c_str());
    }

    void appendConversion(std::string& out, const Directive& directive, const FormatArgument* argument)
    {
        static const FormatArgument missing(static_cast<const char*>(nullptr));
        const FormatArgument& value = argument ? *argument : missing;
        switch (directive.conversion) {
        case '@':
            appendText(out, directive, value.objectText());
            break;
        case 's':
            appendText(out, directive, value.cText());
            break;
        case 'd':
        case 'i':
            if (directive.isWide())
                appendPrintf(out, directive.printfFormat("ll", directive.conversion),
                    static_cast<long long>(value.signedValue()));
            else
                appendPrintf(out, directive.printfFormat("", directive.conversion),
                    static_cast<int>(value.signedValue()));
            break;
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            if (directive.isWide())
                appendPrintf(out, directive.printfFormat("ll", directive.conversion),
                    static_cast<unsigned long long>(value.unsignedValue()));
            else
                appendPrintf(out, directive.printfFormat("", directive.conversion),
                    static_cast<unsigned>(value.unsignedValue()));
            break;
        case 'c':
            appendPrintf(out, directive.printfFormat("", 'c'),
                static_cast<int>(static_cast<unsigned char>(value.signedValue())));
            break;
        case 'p':
            appendPrintf(out, std::string("%#llx"), static_cast<unsigned long long>(value.unsignedValue()));
            break;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            appendPrintf(out, directive.printfFormat("", directive.conversion), value.realValue());
            break;
        default:
            break;
        }
    }

    // Widths and precisions beyond the cap are clamped so a hostile format cannot
    // ask for huge output.
    std::string cappedNumber(std::string_view format, size_t& i, int cap)
    {
        size_t start = i;
        int value = 0;
        while (i < format.size() && isDigit(format[i])) {
            value = std::min(cap, value * 10 + (format[i] - '0'));
            ++i;
        }
        return i == start ? std::string() : std::to_string(value);
    }

    bool isConversion(char c) { return std::strchr("@sdiuxXocpfFeEgGaA", c) != nullptr; }

} // namespace

std::string FormatArgument::objectText() const
{
    if (auto text = std::get_if<const char*>(&_argument))
        return *text ? *text : "(null)";
    if (auto text = std::get_if<std::string_view>(&_argument))
        return std::string(*text);
    if (auto number = std::get_if<int64_t>(&_argument))
        return std::to_string(*number);
    if (auto number = std::get_if<uint64_t>(&_argument))
        return std::to_string(*number);
    if (auto number = std::get_if<double>(&_argument))
        return Value(*number).description();
    if (auto date = std::get_if<Date>(&_argument))
        return date->description();
    return std::get<const Value*>(_argument)->description();
}

std::string FormatArgument::cText() const { return objectText(); }

int64_t FormatArgument::signedValue() const
{
    if (auto number = std::get_if<int64_t>(&_argument))
        return *number;
    if (auto number = std::get_if<uint64_t>(&_argument))
        return static_cast<int64_t>(*number);
    if (auto number = std::get_if<double>(&_argument))
        return Value(*number).integerValue();
    if (auto value = std::get_if<const Value*>(&_argument))
        return (*value)->integerValue();
    if (auto date = std::get_if<Date>(&_argument))
        return Value(date->timeIntervalSinceReferenceDate()).integerValue();
    return 0;
}

uint64_t FormatArgument::unsignedValue() const { return static_cast<uint64_t>(signedValue()); }

double FormatArgument::realValue() const
{
    if (auto number = std::get_if<int64_t>(&_argument))
        return static_cast<double>(*number);
    if (auto number = std::get_if<uint64_t>(&_argument))
        return static_cast<double>(*number);
    if (auto number = std::get_if<double>(&_argument))
        return *number;
    if (auto value = std::get_if<const Value*>(&_argument))
        return (*value)->doubleValue();
    if (auto date = std::get_if<Date>(&_argument))
        return date->timeIntervalSinceReferenceDate();
    return 0;
}

std::string formatArguments(std::string_view format, std::initializer_list<FormatArgument> arguments)
{
    std::string out;
    out.reserve(format.size() + 16 * arguments.size());
    size_t next = 0;
    size_t i = 0;
    while (i < format.size()) {
        char c = format[i];
        if (c != '%') {
            out += c;
            ++i;
            continue;
        }
        size_t start = i++;
        if (i < format.size() && format[i] == '%') {
            out += '%';
            ++i;
            continue;
        }
        Directive directive;
        while (i < format.size() && isFlag(format[i]))
            directive.flags += format[i++];
        directive.width = cappedNumber(format, i, 9999);
        if (i < format.size() && format[i] == '.') {
            ++i;
            directive.precision = "." + cappedNumber(format, i, 999);
        }
        while (i < format.size() && isLengthModifier(format[i]) && directive.length.size() < 2)
            directive.length += format[i++];
        if (i >= format.size() || !isConversion(format[i])) {
            // Not a conversion we know: keep the text as written.
            out.append(format.substr(start, i - start));
            continue;
        }
        directive.conversion = format[i++];
        appendConversion(out, directive, argumentAt(arguments, next++));
    }
    return out;
}

} // namespace tessel
