#pragma once

#include "tesselctl/JsonPlist.h"

#include <tessel/services/Records.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel::ctl {

using Lines = std::vector<std::pair<std::string, std::string>>;

// A local notification as tesselctl shows it: a JSON object with every field
// (null for those not set), readable lines, and the pieces of a table row.
class NotificationJson {
public:
    static Json toJson(const LocalNotificationFields& notification);
    static Lines lines(const LocalNotificationFields& notification);

    // Title and body on one line.
    static std::string text(const LocalNotificationFields& notification);
    // Local time, or the wall-clock time in the notification's zone with its
    // name; "-" when due at once.
    static std::string fireDate(const LocalNotificationFields& notification);
    static std::string repeat(const LocalNotificationFields& notification);
    static std::string region(const LocalNotificationFields& notification);

    static std::optional<RepeatUnit> unit(std::string_view name);
    static const char* unitName(RepeatUnit unit);
};

} // namespace tessel::ctl
