#ifndef TESSEL_TESSEL_H
#define TESSEL_TESSEL_H

/* The C interface of the Tessel notification server library. */

#include <tessel/TesselExport.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

TESSEL_EXPORT extern const double TesselVersionNumber;
TESSEL_EXPORT extern const unsigned char TesselVersionString[];

/* Keys of a stored notification record. */
TESSEL_EXPORT extern const char* const KTNotificationStoreMessageKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreTitleKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreCreationDateKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreSoundKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreActionTextKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreBadgeNumberKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreSoundIsRingtoneKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreUserInfoKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreLaunchImageKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreCategoryKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreImageURLKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreNotificationTypeKey;
TESSEL_EXPORT extern const char* const KTNotificationStoreLocalNotificationDataKey;
TESSEL_EXPORT extern const char* const KTNotificationLocalNotificationDataKey;
TESSEL_EXPORT extern const char* const kKTNotificationStoreSoundDefault;
TESSEL_EXPORT extern const char* const kKTNotificationStoreNotificationTypeRemote;
TESSEL_EXPORT extern const char* const kKTNotificationStoreNotificationTypeLocal;

/* Notification names and their user-info keys. */
TESSEL_EXPORT extern const char* const KTNotificationSettingsDidChangeNotification;
TESSEL_EXPORT extern const char* const KTNotificationBundleIdentifierKey;
TESSEL_EXPORT extern const char* const KTNotificationEnabledKey;
TESSEL_EXPORT extern const char* const KTLocalNotificationsDidChangeNotification;
TESSEL_EXPORT extern const char* const KTLocalNotificationDidFireNotification;
TESSEL_EXPORT extern const char* const KTLocalNotificationsKey;
TESSEL_EXPORT extern const char* const KTBundleIdentifierKey;

/* Per-application data-store keys. */
TESSEL_EXPORT extern const char* const KTApplicationDataStoreLocalNotificationsKey;
TESSEL_EXPORT extern const char* const KTApplicationDataStoreLocalNotificationsLastFireDateKey;

/* Entitlements. */
TESSEL_EXPORT extern const char* const KTLocalNotificationsSchedulingProxyEntitlement;
TESSEL_EXPORT extern const char* const KTRemoteNotificationsEnvironmentEntitlement;
TESSEL_EXPORT extern const char* const KTRemoteNotificationsPreferencesEntitlement;

/* Logging preferences. */
TESSEL_EXPORT extern const char* const KTRemoteNotificationLoggingPreferenceKey;
TESSEL_EXPORT extern const char* const KTLocalNotificationLoggingPreferenceKey;

TESSEL_EXPORT extern const char* const kKTNotificationAuthorizationAlertBundleIdentifierKey;

/* Diagnostic levels of the two notification subsystems: -1 off, 3 on. */
TESSEL_EXPORT extern int32_t KTRemoteNotificationLoggingLevel;
TESSEL_EXPORT extern int32_t KTLocalNotificationLoggingLevel;

/*
 * The host's answers about applications. Every operation takes the application's
 * bundle identifier first and the context as its first argument. All are called
 * on the push server's own queue. Payloads are passed as binary property lists.
 * Dates are seconds since 2001-01-01 00:00:00 UTC.
 */
typedef struct KTSystemStateProvidingCallbacks {
    void* context;
    bool (*isApplicationInstalled)(void* context, const char* bundleIdentifier);
    bool (*isApplicationRestricted)(void* context, const char* bundleIdentifier);
    bool (*isGazetteApplication)(void* context, const char* bundleIdentifier);
    bool (*isGazetteContentBackgroundModeSupportedForApplication)(
        void* context, const char* bundleIdentifier);
    bool (*isBackgroundAppRefreshSupportedForApplication)(void* context, const char* bundleIdentifier);
    bool (*isRemoteNotificationBackgroundModeSupportedForApplication)(
        void* context, const char* bundleIdentifier);
    /* The missing letter in the name is deliberate. lastCount and day are in/out. */
    bool (*shouldThrottleContentNotificationForApplicatin)(
        void* context, const char* bundleIdentifier, double date, int64_t* lastCount, int64_t* day);
    void (*handleGazetteNotificationForApplication)(
        void* context, const char* bundleIdentifier, const uint8_t* userInfo, size_t userInfoLength);
    void (*handleContentAvailableNotificationForApplication)(void* context, const char* bundleIdentifier,
        const uint8_t* userInfo, size_t userInfoLength, int64_t priority,
        void (*completion)(void* completionContext), void* completionContext);
} KTSystemStateProvidingCallbacks;

