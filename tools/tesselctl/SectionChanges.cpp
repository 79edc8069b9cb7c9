#include "tesselctl/SectionChanges.h"

#include "tesselctl/CommandError.h"

#include <tessel/services/Records.h>

namespace tessel::ctl {

namespace {

    bool onOff(const std::string& key, const std::string& value)
    {
        if (value == "on" || value == "off")
            return value == "on";
        throw CommandError::usage(key + " takes on or off, not \"" + value + "\"");
    }

    uint64_t typeBit(const std::string& key)
    {
        if (key == "sounds")
            return NotificationTypeSound;
        if (key == "badges")
            return NotificationTypeBadge;
        if (key == "alerts")
            return NotificationTypeAlert;
        return 0;
    }

} // namespace

Json SectionChanges::parse(const std::vector<std::string>& operands, uint64_t enabledTypes)
{
    Json changes = Json::object();
    bool typesChanged = false;
    for (const auto& operand : operands) {
        auto equals = operand.find('=');
        if (equals == std::string::npos)
            throw CommandError::usage("\"" + operand + "\" is not KEY=VALUE");
        std::string key = operand.substr(0, equals);
        std::string value = operand.substr(equals + 1);
        if (key == "alert-style") {
            if (value != "none" && value != "banner" && value != "alert")
                throw CommandError::usage("alert-style takes none, banner or alert, not \"" + value + "\"");
            changes["AlertStyle"] = value;
        } else if (uint64_t bit = typeBit(key)) {
            enabledTypes = onOff(key, value) ? enabledTypes | bit : enabledTypes & ~bit;
            typesChanged = true;
        } else if (key == "lock-screen") {
            changes["ShowsInLockScreen"] = onOff(key, value);
        } else if (key == "notification-centre") {
            changes["ShowsInNotificationCentre"] = onOff(key, value);
        } else {
            throw CommandError::usage("unknown setting \"" + key
                + "\": alert-style, sounds, badges, alerts, lock-screen or notification-centre");
        }
    }
    if (typesChanged)
        changes["EnabledTypes"] = enabledTypes;
    return changes;
}

} // namespace tessel::ctl
