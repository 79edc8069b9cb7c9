#include "tesselctl/ApplicationCommands.h"

#include "tesselctl/CommandError.h"
#include "tesselctl/ControlClient.h"
#include "tesselctl/Dates.h"
#include "tesselctl/SettingsJson.h"

namespace tessel::ctl {

namespace {

    std::string flag(const Json& record, const char* key)
    {
        auto found = record.find(key);
        if (found == record.end() || !found->is_boolean())
            return "-";
        return found->get<bool>() ? "yes" : "no";
    }

    std::string types(const Json& record, const char* key)
    {
        auto found = record.find(key);
        if (found == record.end() || !found->is_number_integer())
            return "-";
        return SettingsJson::typesText(static_cast<uint64_t>(found->get<int64_t>()));
    }

    std::string notificationKind(const Json& record)
    {
        auto kind = ApplicationCommands::readable(record, "AppNotificationType");
        if (kind == "AppNotificationRemote")
            return "remote";
        if (kind == "AppNotificationLocal")
            return "local";
        return kind;
    }

    std::string notificationText(const Json& record)
    {
        auto title = ApplicationCommands::readable(record, "AppNotificationTitle");
        auto message = ApplicationCommands::readable(record, "AppNotificationMessage");
        if (title == "-")
            return message;
        return message == "-" ? title : title + ": " + message;
    }

} // namespace

std::string ApplicationCommands::readable(const Json& record, const char* key)
{
    auto found = record.find(key);
    if (found == record.end() || found->is_null())
        return "-";
    if (found->is_string()) {
        // Dates came as ISO 8601 text; other text stays as it is.
        auto text = found->get<std::string>();
        bool looksLikeDate = text.size() >= 20 && text[4] == '-' && text[10] == 'T';
        auto date = looksLikeDate ? Dates::parse(text) : std::nullopt;
        return date ? Dates::readable(*date) : text;
    }
    if (found->is_boolean())
        return found->get<bool>() ? "yes" : "no";
    if (found->is_array()) {
        std::string joined;
        for (const auto& item : *found)
            joined += (joined.empty() ? "" : ", ")
                + (item.is_string() ? item.get<std::string>() : item.dump(-1, ' ', false, Json::error_handler_t::replace));
        return joined.empty() ? "-" : joined;
    }
    return found->dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json ApplicationCommands::answer(const std::vector<uint8_t>& plist, Json::value_t type, const char* operation)
{
    Json value = JsonPlist::toJson(plist);
    if (value.type() != type)
        throw CommandError(ExitCode::Failed, std::string("unexpected answer to ") + operation);
    return value;
}

void ApplicationCommands::status(const Invocation& invocation)
{
    ControlClient control(invocation.busAddress(), invocation.timeout());
    if (!control.isDaemonRunning()) {
        if (invocation.json())
            invocation.output().document({ { "running", false } });
        throw CommandError(ExitCode::NoDaemon, "the daemon is not running");
    }
    Json status = answer(control.status(), Json::value_t::object, "Status");
    if (invocation.json())
        return invocation.output().document({ { "running", true }, { "status", status } });
    invocation.output().lines({
        { "running", "yes" },
        { "version", readable(status, "Version") },
        { "pid", readable(status, "ProcessIdentifier") },
        { "library", readable(status, "LibraryDirectory") },
        { "applications directories", readable(status, "ApplicationsDirectories") },
        { "applications", readable(status, "Applications") },
        { "started", readable(status, "StartDate") },
    });
}

void ApplicationCommands::apps(const Invocation& invocation)
{
    ControlClient control(invocation.busAddress(), invocation.timeout());
    Json applications = answer(control.applications(), Json::value_t::array, "Applications");
    if (invocation.json())
        return invocation.output().document({ { "applications", applications } });
    std::vector<std::vector<std::string>> rows;
    for (const auto& application : applications) {
        Json section = application.contains("Section") ? application["Section"] : Json::object();
        rows.push_back({ readable(application, "Identifier"), readable(application, "DisplayName"),
            types(application, "NotificationTypes"), flag(section, "AllowsNotifications"),
            readable(section, "AlertStyle"), types(section, "EnabledTypes") });
    }
    invocation.output().table({ "IDENTIFIER", "NAME", "REGISTERED", "ALLOWED", "STYLE", "ENABLED" }, rows);
}

void ApplicationCommands::delivered(const Invocation& invocation)
{
    ControlClient control(invocation.busAddress(), invocation.timeout());
    Json notifications
        = answer(control.deliveredNotifications(invocation.app()), Json::value_t::array, "DeliveredNotifications");
    if (invocation.json())
        return invocation.output().document({ { "app", invocation.app() }, { "notifications", notifications } });
    std::vector<std::vector<std::string>> rows;
    for (const auto& record : notifications)
        rows.push_back({ std::to_string(rows.size() + 1), readable(record, "AppNotificationCreationDate"),
            notificationKind(record), notificationText(record) });
    invocation.output().table({ "#", "DELIVERED", "KIND", "TEXT" }, rows);
}

void ApplicationCommands::clear(const Invocation& invocation)
{
    ControlClient control(invocation.busAddress(), invocation.timeout());
    control.clearDeliveredNotifications(invocation.app());
    if (invocation.json())
        return invocation.output().document({ { "app", invocation.app() }, { "cleared", true } });
    invocation.output().line("cleared the delivered notifications of " + invocation.app());
}

} // namespace tessel::ctl
