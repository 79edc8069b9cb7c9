#include "platform/ipc/AuditToken.h"

#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/ApplicationWorkspace.h"
#include "platform/processes/ProcessManager.h"

namespace tessel {

Value entitlementValueForAuditToken(const AuditToken& token, std::string_view key)
{
    auto& platform = Platform::current();
    if (!platform.processManager || !platform.workspace)
        return {};
    auto process = platform.processManager->processForPid(token.pid);
    if (!process)
        return {};
    auto application = platform.workspace->applicationProxyForIdentifier(process->bundleIdentifier());
    if (!application)
        return {};
    return application->entitlementValueForKey(key);
}

} // namespace tessel
