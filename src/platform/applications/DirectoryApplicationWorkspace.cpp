#include "platform/applications/DirectoryApplicationWorkspace.h"

#include "platform/Platform.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/Bundle.h"
#include "platform/files/Path.h"
#include "platform/logging/SystemLog.h"

#include <algorithm>

namespace tessel {

namespace {

    bool sameRecord(const ApplicationProxy& a, const ApplicationProxy& b)
    {
        return a.bundleIdentifier() == b.bundleIdentifier() && a.isInstalled() == b.isInstalled()
            && a.applicationType() == b.applicationType() && a.bundlePath() == b.bundlePath()
            && a.dataContainerPath() == b.dataContainerPath() && a.localizedName() == b.localizedName()
            && a.entitlements() == b.entitlements();
    }

    std::shared_ptr<ApplicationProxy> uninstalledCopy(const ApplicationProxy& record)
    {
        return std::make_shared<ApplicationProxy>(ApplicationProxy::Fields {
            .bundleIdentifier = record.bundleIdentifier(),
            .installed = false,
            .applicationType = record.applicationType(),
            .bundlePath = record.bundlePath(),
            .dataContainerPath = record.dataContainerPath(),
            .localizedName = record.localizedName(),
            .entitlements = record.entitlements(),
        });
    }

} // namespace

DirectoryApplicationWorkspace::DirectoryApplicationWorkspace(
    std::string applicationsDirectory, std::string containersDirectory)
    : _applicationsDirectory(std::move(applicationsDirectory))
    , _containersDirectory(std::move(containersDirectory))
{
    std::string error;
    bool isDirectory = false;
    if (!(FileManager::fileExistsAtPath(_applicationsDirectory, &isDirectory) && isDirectory)
        && !FileManager::createDirectoryAtPath(_applicationsDirectory, true, &error))
        Platform::log(LogPriority::Error, "Applications directory unusable: " + error);
    rescan();
}

DirectoryApplicationWorkspace::~DirectoryApplicationWorkspace() = default;

bool DirectoryApplicationWorkspace::isAcceptableIdentifier(std::string_view identifier)
{
    // 255 bytes is the longest file name most file systems take.
    return !identifier.empty() && identifier.size() <= 255 && identifier != "."
        && identifier.find('/') == std::string_view::npos && identifier.find("..") == std::string_view::npos
        && identifier.find('\0') == std::string_view::npos;
}

std::vector<std::shared_ptr<ApplicationProxy>> DirectoryApplicationWorkspace::allInstalledApplications()
{
    std::lock_guard lock(_lock);
    std::vector<std::shared_ptr<ApplicationProxy>> records;
    records.reserve(_applications.size());
    for (const auto& [identifier, entry] : _applications)
        records.push_back(entry.record);
    return records;
}

std::shared_ptr<ApplicationProxy> DirectoryApplicationWorkspace::applicationProxyForIdentifier(
    const std::string& bundleIdentifier)
{
    std::lock_guard lock(_lock);
    auto found = _applications.find(bundleIdentifier);
    return found == _applications.end() ? nullptr : found->second.record;
}

std::shared_ptr<Bundle> DirectoryApplicationWorkspace::bundleForIdentifier(
    const std::string& bundleIdentifier)
{
    std::lock_guard lock(_lock);
    auto found = _applications.find(bundleIdentifier);
    return found == _applications.end() ? nullptr : found->second.bundle;
}

void DirectoryApplicationWorkspace::addObserver(const std::shared_ptr<ApplicationWorkspaceObserver>& observer)
{
    if (!observer)
        return;
    std::lock_guard lock(_lock);
    _observers.push_back(observer);
}

void DirectoryApplicationWorkspace::removeObserver(
    const std::shared_ptr<ApplicationWorkspaceObserver>& observer)
{
    std::lock_guard lock(_lock);
    std::erase_if(_observers, [&observer](const auto& weak) {
        auto strong = weak.lock();
        return !strong || strong == observer;
    });
}

void DirectoryApplicationWorkspace::rescan()
{
    std::lock_guard scanLock(_scanLock);
    std::string error;
    auto names = FileManager::contentsOfDirectoryAtPath(_applicationsDirectory, &error);
    if (!names) {
        // A directory we cannot read says nothing about what is installed.
        Platform::log(LogPriority::Error, "Cannot scan applications: " + error);
        return;
    }

    std::map<std::string, Entry, std::less<>> previous;
    {
        std::lock_guard lock(_lock);
        previous = _applications;
    }

    struct Candidate {
        std::string path;
        std::shared_ptr<Bundle> bundle;
        bool fresh;
    };
    std::map<std::string, std::vector<Candidate>> candidates;
    std::map<std::string, ScannedBundle> scanned;
    for (const auto& name : *names) {
        if (name.front() == '.' || Path::extension(name) != Bundle::bundleExtension)
            continue;
        auto path = Path::appendingComponent(_applicationsDirectory, name);
        // The manifest alone tells whether a bundle changed: installers replace
        // bundles whole, and a stat per bundle is most of what a rescan costs.
        ScannedBundle current {
            .manifestIdentity
            = FileManager::identityOfItemAtPath(Path::appendingComponent(path, Bundle::manifestFileName)),
        };
        if (!current.manifestIdentity) {
            bool isDirectory = false;
            if (!FileManager::fileExistsAtPath(path, &isDirectory) || !isDirectory)
                continue;
        }
        auto known = _scanned.find(path);
        bool fresh = known == _scanned.end() || known->second.manifestIdentity != current.manifestIdentity;
        // An unreadable directory reads as a bundle without a manifest and is skipped below.
        current.bundle = fresh ? std::make_shared<Bundle>(path) : known->second.bundle;
        auto bundle = current.bundle;
        scanned.emplace(path, std::move(current));
        if (!bundle)
            continue;
        auto identifier = bundle->bundleIdentifier();
        // Problems are logged when a bundle is first read, not on every rescan.
        if (identifier.empty()) {
            if (fresh)
                Platform::log(
                    LogPriority::Warning, "Skipping application bundle " + path + ": no identifier");
            continue;
        }
        if (!isAcceptableIdentifier(identifier)) {
            if (fresh)
                Platform::log(LogPriority::Warning,
                    "Skipping application bundle " + path + ": unusable identifier \"" + identifier + "\"");
            continue;
        }
        candidates[identifier].push_back({ path, bundle, fresh });
    }

    std::map<std::string, Entry, std::less<>> applications;
    std::vector<std::shared_ptr<ApplicationProxy>> installed;
    // A stat is much cheaper than a mkdir that fails (no lock on the parent),
    // and most containers exist.
    auto createContainer = [this](const std::string& path, std::string& error) {
        bool isDirectory = false;
        if (FileManager::fileExistsAtPath(path, &isDirectory) && isDirectory)
            return true;
        return FileManager::createDirectoryAtPath(_containersDirectory, true, &error)
            && (FileManager::createDirectoryAtPath(path, false, &error)
                || (FileManager::fileExistsAtPath(path, &isDirectory) && isDirectory));
    };
    for (auto& [identifier, bundles] : candidates) {
        auto old = previous.find(identifier);
        // The bundle that already had the identifier keeps it; otherwise the first by name.
        auto winner = bundles.begin();
        if (old != previous.end()) {
            auto same = std::find_if(bundles.begin(), bundles.end(), [&](const Candidate& candidate) {
                return candidate.path == old->second.bundle->bundlePath();
            });
            if (same != bundles.end())
                winner = same;
        }
        for (auto other = bundles.begin(); other != bundles.end(); ++other) {
            if (other != winner && (other->fresh || winner->fresh))
                Platform::log(LogPriority::Warning,
                    "Skipping application bundle " + other->path + ": \"" + identifier + "\" is already at "
                        + winner->path);
        }
        const auto& bundle = winner->bundle;
        const auto& info = bundle->infoDictionary();

        bool isNew = old == previous.end();
        std::string container;
        if (isNew || old->second.bundle != bundle) {
            container = Path::appendingComponent(_containersDirectory, identifier);
            if (!createContainer(container, error)) {
                Platform::log(LogPriority::Error, "No data container for " + identifier + ": " + error);
                container.clear();
            }
        } else {
            container = old->second.record->dataContainerPath();
        }
        const auto& entitlements = info[Bundle::entitlementsKey];
        auto record = std::make_shared<ApplicationProxy>(ApplicationProxy::Fields {
            .bundleIdentifier = identifier,
            .applicationType = info[Bundle::applicationTypeKey].stringValue() == "System" ? "System" : "User",
            .bundlePath = bundle->bundlePath(),
            .dataContainerPath = std::move(container),
            .localizedName = bundle->localizedDisplayName(),
            .entitlements = entitlements.isDictionary() ? entitlements : Value(Value::Dictionary {}),
        });
        if (!isNew && old->second.bundle == bundle && sameRecord(*old->second.record, *record)) {
            record = old->second.record;
        } else {
            installed.push_back(record);
        }
        applications.emplace(identifier, Entry { std::move(record), bundle });
    }

    std::vector<std::shared_ptr<ApplicationProxy>> uninstalled;
    for (const auto& [identifier, entry] : previous) {
        if (!applications.contains(identifier))
            uninstalled.push_back(uninstalledCopy(*entry.record));
    }
    _scanned = std::move(scanned);

    std::vector<std::shared_ptr<ApplicationWorkspaceObserver>> observers;
    {
        std::lock_guard lock(_lock);
        _applications = std::move(applications);
        std::erase_if(_observers, [&observers](const auto& weak) {
            auto strong = weak.lock();
            if (!strong)
                return true;
            observers.push_back(std::move(strong));
            return false;
        });
    }
    // One line per scan: a first scan may find hundreds.
    if (!installed.empty() || !uninstalled.empty())
        Platform::log(LogPriority::Info,
            "Applications: " + std::to_string(installed.size()) + " installed, "
                + std::to_string(uninstalled.size()) + " uninstalled");
    for (const auto& observer : observers) {
        if (!uninstalled.empty())
            observer->applicationsDidUninstall(uninstalled);
        if (!installed.empty())
            observer->applicationsDidInstall(installed);
    }
}

} // namespace tessel
