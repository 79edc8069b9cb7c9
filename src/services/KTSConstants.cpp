#include "services/KTSConstants.h"

namespace tessel {

const char* const KTSNotificationRegistrarServiceName = "com.tamber.Tessel.Registrar";
const char* const KTSNotificationSchedulerServiceName = "com.tamber.Tessel.Scheduler";
const char* const KTSNotificationRegistrarProxyEntitlementName = "com.tamber.tessel.registrar.proxy";
const char* const KTSNotificationRegistrarRemoteNotificationSettingsEntitlementName
    = "com.tamber.tessel.registrar.remote-notification-settings";
const char* const KTSNotificationSchedulerProxyEntitlementName = "com.tamber.tessel.scheduler.proxy";

} // namespace tessel
