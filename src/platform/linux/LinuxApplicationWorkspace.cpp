#include "platform/linux/LinuxApplicationWorkspace.h"

#include "platform/Platform.h"
#include "platform/files/Path.h"
#include "platform/linux/DesktopEntry.h"
#include "platform/linux/DirectoryWatcher.h"
#include "platform/logging/SystemLog.h"

#include <algorithm>
#include <cstdlib>

namespace tessel {

namespace {

    std::string environment(const char* name)
    {
        const char* value = std::getenv(name);
        return value && *value ? std::string(value) : std::string();
    }

    bool isDirectory(const std::string& path)
    {
        bool directory = false;
        return FileManager::fileExistsAtPath(path, &directory) && directory;
    }

} // namespace

LinuxApplicationWorkspace::LinuxApplicationWorkspace(std::string applicationsDirectory,
    std::string containersDirectory, std::vector<std::string> desktopEntryDirectories,
    std::vector<std::string> systemDirectories)
    : DirectoryApplicationWorkspace(std::move(applicationsDirectory), std::move(containersDirectory),
        DeferFirstScan {}, std::move(systemDirectories))
    , _desktopEntryDirectories(std::move(desktopEntryDirectories))
{
    rescan();
}

LinuxApplicationWorkspace::~LinuxApplicationWorkspace() = default;

std::shared_ptr<LinuxApplicationWorkspace> LinuxApplicationWorkspace::make(
    const std::string& libraryDirectory, std::vector<std::string> desktopEntryDirectories)
{
    auto override = environment("TESSEL_APPS_DIR");
    return make(Directories {
        .applications
        = !override.empty() ? override : Path::appendingComponent(libraryDirectory, "Applications"),
        .containers = Path::appendingComponent(libraryDirectory, "Containers"),
        .desktopEntries = std::move(desktopEntryDirectories),
    });
}

std::shared_ptr<LinuxApplicationWorkspace> LinuxApplicationWorkspace::make(Directories directories)
{
    auto workspace = std::make_shared<LinuxApplicationWorkspace>(directories.applications,
        directories.containers, std::move(directories.desktopEntries), directories.system);
    std::weak_ptr<LinuxApplicationWorkspace> weak = workspace;
    auto watch = [&](const std::string& directory) {
        auto watcher = std::make_unique<DirectoryWatcher>(directory, [weak] {
            if (auto strong = weak.lock())
                strong->rescan();
        });
        if (!watcher->isWatching())
            Platform::log(LogPriority::Error, "Application changes go unnoticed: " + watcher->error());
        workspace->_watchers.push_back(std::move(watcher));
    };
    watch(directories.applications);
    // A directory made later goes unwatched until the next start.
    auto others = directories.system;
    others.insert(others.end(), workspace->_desktopEntryDirectories.begin(),
        workspace->_desktopEntryDirectories.end());
    for (const auto& directory : others) {
        if (isDirectory(directory))
            watch(directory);
    }
    // Catches what changed between the first scan and the watch.
    workspace->rescan();
    return workspace;
}

std::vector<std::string> LinuxApplicationWorkspace::defaultDesktopEntryDirectories()
{
    auto home = environment("HOME");
    auto dataHome = environment("XDG_DATA_HOME");
    auto dataDirs = environment("XDG_DATA_DIRS");
    std::vector<std::string> bases { dataHome.empty() && !home.empty() ? home + "/.local/share" : dataHome };
    if (dataDirs.empty())
        dataDirs = "/usr/local/share:/usr/share";
    for (size_t start = 0; start <= dataDirs.size();) {
        auto end = std::min(dataDirs.find(':', start), dataDirs.size());
        bases.push_back(dataDirs.substr(start, end - start));
        start = end + 1;
    }
    if (!home.empty())
        bases.push_back(home + "/.local/share/flatpak/exports/share");
    bases.push_back("/var/lib/flatpak/exports/share");
    std::vector<std::string> directories;
    for (const auto& base : bases) {
        // The XDG variables take absolute paths only; the rest are ignored.
        if (!base.starts_with('/'))
            continue;
        auto directory = Path::standardizing(Path::appendingComponent(base, "applications"));
        if (std::find(directories.begin(), directories.end(), directory) == directories.end())
            directories.push_back(std::move(directory));
    }
    return directories;
}

bool LinuxApplicationWorkspace::isWatching() const
{
    return !_watchers.empty() && std::all_of(_watchers.begin(), _watchers.end(), [](const auto& watcher) {
        return watcher->isWatching();
    });
}

std::vector<ApplicationProxy::Fields> LinuxApplicationWorkspace::scanBundlelessApplications()
{
    std::map<std::string, std::string> pathsById;
    for (const auto& directory : _desktopEntryDirectories)
        findDesktopFiles(directory, "", pathsById);
    static const std::vector<std::string> fallback { "en" };
    const auto& localizations
        = Platform::isInstalled() ? Platform::current().preferredLocalizations : fallback;
    std::map<std::string, ScannedEntry> scanned;
    std::vector<ApplicationProxy::Fields> applications;
    for (const auto& [identifier, path] : pathsById) {
        auto entry = scanDesktopFile(identifier, path, scanned);
        if (!entry || !entry->isApplication())
            continue;
        auto name = entry->localizedName(localizations);
        auto info = entry->info();
        if (entry->isDBusActivatable())
            info[std::string(LinuxApplicationWorkspace::dbusActivatableKey)] = true;
        applications.push_back({
            .bundleIdentifier = identifier,
            .applicationType = "User",
            .localizedName = name.empty() ? identifier : name,
            .entitlements = entry->entitlements(),
            .infoDictionary = std::move(info),
            .iconName = entry->iconName(),
        });
    }
    _scannedEntries = std::move(scanned);
    return applications;
}

// The directory and its subdirectories one level down, as far as the watcher
// sees. The first path found for an id keeps it, hidden or unreadable alike.
void LinuxApplicationWorkspace::findDesktopFiles(const std::string& directory, const std::string& prefix,
    std::map<std::string, std::string>& pathsById) const
{
    auto names = FileManager::contentsOfDirectoryAtPath(directory);
    if (!names)
        return;
    for (const auto& name : *names) {
        if (name.front() == '.')
            continue;
        auto path = Path::appendingComponent(directory, name);
        if (Path::extension(name) == DesktopEntry::fileExtension)
            pathsById.try_emplace(DesktopEntry::desktopFileId(prefix + name), path);
        else if (prefix.empty() && !FileManager::isSymbolicLinkAtPath(path) && isDirectory(path))
            findDesktopFiles(path, name + "/", pathsById);
    }
}

// Reads the file again only when it changed, so problems are logged once per version.
std::shared_ptr<const DesktopEntry> LinuxApplicationWorkspace::scanDesktopFile(const std::string& identifier,
    const std::string& path, std::map<std::string, ScannedEntry>& scanned) const
{
    ScannedEntry current { .identity = FileManager::identityOfItemAtPath(path) };
    auto known = _scannedEntries.find(path);
    if (known != _scannedEntries.end() && known->second.identity == current.identity) {
        current.entry = known->second.entry;
    } else if (!isAcceptableIdentifier(identifier)) {
        Platform::log(
            LogPriority::Warning, "Skipping desktop entry " + path + ": unusable id \"" + identifier + "\"");
    } else {
        std::string error;
        if (auto entry = DesktopEntry::read(path, &error))
            current.entry = std::make_shared<const DesktopEntry>(std::move(*entry));
        else
            Platform::log(LogPriority::Warning, "Skipping desktop entry " + path + ": " + error);
    }
    auto entry = current.entry;
    scanned.emplace(path, std::move(current));
    return entry;
}

} // namespace tessel
