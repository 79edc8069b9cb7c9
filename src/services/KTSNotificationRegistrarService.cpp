#include "services/KTSNotificationRegistrarService.h"

namespace tessel {

const std::string& KTSNotificationRegistrarService::serverInterface()
{
    static const std::string name = "com.tamber.Tessel.Registrar1";
    return name;
}

const std::string& KTSNotificationRegistrarService::clientInterface()
{
    static const std::string name = "com.tamber.Tessel.RegistrarClient1";
    return name;
}

const std::string& KTSNotificationRegistrarService::objectPath()
{
    static const std::string path = "/com/tamber/Tessel/Registrar";
    return path;
}

} // namespace tessel
