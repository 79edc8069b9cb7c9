#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace tessel::ctl {

struct OptionSpec {
    // Without the leading dashes.
    std::string_view name;
    // The value's placeholder; empty for a switch.
    std::string_view value;
    std::string_view help;
};

struct CommandSpec {
    // One or two words: "status", "settings set".
    std::string_view name;
    // As the synopsis shows them, after the options.
    std::string_view operands;
    size_t minimumOperands = 0;
    size_t maximumOperands = 0;
    bool needsApp = false;
    std::string_view summary;
    std::string_view description;
    std::vector<OptionSpec> options;
};

// Every command and option with its help: the one source of --help, of each
// command's --help and of the manual page.
class CommandTable {
public:
    static const std::vector<CommandSpec>& commands();
    static const std::vector<OptionSpec>& globalOptions();
    static const CommandSpec* command(std::string_view name);
    static const OptionSpec* option(const std::vector<OptionSpec>& options, std::string_view name);
    // Whether name is the first word of commands of two words ("settings").
    static bool isGroup(std::string_view name);
};

} // namespace tessel::ctl
