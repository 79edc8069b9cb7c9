#pragma once

#include "platform/foundation/Value.h"

#include <memory>
#include <string>

namespace tessel {

class ApplicationProxy;
class Bundle;

// Questions the services ask about an application, answered from its record,
// bundle and info dictionary. All synchronous and callable from any queue;
// absent records answer null or false.

// The record of an installed application, else null.
std::shared_ptr<ApplicationProxy> kt_applicationProxyForBundleIdentifier(const std::string& bundleIdentifier);
std::shared_ptr<Bundle> kt_bundleForBundleIdentifier(const std::string& bundleIdentifier);

bool kt_isSystemApplication(const ApplicationProxy& application);
// Null when the record has no bundle location.
std::shared_ptr<Bundle> kt_bundle(const ApplicationProxy& application);
// The bundle's manifest; without a bundle, the record's own info dictionary.
Value kt_infoDictionary(const ApplicationProxy& application);
bool kt_requiresLocalNotification(const ApplicationProxy& application);
bool kt_usesLocalNotification(const ApplicationProxy& application);
bool kt_shouldUseDefaultDataProvider(const ApplicationProxy& application);

// A playable file for the sound an application named, inside its data
// container's Library/Sounds or else its bundle; empty when there is none.
// Names are the application's to choose, so nothing outside those two places
// is ever answered.
std::string kt_pathForSoundName(const ApplicationProxy& application, const std::string& soundName);
// The path starts with the container path (a plain prefix test), is not itself
// a symbolic link, and exists.
bool _kt_isResourceValidForPath(const std::string& path, const std::string& containerPath);

} // namespace tessel
