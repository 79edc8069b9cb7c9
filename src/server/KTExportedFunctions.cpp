// The C interface's functions.
#include "local/KTLocalNotificationService.h"
#include "platform/Platform.h"
#include "platform/archive/PropertyList.h"
#include "platform/foundation/Format.h"
#include "platform/linux/LinuxPushService.h"
#include "platform/location/LocationServices.h"
#include "platform/logging/SystemLog.h"
#include "platform/records/NotificationSettings.h"
#include "server/KTSystemStateProvidingCallbacksAdapter.h"
#include "server/KTTesselServer.h"
#include "services/KTSPowerLog.h"
#include "settings/KTNotificationSettingsService.h"
#include "store/KTNotificationStore.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <tessel/Tessel.h>

using namespace tessel;

extern "C" {

void KTTesselServerStart(const KTSystemStateProvidingCallbacks* systemStateProvider)
{
    KTSystemStateProvidingCallbacks callbacks {};
    if (systemStateProvider)
        callbacks = *systemStateProvider;
    ensurePlatformInstalled();
    tessel::KTTesselServerStart(std::make_shared<KTSystemStateProvidingCallbacksAdapter>(callbacks));
}

void KTClearNotificationsForBundleIdentifier(const char* bundleIdentifier)
{
    ensurePlatformInstalled();
    KTNotificationStore::sharedInstance()->clearNotificationsForBundleID(
        bundleIdentifier ? bundleIdentifier : "");
}

void KTSystemDidSetBadgeForBundleIdentifier(const char* bundleIdentifier)
{
    ensurePlatformInstalled();
    // An application whose badge the system set is thereby registered for badges.
    KTNotificationSettingsService::sharedInstance()->registerNotificationTypes(
        NotificationSettings::TypeBadge, bundleIdentifier ? bundleIdentifier : "");
}

bool TesselInjectPushMessage(const char* environment, const char* topic, const uint8_t* payload,
    size_t payloadLength, int64_t priority, double date)
{
    ensurePlatformInstalled();
    auto service = std::dynamic_pointer_cast<LinuxPushService>(Platform::current().pushService);
    if (!service || !environment || !topic || (!payload && payloadLength))
        return false;
    std::string error = "not a dictionary";
    auto userInfo = payload ? PropertyList::read(payload, payloadLength, &error) : std::nullopt;
    if (!userInfo || !userInfo->isDictionary()) {
        Platform::log(LogPriority::Error, format("Push message for %s refused: %@", topic, error));
        return false;
    }
    return service->injectIncomingMessage(environment, { topic, std::move(*userInfo), priority, Date(date) });
}

void _KTPostRemoteNotificationRecievedPowerNotification(int32_t pid, const char* bundleIdentifier)
{
    tessel::_KTPostRemoteNotificationRecievedPowerNotification(pid, bundleIdentifier ? bundleIdentifier : "");
}

bool KTIsAuthorizedForRegionMonitoring(const char* bundleIdentifier)
{
    ensurePlatformInstalled();
    if (!bundleIdentifier)
        return false;
    return KTLocalNotificationService::sharedInstance()->bundleIdentifierAuthorizedForRegionMonitoring(
        bundleIdentifier);
}

void KTTriggerLocationArrow(const char* bundleIdentifier)
{
    ensurePlatformInstalled();
    if (bundleIdentifier)
        KTLocalNotificationService::sharedInstance()->triggerLocationArrowForBundleIdentifier(
            bundleIdentifier);
}

void TesselSetRegionMonitoringAuthorization(const char* bundleIdentifier, int status)
{
    ensurePlatformInstalled();
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
    ensurePlatformInstalled();
    if (regionIdentifier && Platform::current().locationServices)
        Platform::current().locationServices->reportCrossing(regionIdentifier, entered);
}

char* _VYSAppNotificationStoreDirectory(void)
{
    ensurePlatformInstalled();
    return strdup(KTNotificationStore::storeDirectory().c_str());
}
}
