// tesselctl: the daemon's command-line client. Parses the command line,
// runs one command and turns every failure into "tesselctl: ..." on standard
// error and its exit code.
#include "tesselctl/ApplicationCommands.h"
#include "tesselctl/CommandError.h"
#include "tesselctl/CommandLine.h"
#include "tesselctl/Invocation.h"
#include "tesselctl/PushCommands.h"
#include "tesselctl/ScheduleCommands.h"
#include "tesselctl/SettingsCommands.h"

#include <sdbus-c++/Error.h>

#include <iostream>
#include <map>

using namespace tessel::ctl;

namespace {

using Command = void (*)(const Invocation&);

const std::map<std::string_view, Command>& commands()
{
    static const std::map<std::string_view, Command> table {
        { "status", ApplicationCommands::status },
        { "apps", ApplicationCommands::apps },
        { "delivered", ApplicationCommands::delivered },
        { "clear", ApplicationCommands::clear },
        { "schedule", ScheduleCommands::schedule },
        { "list", ScheduleCommands::list },
        { "cancel", ScheduleCommands::cancel },
        { "snooze", ScheduleCommands::snooze },
        { "fetch", ScheduleCommands::fetch },
        { "observe", ScheduleCommands::observe },
        { "settings show", SettingsCommands::show },
        { "settings allow", SettingsCommands::allow },
        { "settings deny", SettingsCommands::deny },
        { "settings types", SettingsCommands::types },
        { "settings set", SettingsCommands::set },
        { "push inject", PushCommands::inject },
        { "token", PushCommands::token },
    };
    return table;
}

int run(const std::vector<std::string>& arguments)
{
    auto parsed = CommandLine::parse(arguments);
    switch (parsed.action) {
    case ParsedCommandLine::Action::Help:
        std::cout << (parsed.command ? CommandLine::help(*parsed.command) : CommandLine::help());
        return 0;
    case ParsedCommandLine::Action::Version:
        std::cout << "tesselctl " << TESSELCTL_VERSION << '\n';
        return 0;
    case ParsedCommandLine::Action::ManualSections:
        std::cout << CommandLine::manualSections();
        return 0;
    case ParsedCommandLine::Action::Run:
        break;
    }
    Invocation invocation(*parsed.arguments);
    commands().at(parsed.command->name)(invocation);
    return 0;
}

int fail(ExitCode code, const std::string& message)
{
    std::cout.flush();
    std::cerr << "tesselctl: " << Output::printable(message) << std::endl;
    return static_cast<int>(code);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const CommandError& error) {
        return fail(error.code(), error.what());
    } catch (const sdbus::Error& error) {
        return fail(ExitCode::NoDaemon, "bus failure: " + error.getName() + ": " + error.getMessage());
    } catch (const std::exception& error) {
        return fail(ExitCode::Failed, error.what());
    }
}
