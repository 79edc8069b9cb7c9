#include "tesselctl/NotificationJson.h"

#include "tesselctl/CommandError.h"
#include "tesselctl/Dates.h"

#include <cstring>
#include <sstream>

namespace tessel::ctl {

namespace {

    constexpr std::pair<RepeatUnit, const char*> unitNames[] = {
        { RepeatUnit::Second, "second" },
        { RepeatUnit::Minute, "minute" },
        { RepeatUnit::Hour, "hour" },
        { RepeatUnit::Day, "day" },
        { RepeatUnit::Week, "week" },
        { RepeatUnit::Month, "month" },
        { RepeatUnit::Quarter, "quarter" },
        { RepeatUnit::Year, "year" },
    };

    Json optionalText(const std::string& text) { return text.empty() ? Json() : Json(text); }

    Json sound(const LocalNotificationFields& notification)
    {
        if (notification.soundName == LocalNotificationFields::defaultSoundName)
            return "default";
        return optionalText(notification.soundName);
    }

    // The daemon validated it; what still cannot be read is shown as absent.
    Json userInfo(const LocalNotificationFields& notification)
    {
        if (notification.userInfo.empty())
            return nullptr;
        try {
            return JsonPlist::toJson(notification.userInfo);
        } catch (const CommandError&) {
            return nullptr;
        }
    }

    Json regionJson(const RegionFields& region)
    {
        return { { "identifier", region.identifier }, { "latitude", region.latitude },
            { "longitude", region.longitude }, { "radius", region.radius }, { "onEntry", region.notifyOnEntry },
            { "onExit", region.notifyOnExit } };
    }

} // namespace

Json NotificationJson::toJson(const LocalNotificationFields& notification)
{
    Json json;
    json["fireDate"] = notification.fireDate ? Json(Dates::iso(*notification.fireDate, notification.timeZone)) : Json();
    json["timeZone"] = notification.timeZone ? Json(*notification.timeZone) : Json();
    bool repeats = notification.repeatInterval != RepeatUnit::None;
    json["repeat"] = repeats ? Json(unitName(notification.repeatInterval)) : Json();
    json["repeatCount"] = repeats && notification.totalRepeatCount >= 0 ? Json(notification.totalRepeatCount) : Json();
    json["title"] = notification.alertTitle;
    json["body"] = notification.alertBody;
    json["action"] = notification.alertAction;
    json["hasAction"] = notification.hasAction;
    json["sound"] = sound(notification);
    json["badge"] = notification.applicationIconBadgeNumber;
    json["category"] = notification.category;
    json["userInfo"] = userInfo(notification);
    json["region"] = notification.region ? regionJson(*notification.region) : Json();
    json["regionTriggersOnce"] = notification.regionTriggersOnce;
    json["launchImage"] = notification.alertLaunchImage;
    json["fromSnooze"] = notification.fromSnooze;
    return json;
}

Lines NotificationJson::lines(const LocalNotificationFields& notification)
{
    Lines lines { { "fire date", notification.fireDate ? fireDate(notification) : "at once" },
        { "repeat", repeat(notification) } };
    auto add = [&](const char* key, const std::string& value) {
        if (!value.empty())
            lines.emplace_back(key, value);
    };
    add("title", notification.alertTitle);
    add("body", notification.alertBody);
    add("action", notification.alertAction);
    auto soundName = sound(notification);
    add("sound", soundName.is_string() ? soundName.get<std::string>() : "");
    add("badge", notification.applicationIconBadgeNumber ? std::to_string(notification.applicationIconBadgeNumber) : "");
    add("category", notification.category);
    auto info = userInfo(notification);
    add("user info", info.is_null() ? "" : info.dump(-1, ' ', false, Json::error_handler_t::replace));
    add("region", notification.region ? region(notification) : "");
    add("from snooze", notification.fromSnooze ? "yes" : "");
    return lines;
}

std::string NotificationJson::text(const LocalNotificationFields& notification)
{
    if (notification.alertTitle.empty())
        return notification.alertBody;
    if (notification.alertBody.empty())
        return notification.alertTitle;
    return notification.alertTitle + ": " + notification.alertBody;
}

std::string NotificationJson::fireDate(const LocalNotificationFields& notification)
{
    if (!notification.fireDate)
        return "-";
    auto text = Dates::readable(*notification.fireDate, notification.timeZone);
    return notification.timeZone ? text + " " + *notification.timeZone : text;
}

std::string NotificationJson::repeat(const LocalNotificationFields& notification)
{
    if (notification.repeatInterval == RepeatUnit::None)
        return "-";
    std::string text = std::string("every ") + unitName(notification.repeatInterval);
    if (notification.totalRepeatCount >= 0)
        text += ", " + std::to_string(notification.totalRepeatCount) + " more";
    return text;
}

std::string NotificationJson::region(const LocalNotificationFields& notification)
{
    if (!notification.region)
        return "-";
    const auto& region = *notification.region;
    std::ostringstream text;
    text << region.latitude << ',' << region.longitude << " within " << region.radius << " m";
    if (!region.identifier.empty())
        text << " (" << region.identifier << ")";
    text << " on " << (region.notifyOnEntry && region.notifyOnExit ? "entry and exit"
                          : region.notifyOnEntry                   ? "entry"
                          : region.notifyOnExit                    ? "exit"
                                                                   : "neither");
    return text.str();
}

std::optional<RepeatUnit> NotificationJson::unit(std::string_view name)
{
    for (const auto& [unit, unitText] : unitNames)
        if (name == unitText)
            return unit;
    return std::nullopt;
}

const char* NotificationJson::unitName(RepeatUnit unit)
{
    for (const auto& [candidate, name] : unitNames)
        if (candidate == unit)
            return name;
    return "never";
}

} // namespace tessel::ctl
