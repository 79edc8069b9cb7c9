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
            && a.entitlements() == b.entitlements() && a.infoDictionary() == b.infoDictionary()
            && a.iconName() == b.iconName();
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
            .infoDictionary = record.infoDictionary(),
            .iconName = record.iconName(),
        });
    }

    // Problems are logged when a bundle is first read, not on every rescan.
    bool isUsableIdentifier(const std::string& identifier, const std::string& path, bool fresh)
    {
        if (identifier.empty()) {
            if (fresh)
                Platform::log(
                    LogPriority::Warning, "Skipping application bundle " + path + ": no identifier");
            return false;
        }
        if (!DirectoryApplicationWorkspace::isAcceptableIdentifier(identifier)) {
            if (fresh)
                Platform::log(LogPriority::Warning,
                    "Skipping application bundle " + path + ": unusable identifier \"" + identifier + "\"");
            return false;
        }
        return true;
    }

} // namespace

DirectoryApplicationWorkspace::DirectoryApplicationWorkspace(
    std::string applicationsDirectory, std::string containersDirectory)
    : DirectoryApplicationWorkspace(
        std::move(applicationsDirectory), std::move(containersDirectory), DeferFirstScan {})
{
    rescan();
}

DirectoryApplicationWorkspace::DirectoryApplicationWorkspace(std::string applicationsDirectory,
    std::string containersDirectory, DeferFirstScan, std::vector<std::string> systemDirectories)
    : _applicationsDirectory(std::move(applicationsDirectory))
    , _containersDirectory(std::move(containersDirectory))
    , _systemDirectories(std::move(systemDirectories))
{
    std::string error;
    bool isDirectory = false;
    if (!(FileManager::fileExistsAtPath(_applicationsDirectory, &isDirectory) && isDirectory)
        && !FileManager::createDirectoryAtPath(_applicationsDirectory, true, &error))
        Platform::log(LogPriority::Error, "Applications directory unusable: " + error);
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
    auto paths = listBundlePaths();
    if (!paths)
        return;
    Applications previous;
    {
        std::lock_guard lock(_lock);
        previous = _applications;
    }
    auto candidates = scanBundles(*paths);
    Records installed;
    auto applications = chooseApplications(candidates, scanBundlelessApplications(), previous, installed);
    auto uninstalled = uninstalledSince(previous, applications);
    notify(replaceApplications(std::move(applications)), installed, uninstalled);
}

std::optional<std::vector<std::string>> DirectoryApplicationWorkspace::listBundlePaths() const
{
    std::vector<std::string> directories { _applicationsDirectory };
    for (const auto& directory : _systemDirectories) {
        // A missing system directory installs nothing.
        if (FileManager::fileExistsAtPath(directory))
            directories.push_back(directory);
    }
    std::vector<std::string> paths;
    for (const auto& directory : directories) {
        std::string error;
        auto names = FileManager::contentsOfDirectoryAtPath(directory, &error);
        if (!names) {
            // A directory we cannot read says nothing about what is installed.
            Platform::log(LogPriority::Error, "Cannot scan applications: " + error);
            return std::nullopt;
        }
        for (const auto& name : *names)
            if (name.front() != '.' && Path::extension(name) == Bundle::bundleExtension)
                paths.push_back(Path::appendingComponent(directory, name));
    }
    return paths;
}

DirectoryApplicationWorkspace::Candidates DirectoryApplicationWorkspace::scanBundles(
    const std::vector<std::string>& paths)
{
    Candidates candidates;
    std::map<std::string, ScannedBundle> scanned;
    for (const auto& path : paths) {
        auto candidate = scanBundle(path, scanned);
        if (!candidate)
            continue;
        auto identifier = candidate->bundle->bundleIdentifier();
        if (isUsableIdentifier(identifier, candidate->path, candidate->fresh))
            candidates[identifier].push_back(std::move(*candidate));
    }
    _scanned = std::move(scanned);
    return candidates;
}

// Reads the bundle at path again only when its manifest changed, and records it in scanned.
std::optional<DirectoryApplicationWorkspace::Candidate> DirectoryApplicationWorkspace::scanBundle(
    const std::string& path, std::map<std::string, ScannedBundle>& scanned) const
{
    // The manifest alone tells whether a bundle changed: installers replace
    // bundles whole, and a stat per bundle is most of what a rescan costs.
    ScannedBundle current {
        .manifestIdentity
        = FileManager::identityOfItemAtPath(Path::appendingComponent(path, Bundle::manifestFileName)),
    };
    if (!current.manifestIdentity) {
        bool isDirectory = false;
        if (!FileManager::fileExistsAtPath(path, &isDirectory) || !isDirectory)
            return std::nullopt;
    }
    auto known = _scanned.find(path);
    bool fresh = known == _scanned.end() || known->second.manifestIdentity != current.manifestIdentity;
    // An unreadable directory reads as a bundle without a manifest and is skipped later.
    current.bundle = fresh ? std::make_shared<Bundle>(path) : known->second.bundle;
    auto bundle = current.bundle;
    scanned.emplace(path, std::move(current));
    if (!bundle)
        return std::nullopt;
    return Candidate { path, std::move(bundle), fresh };
}

