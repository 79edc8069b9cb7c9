#pragma once

#include "platform/applications/DirectoryApplicationWorkspace.h"
#include "platform/files/FileManager.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

class DesktopEntry;
class DirectoryWatcher;

// The directory workspace kept current by directory watchers: applications in
// $TESSEL_APPS_DIR, else <Library>/Applications; containers in <Library>/Containers;
// and the machine's desktop entries as applications without a bundle.
class LinuxApplicationWorkspace : public DirectoryApplicationWorkspace {
public:
    // The info key, of a manifest or from a desktop entry, of an application
    // that is started through its org.freedesktop.Application interface.
    static constexpr std::string_view dbusActivatableKey = "DBusActivatable";

    struct Directories {
        std::string applications;
        std::string containers;
        // Read-only bundles of the system's own programs.
        std::vector<std::string> system;
        std::vector<std::string> desktopEntries = defaultDesktopEntryDirectories();
    };
    static std::shared_ptr<LinuxApplicationWorkspace> make(const std::string& libraryDirectory,
        std::vector<std::string> desktopEntryDirectories = defaultDesktopEntryDirectories());
    static std::shared_ptr<LinuxApplicationWorkspace> make(Directories directories);

    // An earlier desktop-entry directory wins for the same desktop-file id.
    LinuxApplicationWorkspace(std::string applicationsDirectory, std::string containersDirectory,
        std::vector<std::string> desktopEntryDirectories = {}, std::vector<std::string> systemDirectories = {});
    ~LinuxApplicationWorkspace() override;

    // $XDG_DATA_HOME, then each of $XDG_DATA_DIRS, each with "/applications",
    // then Flatpak's exports when not listed yet.
    static std::vector<std::string> defaultDesktopEntryDirectories();

    // False when some changes are not noticed (inotify unavailable).
    bool isWatching() const;

protected:
    std::vector<ApplicationProxy::Fields> scanBundlelessApplications() override;

private:
    struct ScannedEntry {
        std::optional<FileManager::FileIdentity> identity;
        // Null when the file was refused.
        std::shared_ptr<const DesktopEntry> entry;
    };
    void findDesktopFiles(const std::string& directory, const std::string& prefix,
        std::map<std::string, std::string>& pathsById) const;
    std::shared_ptr<const DesktopEntry> scanDesktopFile(const std::string& identifier,
        const std::string& path, std::map<std::string, ScannedEntry>& scanned) const;

    const std::vector<std::string> _desktopEntryDirectories;
    // Only touched by rescans, which run one at a time: entries by path, kept
    // while their file is unchanged.
    std::map<std::string, ScannedEntry> _scannedEntries;
    std::vector<std::unique_ptr<DirectoryWatcher>> _watchers;
};

} // namespace tessel
