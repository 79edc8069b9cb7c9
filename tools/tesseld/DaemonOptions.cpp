#include "DaemonOptions.h"

#include <string_view>

namespace tessel {

const char* DaemonOptions::helpText()
{
    return R"(Usage: tesseld [OPTION]...
Runs the Tessel notification service: publishes the registrar, scheduler and
control services on the bus and keeps every application's notifications.

Options:
  --library DIR         keep the Library (stores, settings, logs, and the
                        user's application bundles in DIR/Applications) in DIR
                        instead of the XDG directories
  --applications DIR    read the user's application bundles from DIR
  --system-applications DIR
                        read Tessel's own bundles (tesselctl) from DIR instead
                        of ../lib/tessel/Applications beside this program
  --bus BUS             serve on BUS: "session" (the default), "system", or a
                        D-Bus address such as unix:path=/run/user/1000/bus
  --simulate            host the simulated device (a temporary Library, its
                        own clock) for demonstrations
  -h, --help            show this help and exit
  --version             show the version and exit

Without --library, data lives in $XDG_DATA_HOME/tessel (Library and
Applications), preferences in $XDG_CONFIG_HOME/tessel/Preferences and logs in
$XDG_STATE_HOME/tessel/Logs. Under systemd the daemon logs to the journal,
otherwise to standard error. SIGTERM or SIGINT stop it cleanly.

Exit status: 0 stopped by a signal, 1 could not start (another instance, an
unusable Library, no bus), 2 bad command line.
)";
}

std::optional<DaemonOptions> DaemonOptions::parse(int argc, const char* const* argv, std::string& error)
{
    DaemonOptions options;
    for (int index = 1; index < argc; ++index) {
        std::string_view argument = argv[index];
        std::string value;
        auto split = argument.find('=');
        std::string_view name = argument.substr(0, split);
        bool takesValue = name == "--library" || name == "--applications" || name == "--system-applications"
            || name == "--bus";
        if (takesValue) {
            if (split != std::string_view::npos)
                value = std::string(argument.substr(split + 1));
            else if (index + 1 < argc)
                value = argv[++index];
            else {
                error = "option " + std::string(name) + " needs a value";
                return std::nullopt;
            }
            if (value.empty()) {
                error = "option " + std::string(name) + " needs a value";
                return std::nullopt;
            }
        }
        if (name == "--library")
            options.libraryDirectory = value;
        else if (name == "--applications")
            options.applicationsDirectory = value;
        else if (name == "--system-applications")
            options.systemApplicationsDirectory = value;
        else if (name == "--bus")
            options.bus = value;
        else if (argument == "--simulate")
            options.simulate = true;
        else if (argument == "-h" || argument == "--help")
            options.action = Action::Help;
        else if (argument == "--version")
            options.action = Action::Version;
        else {
            error = "unknown argument " + std::string(argument);
            return std::nullopt;
        }
    }
    return options;
}

} // namespace tessel
