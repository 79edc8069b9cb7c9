#include "core/KTFormatNetworkString.h"

#include "platform/foundation/Utf8.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <tessel/Tessel.h>

namespace tessel {

namespace {

    bool isDigit(char c) { return c >= '0' && c <= '9'; }

    // Strings are appended as they are, everything else by its description. Notes
    // when the text could make the output invalid UTF-8.
    void appendArgument(std::string& out, const std::vector<Value>& arguments, size_t index, bool& needsCheck)
    {
        if (index >= arguments.size() || arguments[index].isNull()) {
            out += KTNetworkStringNullPlaceholder;
            return;
        }
        const Value& argument = arguments[index];
        std::string description;
        const std::string& text
            = argument.isString() ? argument.stringValue() : (description = argument.description());
        if (!Utf8::isValid(text))
            needsCheck = true;
        out += text;
    }

    // Written as a plain reduction so the compiler can vectorize it.
    bool isAscii(std::string_view text)
    {
        unsigned char bits = 0;
        for (char c : text)
            bits |= static_cast<unsigned char>(c);
        return bits < 0x80;
    }

    // Reads the digit run at format[at..]; saturates so a huge number is just out of range.
    size_t readNumber(std::string_view format, size_t& at)
    {
        size_t number = 0;
        while (at < format.size() && isDigit(format[at])) {
            size_t digit = static_cast<size_t>(format[at] - '0');
            number = number > (SIZE_MAX - digit) / 10 ? SIZE_MAX : number * 10 + digit;
            ++at;
        }
        return number;
    }

} // namespace

std::optional<std::string> KTFormatNetworkString(
    const std::optional<std::string_view>& format, const std::vector<Value>& arguments)
{
    if (!format)
        return std::nullopt;
    std::string_view text = *format;
    std::string out;
    out.reserve(text.size());
    size_t sequential = 0;
    size_t at = 0;
    // An ASCII format and well-formed arguments can only give well-formed
    // output; anything else is checked once at the end.
    bool needsCheck = !isAscii(text);
    while (at < text.size()) {
        size_t percent = std::min(text.find('%', at), text.size());
        out.append(text.substr(at, percent - at));
        at = percent;
        if (at >= text.size())
            break;
        ++at;
        if (at >= text.size())
            break;
        char next = text[at];
        if (next == '@') {
            appendArgument(out, arguments, sequential++, needsCheck);
            ++at;
        } else if (next == '%') {
            out += '%';
            ++at;
        } else if (isDigit(next)) {
            size_t number = readNumber(text, at);
            if (at + 1 < text.size() && text[at] == '$' && text[at + 1] == '@') {
                appendArgument(out, arguments, number - 1, needsCheck);
                at += 2;
            }
        } else {
            ++at;
        }
    }
    if (needsCheck && !Utf8::isValid(out))
        return std::nullopt;
    return out;
}

} // namespace tessel

extern "C" char* KTFormatNetworkString(const char* format, const char* const* arguments, size_t argumentCount)
{
    if (!format)
        return nullptr;
    std::vector<tessel::Value> values;
    values.reserve(arguments ? argumentCount : 0);
    for (size_t i = 0; arguments && i < argumentCount; ++i)
        values.emplace_back(arguments[i]);
    auto result = tessel::KTFormatNetworkString(std::string_view(format), values);
    return result ? strdup(result->c_str()) : nullptr;
}
