#pragma once

#include "tesselctl/CommandTable.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

struct GlobalOptions {
    // Absent: $DBUS_SESSION_BUS_ADDRESS.
    std::optional<std::string> bus;
    bool json = false;
    std::chrono::milliseconds timeout { 10000 };
    std::optional<std::string> app;
};

// One command's options and operands as given, read with checks that turn
// every bad value into a usage error naming the option.
class Arguments {
public:
    Arguments(const CommandSpec& command, GlobalOptions globals, std::map<std::string, std::string> options,
        std::vector<std::string> operands);

    const CommandSpec& command() const { return *_command; }
    const GlobalOptions& globals() const { return _globals; }
    const std::vector<std::string>& operands() const { return _operands; }
    // The application of a per-application command; the parser made sure of it.
    const std::string& app() const { return *_globals.app; }

    bool has(std::string_view name) const;
    std::optional<std::string> text(std::string_view name) const;
    std::optional<int64_t> integer(std::string_view name, int64_t minimum, int64_t maximum) const;
    std::optional<double> number(std::string_view name, double minimum, double maximum) const;

    // Whole decimal text within the bounds, else a usage error about what.
    static int64_t parseInteger(std::string_view text, int64_t minimum, int64_t maximum, const std::string& what);
    static double parseNumber(std::string_view text, double minimum, double maximum, const std::string& what);

private:
    const CommandSpec* _command;
    GlobalOptions _globals;
    std::map<std::string, std::string> _options;
    std::vector<std::string> _operands;
};

} // namespace tessel::ctl