DirectoryApplicationWorkspace::Applications DirectoryApplicationWorkspace::chooseApplications(
    const Candidates& candidates, std::vector<ApplicationProxy::Fields> bundleless,
    const Applications& previous, Records& installed) const
{
    auto previousEntry = [&previous](const std::string& identifier) -> const Entry* {
        auto old = previous.find(identifier);
        return old == previous.end() ? nullptr : &old->second;
    };
    Applications applications;
    for (const auto& [identifier, bundles] : candidates) {
        const Entry* oldEntry = previousEntry(identifier);
        const auto& bundle = chooseBundle(identifier, bundles, oldEntry).bundle;
        applications.emplace(identifier, Entry { makeRecord(identifier, bundle, oldEntry), bundle });
    }
    for (auto& fields : bundleless) {
        auto identifier = fields.bundleIdentifier;
        if (!isAcceptableIdentifier(identifier) || applications.contains(identifier))
            continue;
        fields.installed = true;
        fields.bundlePath.clear();
        fields.dataContainerPath = dataContainer(identifier, nullptr, previousEntry(identifier));
        applications.emplace(
            identifier, Entry { std::make_shared<ApplicationProxy>(std::move(fields)), nullptr });
    }
    // Unchanged applications keep their record objects and go unannounced.
    for (auto& [identifier, entry] : applications) {
        const Entry* oldEntry = previousEntry(identifier);
        if (oldEntry && oldEntry->bundle == entry.bundle && sameRecord(*oldEntry->record, *entry.record))
            entry.record = oldEntry->record;
        else
            installed.push_back(entry.record);
    }
    return applications;
}

// The bundle that already had the identifier keeps it; otherwise the first by name.
const DirectoryApplicationWorkspace::Candidate& DirectoryApplicationWorkspace::chooseBundle(
    const std::string& identifier, const std::vector<Candidate>& bundles, const Entry* previous)
{
    auto winner = bundles.begin();
    if (previous) {
        auto same = std::find_if(bundles.begin(), bundles.end(),
            [&](const Candidate& candidate) { return candidate.path == previous->bundle->bundlePath(); });
        if (same != bundles.end())
            winner = same;
    }
    for (auto other = bundles.begin(); other != bundles.end(); ++other) {
        if (other != winner && (other->fresh || winner->fresh))
            Platform::log(LogPriority::Warning,
                "Skipping application bundle " + other->path + ": \"" + identifier + "\" is already at "
                    + winner->path);
    }
    return *winner;
}

std::shared_ptr<ApplicationProxy> DirectoryApplicationWorkspace::makeRecord(
    const std::string& identifier, const std::shared_ptr<Bundle>& bundle, const Entry* previous) const
{
    const auto& info = bundle->infoDictionary();
    auto container = dataContainer(identifier, bundle, previous);
    const auto& entitlements = info[Bundle::entitlementsKey];
    return std::make_shared<ApplicationProxy>(ApplicationProxy::Fields {
        .bundleIdentifier = identifier,
        .applicationType = info[Bundle::applicationTypeKey].stringValue() == "System" ? "System" : "User",
        .bundlePath = bundle->bundlePath(),
        .dataContainerPath = std::move(container),
        .localizedName = bundle->localizedDisplayName(),
        .entitlements = entitlements.isDictionary() ? entitlements : Value(Value::Dictionary {}),
    });
}

// An unchanged bundle, or a bundleless application that stays one, keeps its
// container; otherwise it is made.
std::string DirectoryApplicationWorkspace::dataContainer(
    const std::string& identifier, const std::shared_ptr<Bundle>& bundle, const Entry* previous) const
{
    if (previous && previous->bundle == bundle)
        return previous->record->dataContainerPath();
    auto container = Path::appendingComponent(_containersDirectory, identifier);
    std::string error;
    if (createContainer(container, error))
        return container;
    Platform::log(LogPriority::Error, "No data container for " + identifier + ": " + error);
    return {};
}

// A stat is much cheaper than a mkdir that fails (no lock on the parent), and
// most containers exist.
bool DirectoryApplicationWorkspace::createContainer(const std::string& path, std::string& error) const
{
    bool isDirectory = false;
    if (FileManager::fileExistsAtPath(path, &isDirectory) && isDirectory)
        return true;
    return FileManager::createDirectoryAtPath(_containersDirectory, true, &error)
        && (FileManager::createDirectoryAtPath(path, false, &error)
            || (FileManager::fileExistsAtPath(path, &isDirectory) && isDirectory));
}

DirectoryApplicationWorkspace::Records DirectoryApplicationWorkspace::uninstalledSince(
    const Applications& previous, const Applications& current)
{
    Records uninstalled;
    for (const auto& [identifier, entry] : previous) {
        if (!current.contains(identifier))
            uninstalled.push_back(uninstalledCopy(*entry.record));
    }
    return uninstalled;
}

// Answers the observers still alive, forgetting the others.
DirectoryApplicationWorkspace::Observers DirectoryApplicationWorkspace::replaceApplications(
    Applications applications)
{
    Observers observers;
    std::lock_guard lock(_lock);
    _applications = std::move(applications);
    std::erase_if(_observers, [&observers](const auto& weak) {
        auto strong = weak.lock();
        if (!strong)
            return true;
        observers.push_back(std::move(strong));
        return false;
    });
    return observers;
}

void DirectoryApplicationWorkspace::notify(
    const Observers& observers, const Records& installed, const Records& uninstalled)
{
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
