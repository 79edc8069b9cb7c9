#pragma once

#include "platform/applications/ApplicationProxy.h"
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
// application's data container at "<containers>/<identifier>", plus the
// applications without a bundle that a subclass supplies. rescan() is how it
// learns of changes; something else (a directory watcher, an installer)
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

protected:
    // For a subclass whose scanBundlelessApplications() needs its own members:
    // the subclass calls rescan() once they are ready.
    struct DeferFirstScan { };
    // Bundles in systemDirectories (the system's own, read-only) are installed
    // too; a bundle of the applications directory comes first.
    DirectoryApplicationWorkspace(std::string applicationsDirectory, std::string containersDirectory,
        DeferFirstScan, std::vector<std::string> systemDirectories = {});

    // Applications without a bundle, asked for on every rescan (never two at
    // once). Each gets a data container like a bundle's; a bundle with the same
    // identifier wins, as does an earlier record, and an identifier unusable as
    // a file name is dropped.
    virtual std::vector<ApplicationProxy::Fields> scanBundlelessApplications() { return {}; }

private:
    struct Entry {
        std::shared_ptr<ApplicationProxy> record;
        // Null for a bundleless application.
        std::shared_ptr<Bundle> bundle;
    };
    using Applications = std::map<std::string, Entry, std::less<>>;
    using Records = std::vector<std::shared_ptr<ApplicationProxy>>;
    using Observers = std::vector<std::shared_ptr<ApplicationWorkspaceObserver>>;
    struct ScannedBundle {
        std::shared_ptr<Bundle> bundle;
        std::optional<FileManager::FileIdentity> manifestIdentity;
    };
    struct Candidate {
        std::string path;
        std::shared_ptr<Bundle> bundle;
        bool fresh; // read on this scan
    };
    // Bundles that claim an identifier, by identifier.
    using Candidates = std::map<std::string, std::vector<Candidate>>;

    // The steps of a rescan, in order.
    // Bundle paths of every directory, the applications directory's first;
    // absent when a directory exists but cannot be read.
    std::optional<std::vector<std::string>> listBundlePaths() const;
    Candidates scanBundles(const std::vector<std::string>& paths);
    std::optional<Candidate> scanBundle(
        const std::string& path, std::map<std::string, ScannedBundle>& scanned) const;
    Applications chooseApplications(const Candidates& candidates,
        std::vector<ApplicationProxy::Fields> bundleless, const Applications& previous,
        Records& installed) const;
    static const Candidate& chooseBundle(
        const std::string& identifier, const std::vector<Candidate>& bundles, const Entry* previous);
    std::shared_ptr<ApplicationProxy> makeRecord(
        const std::string& identifier, const std::shared_ptr<Bundle>& bundle, const Entry* previous) const;
    std::string dataContainer(
        const std::string& identifier, const std::shared_ptr<Bundle>& bundle, const Entry* previous) const;
    bool createContainer(const std::string& path, std::string& error) const;
    static Records uninstalledSince(const Applications& previous, const Applications& current);
    Observers replaceApplications(Applications applications);
    static void notify(const Observers& observers, const Records& installed, const Records& uninstalled);

    const std::string _applicationsDirectory;
    const std::string _containersDirectory;
    const std::vector<std::string> _systemDirectories;

    // Held for a whole rescan, notices included.
    std::mutex _scanLock;
    // Only touched under _scanLock: bundles by path, kept while their manifest is unchanged.
    std::map<std::string, ScannedBundle> _scanned;

    std::mutex _lock;
    Applications _applications;
    std::vector<std::weak_ptr<ApplicationWorkspaceObserver>> _observers;
};

} // namespace tessel
