// The C interface's functions.
#include "local/KTLocalNotificationService.h"
#include "platform/Format.h"
#include "platform/NotificationSettings.h"
#include "platform/Platform.h"
#include "platform/linux/LinuxPlatform.h"
#include "server/KTSystemStateProvidingCallbacksAdapter.h"
#include "server/KTTesselServer.h"
#include "settings/KTNotificationSettingsService.h"
#include "store/KTNotificationStore.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

void ensurePlatform()
{
    static std::mutex lock;
    std::lock_guard guard(lock);
    if (!Platform::isInstalled())
        Platform::install(LinuxPlatform::make());
}

} // namespace

extern "C" {

void KTTesselServerStart(const KTSystemStateProvidingCallbacks* systemStateProvider)
{
    KTSystemStateProvidingCallbacks callbacks {};
    if (systemStateProvider)
        callbacks = *systemStateProvider;
    ensurePlatform();
    tessel::KTTesselServerStart(std::make_shared<KTSystemStateProvidingCallbacksAdapter>(callbacks));
}

void KTClearNotificationsForBundleIdentifier(const char* bundleIdentifier)
{
    ensurePlatform();
    KTNotificationStore::sharedInstance()->clearNotificationsForBundleID(
        bundleIdentifier ? bundleIdentifier : "");
}

void KTSystemDidSetBadgeForBundleIdentifier(const char* bundleIdentifier)
{
    ensurePlatform();
    // An application whose badge the system set is thereby registered for badges.
    KTNotificationSettingsService::sharedInstance()->registerNotificationTypes(
        NotificationSettings::TypeBadge, bundleIdentifier ? bundleIdentifier : "");
}

bool KTIsAuthorizedForRegionMonitoring(const char* bundleIdentifier)
{
    ensurePlatform();
    if (!bundleIdentifier)
        return false;
    return KTLocalNotificationService::sharedInstance()->bundleIdentifierAuthorizedForRegionMonitoring(
        bundleIdentifier);
}

void KTTriggerLocationArrow(const char* bundleIdentifier)
{
    ensurePlatform();
    if (bundleIdentifier)
        KTLocalNotificationService::sharedInstance()->triggerLocationArrowForBundleIdentifier(
            bundleIdentifier);
}

char* _VYSAppNotificationStoreDirectory(void)
{
    ensurePlatform();
    return strdup(KTNotificationStore::storeDirectory().c_str());
}
}
