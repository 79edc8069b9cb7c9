#include <tessel/Tessel.h>

extern "C" {
const char* const KTNotificationStoreMessageKey = "AppNotificationMessage";
const char* const KTNotificationStoreTitleKey = "AppNotificationTitle";
const char* const KTNotificationStoreCreationDateKey = "AppNotificationCreationDate";
const char* const KTNotificationStoreSoundKey = "AppNotificationSoundName";
const char* const KTNotificationStoreActionTextKey = "AppNotificationActionText";
const char* const KTNotificationStoreBadgeNumberKey = "AppNotificationBadgeNumber";
const char* const KTNotificationStoreSoundIsRingtoneKey = "AppNotificationHasRingtone";
const char* const KTNotificationStoreUserInfoKey = "AppNotificationUserInfo";
const char* const KTNotificationStoreLaunchImageKey = "AppNotificationLaunchImage";
const char* const KTNotificationStoreCategoryKey = "VYSPushStoreNotificationCategoryKey";
const char* const KTNotificationStoreImageURLKey = "VYSPushStoreImageURLKey";
const char* const KTNotificationStoreNotificationTypeKey = "AppNotificationType";
const char* const KTNotificationStoreLocalNotificationDataKey = "AppNotificationDetails";
const char* const KTNotificationLocalNotificationDataKey = "BulletinContextNotificationData";
const char* const kKTNotificationStoreSoundDefault = "AppNotificationSoundDefault";
const char* const kKTNotificationStoreNotificationTypeRemote = "AppNotificationRemote";
const char* const kKTNotificationStoreNotificationTypeLocal = "AppNotificationLocal";

const char* const KTNotificationSettingsDidChangeNotification = "KTNotificationSettingsDidChangeNotification";
const char* const KTNotificationBundleIdentifierKey = "KTNotificationBundleIdentifierKey";
const char* const KTNotificationEnabledKey = "KTNotificationEnabledKey";
// Plural name, singular value: both are relied upon.
const char* const KTLocalNotificationsDidChangeNotification = "KTLocalNotificationDidChangeNotification";
const char* const KTLocalNotificationDidFireNotification = "KTLocalNotificationDidFireNotification";
const char* const KTLocalNotificationsKey = "LocalNotifications";
const char* const KTBundleIdentifierKey = "BundleIdentifier";

const char* const KTApplicationDataStoreLocalNotificationsKey = "VYApplicationLocalNotifications";
const char* const KTApplicationDataStoreLocalNotificationsLastFireDateKey
    = "VYApplicationLocalNotificationsLastFireDate";

const char* const KTLocalNotificationsSchedulingProxyEntitlement
    = "com.tamber.localnotification.schedulingproxy";
const char* const KTRemoteNotificationsEnvironmentEntitlement = "rlx-environment";
const char* const KTRemoteNotificationsPreferencesEntitlement = "com.tamber.remotenotification.preferences";

const char* const KTRemoteNotificationLoggingPreferenceKey = "KTRemoteNotificationLogging";
const char* const KTLocalNotificationLoggingPreferenceKey = "KTLocalNotificationLogging";

const char* const kKTNotificationAuthorizationAlertBundleIdentifierKey
    = "VYUserNotificationPermissionAlertBundleIdentifier";
}
