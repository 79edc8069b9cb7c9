#include "tesselctl/NotificationOptions.h"

#include "tesselctl/CommandError.h"
#include "tesselctl/Dates.h"
#include "tesselctl/JsonPlist.h"
#include "tesselctl/NotificationJson.h"

#include <climits>

namespace tessel::ctl {

namespace {

    constexpr double hundredYears = 100 * 366 * 86400.0;

} // namespace

LocalNotificationFields NotificationOptions::build(const Arguments& arguments, double now)
{
    LocalNotificationFields notification;
    notification.alertBody = arguments.text("body").value_or("");
    notification.alertTitle = arguments.text("title").value_or("");
    notification.alertAction = arguments.text("action").value_or("");
    notification.category = arguments.text("category").value_or("");
    auto sound = arguments.text("sound").value_or("");
    notification.soundName = sound == "default" ? LocalNotificationFields::defaultSoundName : sound;
    notification.applicationIconBadgeNumber = static_cast<int>(arguments.integer("badge", 0, INT_MAX).value_or(0));
    readDate(arguments, now, notification);
    readRepeat(arguments, notification);
    readRegion(arguments, notification);
    if (auto text = arguments.text("user-info")) {
        Json info = JsonPlist::parseJson(*text, "--user-info");
        if (!info.is_object())
            throw CommandError::usage("--user-info must be a JSON object");
        notification.userInfo = JsonPlist::toBinary(info);
    }
    return notification;
}

void NotificationOptions::readDate(const Arguments& arguments, double now, LocalNotificationFields& notification)
{
    if (arguments.has("at") && arguments.has("in"))
        throw CommandError::usage("give either --at or --in, not both");
    if (auto zone = arguments.text("time-zone")) {
        if (!Dates::isKnownZone(*zone))
            throw CommandError::usage("--time-zone: no time zone is named \"" + *zone + "\"");
        notification.timeZone = *zone;
    }
    if (auto at = arguments.text("at")) {
        std::string error;
        notification.fireDate = Dates::parse(*at, notification.timeZone, &error);
        if (!notification.fireDate)
            throw CommandError::usage("--at: " + error);
    }
    if (auto in = arguments.number("in", 0, hundredYears))
        notification.fireDate = now + *in;
}

void NotificationOptions::readRepeat(const Arguments& arguments, LocalNotificationFields& notification)
{
    if (auto unit = arguments.text("repeat")) {
        auto repeat = NotificationJson::unit(*unit);
        if (!repeat)
            throw CommandError::usage(
                "--repeat takes second, minute, hour, day, week, month, quarter or year, not \"" + *unit + "\"");
        notification.repeatInterval = *repeat;
    }
    if (auto count = arguments.integer("count", 0, INT32_MAX - 1)) {
        if (notification.repeatInterval == RepeatUnit::None)
            throw CommandError::usage("--count needs --repeat");
        notification.totalRepeatCount = static_cast<int32_t>(*count);
    }
}

void NotificationOptions::readRegion(const Arguments& arguments, LocalNotificationFields& notification)
{
    bool entry = arguments.has("on-entry");
    bool exit = arguments.has("on-exit");
    auto text = arguments.text("region");
    if (!text) {
        if (entry || exit)
            throw CommandError::usage("--on-entry and --on-exit need --region");
        return;
    }
    // Three numbers, then whatever follows the third comma is the identifier.
    std::vector<std::string> parts;
    std::string rest = *text;
    for (int field = 0; field < 3; ++field) {
        size_t comma = rest.find(',');
        if (comma == std::string::npos && field < 2)
            throw CommandError::usage("--region takes LAT,LON,RADIUS[,ID]");
        parts.push_back(rest.substr(0, comma));
        rest = comma == std::string::npos ? "" : rest.substr(comma + 1);
    }
    RegionFields region;
    region.latitude = Arguments::parseNumber(parts[0], -90, 90, "the latitude of --region");
    region.longitude = Arguments::parseNumber(parts[1], -180, 180, "the longitude of --region");
    region.radius = Arguments::parseNumber(parts[2], 1, 1e7, "the radius of --region");
    region.identifier = rest;
    // Neither switch: both, as the record's default.
    region.notifyOnEntry = entry || !exit;
    region.notifyOnExit = exit || !entry;
    notification.region = region;
}

} // namespace tessel::ctl