/* Starts the server once per process; later calls do nothing. The table is copied.
 * Installs the Linux platform when the host installed none. */
TESSEL_EXPORT void KTTesselServerStart(const KTSystemStateProvidingCallbacks* systemStateProvider);
TESSEL_EXPORT void KTClearNotificationsForBundleIdentifier(const char* bundleIdentifier);
TESSEL_EXPORT void KTSystemDidSetBadgeForBundleIdentifier(const char* bundleIdentifier);
/* Hands a push message to the loopback push service of the Linux platform, as
 * if it had come from the network: payload is a property list (binary or XML)
 * whose root is a dictionary, date is when the message was sent. Only push
 * connections of the environment ("production", "development") that enabled the
 * topic take it. False when the payload is no dictionary, the platform has no
 * loopback service, or no connection took the message. */
TESSEL_EXPORT bool TesselInjectPushMessage(const char* environment, const char* topic, const uint8_t* payload,
    size_t payloadLength, int64_t priority, double date);
/* A push message for the application passed the server's checks; pid is its
 * newest process, 0 when it runs none. For power accounting; the misspelling
 * in the name is deliberate. */
TESSEL_EXPORT void _KTPostRemoteNotificationRecievedPowerNotification(
    int32_t pid, const char* bundleIdentifier);
/* Whether the application may have region-triggered notifications fire: false
 * for NULL or an application the server has no client for. Blocks briefly. */
TESSEL_EXPORT bool KTIsAuthorizedForRegionMonitoring(const char* bundleIdentifier);
/* Shows the location-in-use indicator for the application. */
TESSEL_EXPORT void KTTriggerLocationArrow(const char* bundleIdentifier);
/* Region monitoring has no positioning service behind it: the host decides
   each application's authorization (0 not determined, 1 restricted, 2 denied,
   3 always, 4 when in use; other values are refused and logged) and reports
   crossings by region identifier. An application the host said nothing about
   is not authorized. */
TESSEL_EXPORT void TesselSetRegionMonitoringAuthorization(const char* bundleIdentifier, int status);
TESSEL_EXPORT void TesselReportRegionCrossing(const char* regionIdentifier, bool entered);
/* Substitutes arguments into a format that came from the network: only "%@",
 * "%N$@" and "%%" are understood, anything else after "%" is dropped. A NULL
 * argument stands for a missing one. Answers a new UTF-8 string to free() with
 * free(), or NULL when the format is NULL or the result is not valid UTF-8. */
TESSEL_EXPORT char* KTFormatNetworkString(
    const char* format, const char* const* arguments, size_t argumentCount);

/* Localizes key in the bundle at bundlePath (its default table) and fills in the
 * arguments (NULL ones stand for missing ones); else the default value as it
 * stands; else the key. NULL when nothing non-empty is left. free() the result. */
TESSEL_EXPORT char* KTNotificationLocalizedString(const char* key, const char* defaultValue,
    const char* bundlePath, const char* const* arguments, size_t argumentCount);

/* Asks the user whether the application may send notifications; completion gets
 * 1 allowed, 0 denied, -1 neither. Never called when the alert cannot be shown. */
TESSEL_EXPORT void KTShowNotificationAuthorizationAlert(const char* bundleIdentifier, const char* displayName,
    void (*completion)(void* context, int result), void* context);

/* A section's push settings hold the supported notification types (badge 1,
 * sound 2, alert 4) in bits 0-2 and the ones the user allows in bits 3-5. */
TESSEL_EXPORT unsigned long KTSupportedTypesForPushSettings(unsigned long pushSettings);
TESSEL_EXPORT unsigned long KTEnabledTypesForPushSettings(unsigned long pushSettings);

/* The notification store's directory; free the result with free(). */
TESSEL_EXPORT char* _VYSAppNotificationStoreDirectory(void);

#ifdef __cplusplus
}
#endif

#endif
