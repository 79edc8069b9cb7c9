#pragma once

#include "tesselctl/Invocation.h"

namespace tessel::ctl {

// An application's scheduled local notifications, through the scheduler
// client as the application would use it. Notifications are numbered from 1
// in the order of the daemon's list.
class ScheduleCommands {
public:
    static void schedule(const Invocation& invocation);
    static void list(const Invocation& invocation);
    static void cancel(const Invocation& invocation);
    static void snooze(const Invocation& invocation);
    static void fetch(const Invocation& invocation);
    static void observe(const Invocation& invocation);
};

} // namespace tessel::ctl
