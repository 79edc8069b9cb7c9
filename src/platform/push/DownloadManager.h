#pragma once

#include <string>
#include <vector>

namespace tessel {

// Background downloads of applications' content.
class DownloadManager {
public:
    virtual ~DownloadManager() = default;
    // Whether the applications may now download in the background has changed.
    virtual void reevaluateBackgroundDownloadsForBundleIdentifiers(
        const std::vector<std::string>& bundleIdentifiers)
        = 0;
};

} // namespace tessel
