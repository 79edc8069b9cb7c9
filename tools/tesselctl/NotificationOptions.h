#pragma once

#include "tesselctl/Arguments.h"

#include <tessel/services/Records.h>

namespace tessel::ctl {

// The local notification that schedule's options describe; any option that
// does not fit is a usage error naming it.
class NotificationOptions {
public:
    // now: seconds since the reference date, for --in.
    static LocalNotificationFields build(const Arguments& arguments, double now);

private:
    static void readDate(const Arguments& arguments, double now, LocalNotificationFields& notification);
    static void readRepeat(const Arguments& arguments, LocalNotificationFields& notification);
    static void readRegion(const Arguments& arguments, LocalNotificationFields& notification);
};

} // namespace tessel::ctl
