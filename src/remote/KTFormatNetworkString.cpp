#include "remote/KTFormatNetworkString.h"

#include "platform/Utf8.h"

#include <cstdlib>
#include <cstring>
#include <tessel/Tessel.h>

namespace tessel {

namespace {

    bool isDigit(char c) { return c >= '0' && c <= '9'; }

    // Strings are appended as they are, everything else by its description.
    void appendArgument(std::string& out, const std::vector<Value>& arguments, size_t index)
    {
        if (index >= arguments.size()) {
            out += KTNetworkStringNullPlaceholder;
            return;
        }
        const Value& argument = arguments[index];
        if (argument.isString())
            out += argument.stringValue();
        else if (argument.isNull())
            out += KTNetworkStringNullPlaceholder;
        else
            out += argument.description();
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
    while (at < text.size()) {
        // Copy the run up to the next "%" in one go.
        auto percent = text.find('%', at);
        if (percent == std::string_view::npos)
            percent = text.size();
        out.append(text.substr(at, percent - at));
        at = percent;
        if (at >= text.size())
            break;
        ++at;
        if (at >= text.size())
            break;
        char next = text[at];
        if (next == '@') {
            appendArgument(out, arguments, sequential++);
            ++at;
        } else if (next == '%') {
            out += '%';
            ++at;
        } else if (isDigit(next)) {
            size_t number = readNumber(text, at);
            if (at + 1 < text.size() && text[at] == '$' && text[at + 1] == '@') {
                appendArgument(out, arguments, number - 1);
                at += 2;
            }
        } else {
            ++at;
        }
    }
    if (!Utf8::isValid(out))
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
