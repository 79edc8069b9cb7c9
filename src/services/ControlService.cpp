#include "services/ControlService.h"

namespace tessel {

const std::string& ControlService::serverInterface()
{
    static const std::string name = "com.tamber.Tessel.Control1";
    return name;
}

const std::string& ControlService::objectPath()
{
    static const std::string path = "/com/tamber/Tessel/Control";
    return path;
}

} // namespace tessel
