#pragma once

#include "platform/applications/DirectoryApplicationWorkspace.h"
#include "platform/foundation/Value.h"

#include <map>
#include <string>

namespace tessel {

// What an installer would put on the device for one application.
struct SimulatedApplication {
    std::string identifier;
    std::string type = "User";
    std::string displayName;
    std::string developmentLocalization = "en";
    // Further manifest keys, e.g. { "KTRequiresLocalNotifications", true }.
    Value::Dictionary info;
    Value::Dictionary entitlements;
    // Relative path in the bundle (e.g. "ding.caf", "de.lang/ding.caf") to contents.
    std::map<std::string, Bytes> resources;
    // Localization to table name to entries, written in the text form.
    std::map<std::string, std::map<std::string, Value::Dictionary>> strings;
    // Relative path in the data container to contents.
    std::map<std::string, Bytes> containerFiles;
};

// The directory workspace of a simulated device, with an installer: installs
// write real bundle and container directories under the device's Library and
// rescan on the calling thread, so tests go through the same code as a device.
class SimulatedApplicationWorkspace : public DirectoryApplicationWorkspace {
public:
    // Applications in <Library>/Applications, containers in <Library>/Containers.
    explicit SimulatedApplicationWorkspace(const std::string& libraryDirectory);

    // Writes (or rewrites) the bundle, then rescans. A manifest that lacks a key
    // leaves it out, so bad applications can be installed too.
    bool install(const SimulatedApplication& application, std::string* error = nullptr);
    // Removes the bundle and the data container, then rescans.
    bool uninstall(const std::string& identifier, std::string* error = nullptr);

    // The bundle directory install() uses for the identifier.
    std::string bundlePathForInstall(const std::string& identifier) const;
};

} // namespace tessel
