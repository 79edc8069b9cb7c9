#include "tesselctl/CommandLine.h"

#include "tesselctl/CommandError.h"

#include <algorithm>
#include <sstream>

namespace tessel::ctl {

namespace {

    constexpr size_t lineWidth = 79;
    constexpr const char* exitStatuses[][2] = {
        { "0", "Success." },
        { "1", "The daemon refused or failed the request: not entitled, unknown application, invalid "
               "arguments." },
        { "2", "Usage error." },
        { "3", "The daemon is not running, or the bus cannot be reached." },
        { "4", "No answer in time." },
    };

    // Words of text in lines of lineWidth, each after indent; the first line
    // continues what is already written, which is firstColumn wide.
    void wrap(std::ostream& out, std::string_view text, size_t indent, size_t firstColumn)
    {
        std::istringstream words { std::string(text) };
        size_t column = firstColumn;
        bool lineStart = true;
        std::string word;
        while (words >> word) {
            if (!lineStart && column + 1 + word.size() > lineWidth) {
                out << '\n' << std::string(indent, ' ');
                column = indent;
                lineStart = true;
            }
            if (!lineStart)
                out << ' ', ++column;
            out << word;
            column += word.size();
            lineStart = false;
        }
        out << '\n';
    }

    std::string optionLabel(const OptionSpec& option)
    {
        std::string label = "--" + std::string(option.name);
        if (!option.value.empty())
            label += " " + std::string(option.value);
        return label;
    }

    void optionList(std::ostream& out, const std::vector<OptionSpec>& options)
    {
        size_t width = 0;
        for (const auto& option : options)
            width = std::max(width, optionLabel(option).size());
        for (const auto& option : options) {
            auto label = optionLabel(option);
            out << "  " << label << std::string(width - label.size() + 2, ' ');
            wrap(out, option.help, width + 4, width + 4);
        }
    }

    std::string roff(std::string_view text)
    {
        std::string escaped;
        for (char c : text) {
            if (c == '\\')
                escaped += "\\e";
            else if (c == '-')
                escaped += "\\-";
            else if (c == '"')
                escaped += "\\(dq";
            else
                escaped += c;
        }
        if (!escaped.empty() && (escaped[0] == '.' || escaped[0] == '\''))
            escaped.insert(0, "\\&");
        return escaped;
    }

    void roffOptions(std::ostream& out, const std::vector<OptionSpec>& options)
    {
        for (const auto& option : options) {
            out << ".TP\n\\fB" << roff("--" + std::string(option.name)) << "\\fR";
            if (!option.value.empty())
                out << " \\fI" << roff(option.value) << "\\fR";
            out << '\n' << roff(option.help) << '\n';
        }
    }

    // Splits "--name=value"; the value is absent without "=".
    std::pair<std::string, std::optional<std::string>> splitOption(const std::string& argument)
    {
        auto equals = argument.find('=');
        if (equals == std::string::npos)
            return { argument.substr(2), std::nullopt };
        return { argument.substr(2, equals - 2), argument.substr(equals + 1) };
    }

    class Parser {
    public:
        explicit Parser(const std::vector<std::string>& arguments)
            : _arguments(arguments)
        {
        }

        ParsedCommandLine parse()
        {
            bool optionsEnded = false;
            for (_next = 0; _next < _arguments.size();) {
                const std::string& argument = _arguments[_next++];
                if (!optionsEnded && argument == "--")
                    optionsEnded = true;
                else if (!optionsEnded && argument.size() > 1 && argument[0] == '-')
                    option(argument);
                else
                    word(argument);
            }
            return finish();
        }

    private:
        void option(const std::string& argument)
        {
            if (argument[1] != '-')
                throw CommandError::usage("unknown option " + argument + " (see tesselctl --help)");
            auto [name, value] = splitOption(argument);
            if (name == "help" || name == "version" || name == "help-all") {
                if (value)
                    throw CommandError::usage("--" + name + " takes no value");
                (name == "help" ? _help : name == "version" ? _version : _manual) = true;
                return;
            }
            const OptionSpec* spec = CommandTable::option(CommandTable::globalOptions(), name);
            bool global = spec;
            if (!spec && _command)
                spec = CommandTable::option(_command->options, name);
            if (!spec) {
                if (_command)
                    throw CommandError::usage("unknown option --" + name + " for " + std::string(_command->name)
                        + " (see tesselctl " + std::string(_command->name) + " --help)");
                throw CommandError::usage("unknown option --" + name + " (see tesselctl --help)");
            }
            if (spec->value.empty() && value)
                throw CommandError::usage("--" + name + " takes no value");
            if (!spec->value.empty() && !value) {
                if (_next == _arguments.size())
                    throw CommandError::usage("--" + name + " needs a value " + std::string(spec->value));
                value = _arguments[_next++];
            }
            if (global)
                return setGlobal(name, value.value_or(""));
            if (!_options.emplace(name, value.value_or("")).second)
                throw CommandError::usage("--" + name + " given twice");
        }

        void setGlobal(const std::string& name, const std::string& value)
        {
            if (!_globalsSeen.emplace(name, value).second)
                throw CommandError::usage("--" + name + " given twice");
            if ((name == "bus" || name == "app") && value.empty())
                throw CommandError::usage("--" + name + " needs a value that is not empty");
            if (name == "bus")
                _globals.bus = value;
            else if (name == "app")
                _globals.app = value;
            else if (name == "json")
                _globals.json = true;
            else if (name == "timeout")
                _globals.timeout = std::chrono::milliseconds(
                    static_cast<int64_t>(Arguments::parseNumber(value, 0.001, 86400, "--timeout") * 1000));
        }

