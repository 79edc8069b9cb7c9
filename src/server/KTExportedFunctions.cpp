// The C interface's functions.
#include "local/KTLocalNotificationService.h"
#include "platform/Format.h"
#include "platform/LocationServices.h"
#include "platform/NotificationSettings.h"
#include "platform/Platform.h"
#include "platform/SystemLog.h"
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

void TesselSetRegionMonitoringAuthorization(const char* bundleIdentifier, int status)
{
    ensurePlatform();
    auto& platform = Platform::current();
    if (!bundleIdentifier || !platform.locationServices)
        return;
    if (status < LocationManager::NotDetermined || status > LocationManager::AuthorizedWhenInUse) {
        Platform::log(LogPriority::Error,
            format(
                "Region monitoring authorization %d for %s refused: not a status", status, bundleIdentifier));
        return;
    }
    platform.locationServices->setAuthorizationStatus(
        bundleIdentifier, static_cast<LocationManager::AuthorizationStatus>(status));
}

void TesselReportRegionCrossing(const char* regionIdentifier, bool entered)
{
    ensurePlatform();
    if (regionIdentifier && Platform::current().locationServices)
        Platform::current().locationServices->reportCrossing(regionIdentifier, entered);
}

char* _VYSAppNotificationStoreDirectory(void)
{
    ensurePlatform();
    return strdup(KTNotificationStore::storeDirectory().c_str());
}
}
