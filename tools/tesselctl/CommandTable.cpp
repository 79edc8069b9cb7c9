#include "tesselctl/CommandTable.h"

#include <limits>

namespace tessel::ctl {

namespace {

    constexpr size_t many = std::numeric_limits<size_t>::max();

    std::vector<CommandSpec> makeCommands()
    {
        return {
            { "status", "", 0, 0, false, "Whether the daemon runs, and what it reports about itself.",
                "Prints the daemon's version, process identifier, Library directory, application "
                "directories, start date and number of applications. Exits with 3 when the daemon does not "
                "run; it never starts the daemon.",
                {} },
            { "apps", "", 0, 0, false, "The installed applications and their notification settings.",
                "One row per application: identifier, display name, the notification types it registered, "
                "whether the user allows its notifications, the alert style and the enabled types.",
                {} },
            { "schedule", "", 0, 0, true, "Schedules a local notification for the application.",
                "Builds one local notification from the options, hands it to the scheduler as the "
                "application would, and prints it with the fire date the daemon kept. Without --at or --in "
                "it is due at once (or when its region triggers).",
                {
                    { "body", "TEXT", "The alert's text." },
                    { "title", "TEXT", "The alert's title." },
                    { "sound", "NAME", "A sound of the application's bundle; \"default\" for the default sound." },
                    { "badge", "N", "The application's badge number." },
                    { "at", "DATE",
                        "The fire date: \"YYYY-MM-DD HH:MM[:SS]\" in local time (or in --time-zone), or ISO 8601 "
                        "with \"T\" and an offset such as \"Z\" or \"+01:00\"." },
                    { "in", "SECONDS", "The fire date as seconds from now." },
                    { "time-zone", "ZONE",
                        "Keep the wall-clock time in this zone (such as Europe/Berlin) rather than the moment." },
                    { "repeat", "UNIT", "Repeat every second, minute, hour, day, week, month, quarter or year." },
                    { "count", "N", "Repeat N times after the first; without it, without end." },
                    { "user-info", "JSON", "A JSON object handed to the application with the notification." },
                    { "category", "ID", "The category of actions to offer." },
                    { "action", "TEXT", "The text of the alert's action." },
                    { "region", "LAT,LON,RADIUS[,ID]",
                        "Fire on crossing the circle around this place (degrees, metres)." },
                    { "on-entry", "", "With --region: fire on entering it (default: entering and leaving)." },
                    { "on-exit", "", "With --region: fire on leaving it." },
                } },
            { "list", "", 0, 0, true, "The application's scheduled notifications.",
                "Lists them in the daemon's order, numbered from 1; cancel and snooze take these numbers.", {} },
            { "cancel", "[N...]", 0, many, true, "Cancels scheduled notifications.",
                "Cancels the notifications with these numbers in the current list, or every one with --all.",
                { { "all", "", "Cancel every scheduled notification of the application." } } },
            { "snooze", "N...", 1, many, true, "Snoozes scheduled notifications.",
                "Snoozes the notifications with these numbers in the current list.", {} },
            { "fetch", "", 0, 0, true, "The fire dates in a window.",
                "Asks the daemon when the application's notifications fire between two dates, in order; "
                "each names its notification by its number in the list.",
                {
                    { "from", "DATE", "The window's start (default: now); dates as for schedule --at." },
                    { "to", "DATE", "The window's end (default: without end)." },
                    { "max", "N", "At most N fire dates." },
                    { "snoozes", "", "Include the fire dates of snoozed notifications." },
                } },
            { "observe", "", 0, 0, true, "Prints the application's notification events as they come.",
                "Prints \"observing ID\" once the daemon observes for it, then one line per change of the "
                "scheduled list and per firing, until interrupted, the count is reached or the time is up.",
                {
                    { "count", "N", "Stop after N events." },
                    { "for", "SECONDS", "Stop after this time." },
                } },
            { "delivered", "", 0, 0, true, "The application's delivered notifications, newest first.", "", {} },
            { "clear", "", 0, 0, true, "Removes the application's delivered notifications.", "", {} },
            { "settings show", "", 0, 0, true, "The application's notification settings.",
                "The notification types and categories it registered, and the user's settings for it.", {} },
            { "settings allow", "", 0, 0, true, "Allows the application's notifications.",
                "As the user would in the settings; prints the settings after.", {} },
            { "settings deny", "", 0, 0, true, "Turns the application's notifications off.",
                "As the user would in the settings; prints the settings after.", {} },
            { "settings types", "TYPES", 1, 1, true, "Registers notification types and categories.",
                "Registers TYPES (a comma-separated list of badge, sound and alert, or \"none\") as the "
                "application would, with the categories of a JSON file: [{\"identifier\": ID, \"actions\": "
                "[{\"identifier\": ID, \"title\": TEXT, \"background\": BOOL, \"destructive\": BOOL, "
                "\"text-input\": BOOL}]}].",
                { { "categories", "FILE", "The action categories, as JSON." } } },
            { "settings set", "KEY=VALUE...", 1, many, true, "Changes the user's settings for the application.",
                "Keys: alert-style=none|banner|alert, sounds=on|off, badges=on|off, alerts=on|off, "
                "lock-screen=on|off, notification-centre=on|off. Prints the settings after.",
                {} },
            { "push inject", "", 0, 0, false, "Hands a push message to the daemon's loopback source.",
                "The payload, a dictionary, arrives as from the network on the topic; fails when no "
                "application subscribes to the topic.",
                {
                    { "topic", "TOPIC", "The topic, usually the application's identifier." },
                    { "payload", "JSON", "The payload as a JSON object." },
                    { "file", "FILE", "The payload from a file: a JSON object or a property list." },
                    { "environment", "ENV", "production (default) or development." },
                    { "priority", "N", "The message's priority (default 10)." },
                } },
            { "token", "", 0, 0, true, "Registers the application for push and prints its token.",
                "Observes the registrar for the application, asks the daemon to register it as the host "
                "would, and prints the device token it receives, in hexadecimal.",
                { { "environment", "ENV", "production (default) or development." } } },
        };
    }

} // namespace

const std::vector<CommandSpec>& CommandTable::commands()
{
    static const std::vector<CommandSpec> table = makeCommands();
    return table;
}

const std::vector<OptionSpec>& CommandTable::globalOptions()
{
    static const std::vector<OptionSpec> options {
        { "bus", "ADDRESS", "The bus of the daemon (default: $DBUS_SESSION_BUS_ADDRESS)." },
        { "json", "", "Machine output: one JSON document, or JSON lines for observe." },
        { "timeout", "SECONDS", "How long to wait for an answer (default 10)." },
        { "app", "ID", "The application to act for; the per-application commands need it." },
        { "help", "", "Show help (also after a command) and exit." },
        { "version", "", "Show the version and exit." },
    };
    return options;
}

const CommandSpec* CommandTable::command(std::string_view name)
{
    for (const auto& spec : commands())
        if (spec.name == name)
            return &spec;
    return nullptr;
}

const OptionSpec* CommandTable::option(const std::vector<OptionSpec>& options, std::string_view name)
{
    for (const auto& spec : options)
        if (spec.name == name)
            return &spec;
    return nullptr;
}

bool CommandTable::isGroup(std::string_view name)
{
    for (const auto& spec : commands()) {
        auto space = spec.name.find(' ');
        if (space != std::string_view::npos && spec.name.substr(0, space) == name)
            return true;
    }
    return false;
}

} // namespace tessel::ctl
