#include "platform/applications/ApplicationWorkspace.h"

#include "platform/Platform.h"

namespace tessel {

std::shared_ptr<ApplicationWorkspace> ApplicationWorkspace::defaultWorkspace()
{
    return Platform::isInstalled() ? Platform::current().workspace : nullptr;
}

} // namespace tessel
