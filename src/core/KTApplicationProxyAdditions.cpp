#include "core/KTApplicationProxyAdditions.h"

#include "core/KTSafeBoolValue.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/ApplicationWorkspace.h"
#include "platform/applications/Bundle.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"

namespace tessel {

std::shared_ptr<ApplicationProxy> kt_applicationProxyForBundleIdentifier(const std::string& bundleIdentifier)
{
    auto application = ApplicationProxy::applicationProxyForIdentifier(bundleIdentifier);
    return application && application->isInstalled() ? application : nullptr;
}

std::shared_ptr<Bundle> kt_bundleForBundleIdentifier(const std::string& bundleIdentifier)
{
    auto application = kt_applicationProxyForBundleIdentifier(bundleIdentifier);
    return application ? kt_bundle(*application) : nullptr;
}

bool kt_isSystemApplication(const ApplicationProxy& application)
{
    return application.applicationType() == "System";
}

std::shared_ptr<Bundle> kt_bundle(const ApplicationProxy& application)
{
    if (application.bundlePath().empty())
        return nullptr;
    // The workspace keeps its bundles open with their tables; reuse one that
    // sits where the record says.
    if (auto workspace = ApplicationWorkspace::defaultWorkspace()) {
        auto open = workspace->bundleForIdentifier(application.bundleIdentifier());
        if (open && open->bundlePath() == application.bundlePath())
            return open;
    }
    return Bundle::bundleWithPath(application.bundlePath());
}

Value kt_infoDictionary(const ApplicationProxy& application)
{
    auto bundle = kt_bundle(application);
    return bundle ? bundle->infoDictionary() : application.infoDictionary();
}

bool kt_requiresLocalNotification(const ApplicationProxy& application)
{
    return kt_isSystemApplication(application)
        && kt_safeBoolValue(kt_infoDictionary(application)["KTRequiresLocalNotifications"]);
}

bool kt_usesLocalNotification(const ApplicationProxy& application)
{
    return kt_safeBoolValue(kt_infoDictionary(application)["VYAppUsesLocalNotifications"]);
}

bool kt_shouldUseDefaultDataProvider(const ApplicationProxy& application)
{
    if (!application.isInstalled())
        return false;
    return !kt_isSystemApplication(application) || kt_usesLocalNotification(application);
}

bool _kt_isResourceValidForPath(const std::string& path, const std::string& containerPath)
{
    return path.starts_with(containerPath) && !FileManager::isSymbolicLinkAtPath(path)
        && FileManager::fileExistsAtPath(path);
}

std::string kt_pathForSoundName(const ApplicationProxy& application, const std::string& soundName)
{
    // An empty name would name the sounds directory itself; a NUL would let the
    // file system see another name than the one checked.
    if (soundName.empty() || soundName.find('\0') != std::string::npos)
        return {};
    if (!application.dataContainerPath().empty()) {
        auto container = Path::standardizing(application.dataContainerPath());
        auto sounds = Path::appendingComponent(Path::appendingComponent(container, "Library"), "Sounds");
        auto candidate = Path::standardizing(Path::appendingComponent(sounds, soundName));
        if (_kt_isResourceValidForPath(candidate, sounds))
            return candidate;
    }
    auto bundle = kt_bundle(application);
    if (!bundle)
        return {};
    auto resource = bundle->pathForResource(soundName, "");
    if (resource.empty())
        return {};
    auto candidate = Path::standardizing(resource);
    return _kt_isResourceValidForPath(candidate, Path::standardizing(bundle->bundlePath())) ? candidate
                                                                                            : std::string();
}

} // namespace tessel
