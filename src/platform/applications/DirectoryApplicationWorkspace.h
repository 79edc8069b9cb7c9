#pragma once

#include "platform/applications/ApplicationWorkspace.h"
#include "platform/files/FileManager.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

class Bundle;

// The registry over a directory of bundle directories ("<name>.tapp"), each
// application's data container at "<containers>/<identifier>". rescan() is how
// it learns of changes; something else (a directory watcher, an installer)
// decides when to call it. See docs/bundles.md for the rules.
class DirectoryApplicationWorkspace : public ApplicationWorkspace {
public:
    // Creates the applications directory when missing and scans it once.
    DirectoryApplicationWorkspace(std::string applicationsDirectory, std::string containersDirectory);
    ~DirectoryApplicationWorkspace() override;

    const std::string& applicationsDirectory() const { return _applicationsDirectory; }
    const std::string& containersDirectory() const { return _containersDirectory; }

    std::vector<std::shared_ptr<ApplicationProxy>> allInstalledApplications() override;
    std::shared_ptr<ApplicationProxy> applicationProxyForIdentifier(
        const std::string& bundleIdentifier) override;
    void addObserver(const std::shared_ptr<ApplicationWorkspaceObserver>& observer) override;
    void removeObserver(const std::shared_ptr<ApplicationWorkspaceObserver>& observer) override;

    // The bundle of an installed application, or null.
    std::shared_ptr<Bundle> bundleForIdentifier(const std::string& bundleIdentifier) override;

    // Re-reads the directory and tells observers, on this thread, what was
    // installed (new or changed) and uninstalled. Rescans run one at a time and
    // their notices arrive in order; an observer must not rescan from a notice.
    void rescan();

    // Usable as a file name under the containers directory.
    static bool isAcceptableIdentifier(std::string_view identifier);

private:
    struct Entry {
        std::shared_ptr<ApplicationProxy> record;
        std::shared_ptr<Bundle> bundle;
    };
    struct ScannedBundle {
        std::shared_ptr<Bundle> bundle;
        std::optional<FileManager::FileIdentity> manifestIdentity;
    };

    std::shared_ptr<Bundle> loadBundle(const std::string& path);

    const std::string _applicationsDirectory;
    const std::string _containersDirectory;

    // Held for a whole rescan, notices included.
    std::mutex _scanLock;
    // Only touched under _scanLock: bundles by path, kept while their manifest is unchanged.
    std::map<std::string, ScannedBundle> _scanned;

    std::mutex _lock;
    std::map<std::string, Entry, std::less<>> _applications;
    std::vector<std::weak_ptr<ApplicationWorkspaceObserver>> _observers;
};

} // namespace tessel
