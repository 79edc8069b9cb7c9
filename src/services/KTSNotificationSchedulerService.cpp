#include "services/KTSNotificationSchedulerService.h"

namespace tessel {

const std::string& KTSNotificationSchedulerService::serverInterface()
{
    static const std::string name = "com.tamber.Tessel.Scheduler1";
    return name;
}

const std::string& KTSNotificationSchedulerService::clientInterface()
{
    static const std::string name = "com.tamber.Tessel.SchedulerClient1";
    return name;
}

const std::string& KTSNotificationSchedulerService::objectPath()
{
    static const std::string path = "/com/tamber/Tessel/Scheduler";
    return path;
}

} // namespace tessel
