#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tessel {

class ApplicationProxy;
class Bundle;

// Told of installs and uninstalls, on whatever thread the workspace learns of them.
class ApplicationWorkspaceObserver {
public:
    virtual ~ApplicationWorkspaceObserver() = default;
    virtual void applicationsDidInstall(const std::vector<std::shared_ptr<ApplicationProxy>>& applications)
        = 0;
    virtual void applicationsDidUninstall(const std::vector<std::shared_ptr<ApplicationProxy>>& applications)
        = 0;
};

// The registry of installed applications.
class ApplicationWorkspace {
public:
    virtual ~ApplicationWorkspace() = default;

    // The installed platform's workspace.
    static std::shared_ptr<ApplicationWorkspace> defaultWorkspace();

    virtual std::vector<std::shared_ptr<ApplicationProxy>> allInstalledApplications() = 0;
    // Null when the identifier names no known application.
    virtual std::shared_ptr<ApplicationProxy> applicationProxyForIdentifier(
        const std::string& bundleIdentifier)
        = 0;
    // The workspace's open bundle of a known application, or null.
    virtual std::shared_ptr<Bundle> bundleForIdentifier(const std::string& bundleIdentifier) = 0;
    // Observers are not retained: one that is gone is skipped.
    virtual void addObserver(const std::shared_ptr<ApplicationWorkspaceObserver>& observer) = 0;
    virtual void removeObserver(const std::shared_ptr<ApplicationWorkspaceObserver>& observer) = 0;
};

} // namespace tessel
