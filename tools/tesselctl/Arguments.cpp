#include "tesselctl/Arguments.h"

#include "tesselctl/CommandError.h"

#include <charconv>
#include <cmath>
#include <sstream>

namespace tessel::ctl {

namespace {

    template <typename Number> std::string describe(Number minimum, Number maximum)
    {
        std::ostringstream text;
        text << "from " << minimum << " to " << maximum;
        return text.str();
    }

} // namespace

Arguments::Arguments(const CommandSpec& command, GlobalOptions globals, std::map<std::string, std::string> options,
    std::vector<std::string> operands)
    : _command(&command)
    , _globals(std::move(globals))
    , _options(std::move(options))
    , _operands(std::move(operands))
{
}

bool Arguments::has(std::string_view name) const { return _options.contains(std::string(name)); }

std::optional<std::string> Arguments::text(std::string_view name) const
{
    auto found = _options.find(std::string(name));
    if (found == _options.end())
        return std::nullopt;
    return found->second;
}

std::optional<int64_t> Arguments::integer(std::string_view name, int64_t minimum, int64_t maximum) const
{
    auto value = text(name);
    if (!value)
        return std::nullopt;
    return parseInteger(*value, minimum, maximum, "--" + std::string(name));
}

std::optional<double> Arguments::number(std::string_view name, double minimum, double maximum) const
{
    auto value = text(name);
    if (!value)
        return std::nullopt;
    return parseNumber(*value, minimum, maximum, "--" + std::string(name));
}

int64_t Arguments::parseInteger(std::string_view text, int64_t minimum, int64_t maximum, const std::string& what)
{
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        throw CommandError::usage(what + " needs a whole number, not \"" + std::string(text) + "\"");
    if (value < minimum || value > maximum)
        throw CommandError::usage(what + " must be " + describe(minimum, maximum));
    return value;
}

double Arguments::parseNumber(std::string_view text, double minimum, double maximum, const std::string& what)
{
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
        throw CommandError::usage(what + " needs a number, not \"" + std::string(text) + "\"");
    if (value < minimum || value > maximum)
        throw CommandError::usage(what + " must be " + describe(minimum, maximum));
    return value;
}

} // namespace tessel::ctl
