// Network-string formatting against a plain byte-by-byte model of its rules.
#include "core/KTFormatNetworkString.h"
#include "platform/foundation/Utf8.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::string argumentText(const std::vector<std::string>& arguments, size_t index)
{
    return index < arguments.size() ? arguments[index] : std::string(tessel::KTNetworkStringNullPlaceholder);
}

std::optional<std::string> model(const std::string& format, const std::vector<std::string>& arguments)
{
    std::string out;
    size_t counter = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            out += format[i];
            continue;
        }
        if (i + 1 == format.size())
            break;
        char next = format[i + 1];
        if (next == '@') {
            out += argumentText(arguments, counter++);
            ++i;
        } else if (next == '%') {
            out += '%';
            ++i;
        } else if (next >= '0' && next <= '9') {
            size_t j = i + 1;
            unsigned long long number = 0;
            bool huge = false;
            for (; j < format.size() && format[j] >= '0' && format[j] <= '9'; ++j) {
                if (number > 1000000000ULL)
                    huge = true;
                else
                    number = number * 10 + static_cast<unsigned>(format[j] - '0');
            }
            if (j + 1 < format.size() && format[j] == '$' && format[j + 1] == '@') {
                out += huge || number == 0 ? argumentText(arguments, SIZE_MAX)
                                           : argumentText(arguments, number - 1);
                i = j + 1;
            } else {
                i = j - 1;
            }
        } else {
            ++i;
        }
    }
    if (!tessel::Utf8::isValid(out))
        return std::nullopt;
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The first byte picks how many short arguments follow the format.
    if (size == 0)
        return 0;
    size_t count = data[0] % 8;
    std::string format(reinterpret_cast<const char*>(data + 1), size - 1);
    std::vector<std::string> arguments;
    std::vector<tessel::Value> values;
    for (size_t i = 0; i < count; ++i) {
        arguments.push_back("arg" + std::to_string(i) + "\xC3\xA9");
        values.emplace_back(arguments.back());
    }
    auto got = tessel::KTFormatNetworkString(std::string_view(format), values);
    if (got != model(format, arguments))
        abort();
    return 0;
}