        void word(const std::string& argument)
        {
            if (_command) {
                _operands.push_back(argument);
            } else if (!_group.empty()) {
                _command = CommandTable::command(_group + " " + argument);
                if (!_command)
                    throw CommandError::usage(
                        "unknown command \"" + _group + " " + argument + "\" (see tesselctl --help)");
            } else if (CommandTable::isGroup(argument)) {
                _group = argument;
            } else {
                _command = CommandTable::command(argument);
                if (!_command)
                    throw CommandError::usage("unknown command \"" + argument + "\" (see tesselctl --help)");
            }
        }

        ParsedCommandLine finish()
        {
            if (_manual)
                return { ParsedCommandLine::Action::ManualSections };
            if (_help)
                return { ParsedCommandLine::Action::Help, _command };
            if (_version)
                return { ParsedCommandLine::Action::Version };
            if (!_command && !_group.empty())
                throw CommandError::usage(_group + " needs a subcommand (see tesselctl --help)");
            if (!_command)
                throw CommandError::usage("no command given (see tesselctl --help)");
            std::string name(_command->name);
            if (_operands.size() < _command->minimumOperands || _operands.size() > _command->maximumOperands) {
                if (_command->maximumOperands == 0)
                    throw CommandError::usage(name + " takes no arguments, not \"" + _operands.front() + "\"");
                throw CommandError::usage(name + " takes " + std::string(_command->operands));
            }
            if (_command->needsApp && !_globals.app)
                throw CommandError::usage(name + " needs --app ID, the application to act for");
            return { ParsedCommandLine::Action::Run, _command,
                Arguments(*_command, _globals, std::move(_options), std::move(_operands)) };
        }

        const std::vector<std::string>& _arguments;
        size_t _next = 0;
        const CommandSpec* _command = nullptr;
        std::string _group;
        GlobalOptions _globals;
        std::map<std::string, std::string> _globalsSeen;
        std::map<std::string, std::string> _options;
        std::vector<std::string> _operands;
        bool _help = false;
        bool _version = false;
        bool _manual = false;
    };

} // namespace

ParsedCommandLine CommandLine::parse(const std::vector<std::string>& arguments)
{
    return Parser(arguments).parse();
}

std::string CommandLine::synopsis(const CommandSpec& command)
{
    std::string text = "tesselctl " + std::string(command.name);
    if (command.needsApp)
        text += " --app ID";
    if (!command.options.empty())
        text += " [OPTIONS]";
    if (!command.operands.empty())
        text += " " + std::string(command.operands);
    return text;
}

std::string CommandLine::help()
{
    std::ostringstream out;
    out << "Usage: tesselctl [OPTIONS] COMMAND [ARGUMENTS]\n\n";
    wrap(out,
        "Inspects and drives the Tessel notification daemon: its applications, their scheduled and delivered "
        "notifications, their settings and push messages.",
        0, 0);
    out << "\nOptions:\n";
    optionList(out, CommandTable::globalOptions());
    out << "\nCommands:\n";
    size_t width = 0;
    for (const auto& command : CommandTable::commands())
        width = std::max(width, command.name.size());
    for (const auto& command : CommandTable::commands()) {
        out << "  " << command.name << std::string(width - command.name.size() + 2, ' ');
        wrap(out, command.summary, width + 4, width + 4);
    }
    out << "\nRun \"tesselctl COMMAND --help\" for the options of a command.\n\nExit status:\n";
    for (const auto& [code, meaning] : exitStatuses) {
        out << "  " << code << "  ";
        wrap(out, meaning, 5, 5);
    }
    return out.str();
}

std::string CommandLine::help(const CommandSpec& command)
{
    std::ostringstream out;
    out << "Usage: " << synopsis(command) << "\n\n";
    wrap(out, command.summary, 0, 0);
    if (!command.description.empty()) {
        out << '\n';
        wrap(out, command.description, 0, 0);
    }
    if (!command.options.empty()) {
        out << "\nOptions:\n";
        optionList(out, command.options);
    }
    out << '\n';
    wrap(out, "Global options: --bus ADDRESS, --json, --timeout SECONDS, --app ID (see tesselctl --help).", 0, 0);
    return out.str();
}

std::string CommandLine::manualSections()
{
    std::ostringstream out;
    out << "[COMMANDS]\n";
    for (const auto& command : CommandTable::commands()) {
        out << ".SS \"" << roff(synopsis(command)) << "\"\n" << roff(command.summary) << '\n';
        if (!command.description.empty())
            out << ".PP\n" << roff(command.description) << '\n';
        roffOptions(out, command.options);
    }
    out << "[OUTPUT]\n"
        << roff("Readable by default: aligned columns or \"key: value\" lines, dates in local time as "
                "YYYY-MM-DD HH:MM:SS. With --json one JSON document on standard output (JSON lines for "
                "observe), dates in ISO 8601 with their offset. Errors go to standard error as "
                "\"tesselctl: \" and what went wrong.")
        << "\n[EXIT STATUS]\n";
    for (const auto& [code, meaning] : exitStatuses)
        out << ".TP\n" << code << '\n' << roff(meaning) << '\n';
    out << "[ENVIRONMENT]\n.TP\n.B DBUS_SESSION_BUS_ADDRESS\n"
        << roff("The bus of the daemon when --bus is not given.") << '\n';
    return out.str();
}

} // namespace tessel::ctl
