#pragma once

#include "platform/applications/DirectoryApplicationWorkspace.h"

#include <memory>
#include <string>

namespace tessel {

class DirectoryWatcher;

// The directory workspace kept current by a directory watcher: applications in
// $TESSEL_APPS_DIR, else <Library>/Applications; containers in <Library>/Containers.
class LinuxApplicationWorkspace : public DirectoryApplicationWorkspace {
public:
    static std::shared_ptr<LinuxApplicationWorkspace> make(const std::string& libraryDirectory);

    LinuxApplicationWorkspace(std::string applicationsDirectory, std::string containersDirectory);
    ~LinuxApplicationWorkspace() override;

    // False when changes are not noticed (inotify unavailable).
    bool isWatching() const;

private:
    std::unique_ptr<DirectoryWatcher> _watcher;
};

} // namespace tessel
