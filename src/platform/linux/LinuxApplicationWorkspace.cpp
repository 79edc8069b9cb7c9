#include "platform/linux/LinuxApplicationWorkspace.h"

#include "platform/Platform.h"
#include "platform/files/Path.h"
#include "platform/linux/DirectoryWatcher.h"
#include "platform/logging/SystemLog.h"

#include <cstdlib>

namespace tessel {

LinuxApplicationWorkspace::LinuxApplicationWorkspace(
    std::string applicationsDirectory, std::string containersDirectory)
    : DirectoryApplicationWorkspace(std::move(applicationsDirectory), std::move(containersDirectory))
{
}

LinuxApplicationWorkspace::~LinuxApplicationWorkspace() = default;

std::shared_ptr<LinuxApplicationWorkspace> LinuxApplicationWorkspace::make(
    const std::string& libraryDirectory)
{
    const char* override = std::getenv("TESSEL_APPS_DIR");
    auto applications = override && *override ? std::string(override)
                                              : Path::appendingComponent(libraryDirectory, "Applications");
    auto workspace = std::make_shared<LinuxApplicationWorkspace>(
        applications, Path::appendingComponent(libraryDirectory, "Containers"));
    std::weak_ptr<LinuxApplicationWorkspace> weak = workspace;
    workspace->_watcher = std::make_unique<DirectoryWatcher>(applications, [weak] {
        if (auto strong = weak.lock())
            strong->rescan();
    });
    if (!workspace->_watcher->isWatching()) {
        Platform::log(
            LogPriority::Error, "Application changes go unnoticed: " + workspace->_watcher->error());
    }
    // Catches what changed between the first scan and the watch.
    workspace->rescan();
    return workspace;
}

bool LinuxApplicationWorkspace::isWatching() const { return _watcher && _watcher->isWatching(); }

} // namespace tessel
