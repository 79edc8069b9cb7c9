#include "platform/applications/ApplicationProxy.h"

#include "platform/applications/ApplicationWorkspace.h"

namespace tessel {

std::shared_ptr<ApplicationProxy> ApplicationProxy::applicationProxyForIdentifier(
    const std::string& bundleIdentifier)
{
    auto workspace = ApplicationWorkspace::defaultWorkspace();
    return workspace ? workspace->applicationProxyForIdentifier(bundleIdentifier) : nullptr;
}

} // namespace tessel
