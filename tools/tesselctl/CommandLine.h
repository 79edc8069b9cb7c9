#pragma once

#include "tesselctl/Arguments.h"
#include "tesselctl/CommandTable.h"

#include <optional>
#include <string>
#include <vector>

namespace tessel::ctl {

struct ParsedCommandLine {
    enum class Action { Run, Help, Version, ManualSections };
    Action action = Action::Run;
    // For Help: the command asked about, or none for the general help.
    const CommandSpec* command = nullptr;
    // For Run.
    std::optional<Arguments> arguments;
};

// Reads the command line against the command table, and writes every help
// text from that table. Global options go anywhere, before or after the
// command; a bad command line throws a usage error.
class CommandLine {
public:
    // The arguments after the program's name.
    static ParsedCommandLine parse(const std::vector<std::string>& arguments);

    static std::string help();
    static std::string help(const CommandSpec& command);
    // Extra sections of the manual page, in help2man's include format.
    static std::string manualSections();
    static std::string synopsis(const CommandSpec& command);
};

} // namespace tessel::ctl
