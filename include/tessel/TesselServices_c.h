#ifndef TESSEL_TESSELSERVICES_C_H
#define TESSEL_TESSELSERVICES_C_H

/*
 * The C interface of the client library, for other languages. Clients are
 * opaque handles. Every call returns at once; its callback comes later with
 * the context given with it, through the client's executor. A failed request
 * calls the client's error callback instead; a request the daemon refuses
 * calls neither. Strings are UTF-8; strings and buffers handed to a callback
 * are valid only during the call. Records travel as archived bytes. Dates are
 * seconds since 2001-01-01 00:00:00 UTC.
 */

#include <tessel/TesselExport.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Well-known bus names of the two services. */
TESSEL_EXPORT extern const char* const TesselServicesRegistrarServiceName;
TESSEL_EXPORT extern const char* const TesselServicesSchedulerServiceName;
/* Entitlements a manifest grants: acting for other applications, and
   administering remote notification settings. */
TESSEL_EXPORT extern const char* const TesselServicesRegistrarProxyEntitlement;
TESSEL_EXPORT extern const char* const TesselServicesRegistrarRemoteNotificationSettingsEntitlement;
TESSEL_EXPORT extern const char* const TesselServicesSchedulerProxyEntitlement;

typedef enum TesselServicesErrorCode {
    TesselServicesErrorNoBus = 0,
    TesselServicesErrorNoDaemon = 1,
    TesselServicesErrorTimeout = 2,
    TesselServicesErrorLimitExceeded = 3,
    TesselServicesErrorInvalidArguments = 4,
    TesselServicesErrorMalformedAnswer = 5,
    TesselServicesErrorFailed = 6,
} TesselServicesErrorCode;

/* Must call work(workContext) exactly once, later, on a thread it chooses. */
typedef void (*TesselServicesExecutor)(void* context, void (*work)(void* workContext), void* workContext);
typedef void (*TesselServicesErrorCallback)(
    void* context, TesselServicesErrorCode code, const char* operation, const char* message);

typedef void (*TesselServicesCompletion)(void* context);
/* Settings: NULL and 0 when the application has none. */
typedef void (*TesselServicesRecordResult)(void* context, const uint8_t* record, size_t length);
typedef void (*TesselServicesTypesResult)(void* context, uint64_t types);
typedef void (*TesselServicesBoolResult)(void* context, bool value);
/* domain is NULL when the registration succeeded. */
typedef void (*TesselServicesRegistrationResult)(
    void* context, const char* domain, int64_t code, const char* localizedDescription);
typedef void (*TesselServicesMappingResult)(
    void* context, size_t count, const char* const* bundleIdentifiers, const bool* allowed);
typedef void (*TesselServicesListResult)(
    void* context, size_t count, const uint8_t* const* records, const size_t* lengths);
typedef void (*TesselServicesScheduleResult)(void* context, size_t count, const uint8_t* const* records,
    const size_t* lengths, const double* fireDates);
typedef void (*TesselServicesTokenEvent)(
    void* context, const uint8_t* token, size_t length, const char* bundleIdentifier);
typedef void (*TesselServicesListEvent)(void* context, size_t count, const uint8_t* const* records,
    const size_t* lengths, const char* bundleIdentifier);

/* Frees what the library allocated for the caller. */
TESSEL_EXPORT void TesselServicesFree(void* pointer);

/* The registrar: settings, badges, push tokens, background refresh.
   busAddress NULL: the session bus. executor NULL: the client's own thread.
   timeoutMilliseconds 0: 25 seconds. Never NULL. */
typedef struct TesselServicesRegistrar TesselServicesRegistrar;
TESSEL_EXPORT TesselServicesRegistrar* TesselServicesRegistrarCreate(const char* busAddress,
    TesselServicesExecutor executor, void* executorContext, TesselServicesErrorCallback onError,
    void* errorContext, unsigned timeoutMilliseconds);
/* No callback runs once it returns; it may be called from a callback. */
TESSEL_EXPORT void TesselServicesRegistrarDestroy(TesselServicesRegistrar* client);
TESSEL_EXPORT void TesselServicesRegistrarSetObserver(
    TesselServicesRegistrar* client, TesselServicesTokenEvent didReceiveDeviceToken, void* context);
TESSEL_EXPORT void TesselServicesRegistrarSetObservingRemoteNotifications(TesselServicesRegistrar* client,
    bool observing, const char* bundleIdentifier, TesselServicesCompletion completion, void* context);
TESSEL_EXPORT void TesselServicesRegistrarInvalidateTokenForRemoteNotifications(
    TesselServicesRegistrar* client, const char* bundleIdentifier, TesselServicesCompletion completion,
    void* context);
TESSEL_EXPORT void TesselServicesRegistrarRegisterNotificationSettings(TesselServicesRegistrar* client,
    const uint8_t* settings, size_t length, const char* bundleIdentifier, TesselServicesRecordResult result,
    void* context);
TESSEL_EXPORT void TesselServicesRegistrarRegisterBadgeSetting(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesCompletion completion, void* context);
TESSEL_EXPORT void TesselServicesRegistrarNotificationSettings(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesRecordResult result, void* context);
TESSEL_EXPORT void TesselServicesRegistrarNotificationTypes(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesTypesResult result, void* context);
TESSEL_EXPORT void TesselServicesRegistrarAllowsRemoteNotifications(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesBoolResult result, void* context);
TESSEL_EXPORT void TesselServicesRegistrarRemoteNotificationTypes(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesTypesResult result, void* context);
TESSEL_EXPORT void TesselServicesRegistrarRegisterRemoteNotificationTypes(TesselServicesRegistrar* client,
    uint64_t types, const char* bundleIdentifier, TesselServicesRegistrationResult result, void* context);
TESSEL_EXPORT void TesselServicesRegistrarRequestTokenForRemoteNotifications(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesRegistrationResult result, void* context);
TESSEL_EXPORT void TesselServicesRegistrarBackgroundAppRefreshMapping(
    TesselServicesRegistrar* client, TesselServicesMappingResult result, void* context);
TESSEL_EXPORT void TesselServicesRegistrarSetAllowsBackgroundRefresh(TesselServicesRegistrar* client,
    bool allowed, const char* bundleIdentifier, TesselServicesCompletion completion, void* context);

/* The scheduler: an application's scheduled local notifications. */
typedef struct TesselServicesScheduler TesselServicesScheduler;
TESSEL_EXPORT TesselServicesScheduler* TesselServicesSchedulerCreate(const char* busAddress,
    TesselServicesExecutor executor, void* executorContext, TesselServicesErrorCallback onError,
    void* errorContext, unsigned timeoutMilliseconds);
TESSEL_EXPORT void TesselServicesSchedulerDestroy(TesselServicesScheduler* client);
TESSEL_EXPORT void TesselServicesSchedulerSetObserver(TesselServicesScheduler* client,
    TesselServicesListEvent didChangeScheduledLocalNotifications,
    TesselServicesListEvent didFireLocalNotifications, void* context);
TESSEL_EXPORT void TesselServicesSchedulerScheduledLocalNotifications(TesselServicesScheduler* client,
    const char* bundleIdentifier, TesselServicesListResult result, void* context);
/* startDate, endDate NULL: from now, without end. maxSize 0: no limit. */
TESSEL_EXPORT void TesselServicesSchedulerSchedule(TesselServicesScheduler* client,
    const char* bundleIdentifier, const double* startDate, const double* endDate, uint64_t maxSize,
    bool includeSnoozes, TesselServicesScheduleResult result, void* context);
TESSEL_EXPORT void TesselServicesSchedulerSetScheduledLocalNotifications(TesselServicesScheduler* client,
    size_t count, const uint8_t* const* records, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion completion, void* context);
TESSEL_EXPORT void TesselServicesSchedulerAddScheduledLocalNotifications(TesselServicesScheduler* client,
    size_t count, const uint8_t* const* records, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion completion, void* context);
TESSEL_EXPORT void TesselServicesSchedulerCancelScheduledLocalNotifications(TesselServicesScheduler* client,
    size_t count, const uint8_t* const* records, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion completion, void* context);
TESSEL_EXPORT void TesselServicesSchedulerSnoozeScheduledLocalNotifications(TesselServicesScheduler* client,
    size_t count, const uint8_t* const* records, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion completion, void* context);
TESSEL_EXPORT void TesselServicesSchedulerSetObservingScheduledLocalNotifications(
    TesselServicesScheduler* client, bool observing, const char* bundleIdentifier,
    TesselServicesCompletion completion, void* context);

/* Builds and reads archived local notifications. */
typedef struct TesselServicesLocalNotification TesselServicesLocalNotification;
typedef enum TesselServicesTextField {
    TesselServicesFieldAlertBody = 0,
    TesselServicesFieldAlertTitle = 1,
    TesselServicesFieldAlertAction = 2,
    TesselServicesFieldAlertLaunchImage = 3,
    TesselServicesFieldSoundName = 4,
    TesselServicesFieldCategory = 5,
    /* NULL: the fire date is an absolute moment. */
    TesselServicesFieldTimeZone = 6,
    TesselServicesFieldRepeatCalendar = 7,
} TesselServicesTextField;
typedef enum TesselServicesNumberField {
    /* NaN: none. */
    TesselServicesFieldFireDate = 0,
    /* 0 none, 1 second, 2 minute, 3 hour, 4 day, 5 week, 6 month, 7 quarter, 8 year. */
    TesselServicesFieldRepeatInterval = 1,
    /* -1: without end. */
    TesselServicesFieldTotalRepeatCount = 2,
    TesselServicesFieldApplicationIconBadgeNumber = 3,
    TesselServicesFieldHasAction = 4,
    TesselServicesFieldRegionTriggersOnce = 5,
    TesselServicesFieldFromSnooze = 6,
} TesselServicesNumberField;

TESSEL_EXPORT TesselServicesLocalNotification* TesselServicesLocalNotificationCreate(void);
/* NULL for anything but a well-formed local notification. */
TESSEL_EXPORT TesselServicesLocalNotification* TesselServicesLocalNotificationCreateFromArchive(
    const uint8_t* record, size_t length);
TESSEL_EXPORT void TesselServicesLocalNotificationDestroy(TesselServicesLocalNotification* notification);
TESSEL_EXPORT void TesselServicesLocalNotificationSetText(
    TesselServicesLocalNotification* notification, TesselServicesTextField field, const char* text);
/* NULL when unset; valid until the field changes. */
TESSEL_EXPORT const char* TesselServicesLocalNotificationText(
    const TesselServicesLocalNotification* notification, TesselServicesTextField field);
TESSEL_EXPORT void TesselServicesLocalNotificationSetNumber(
    TesselServicesLocalNotification* notification, TesselServicesNumberField field, double value);
TESSEL_EXPORT double TesselServicesLocalNotificationNumber(
    const TesselServicesLocalNotification* notification, TesselServicesNumberField field);
/* identifier NULL removes the region. Radius in metres. */
TESSEL_EXPORT void TesselServicesLocalNotificationSetRegion(TesselServicesLocalNotification* notification,
    const char* identifier, double latitude, double longitude, double radius, bool notifyOnEntry,
    bool notifyOnExit);
/* false without a region; any out pointer may be NULL. */
TESSEL_EXPORT bool TesselServicesLocalNotificationRegion(const TesselServicesLocalNotification* notification,
    const char** identifier, double* latitude, double* longitude, double* radius, bool* notifyOnEntry,
    bool* notifyOnExit);
/* A property list of a dictionary; NULL or 0 clears it. */
TESSEL_EXPORT void TesselServicesLocalNotificationSetUserInfo(
    TesselServicesLocalNotification* notification, const uint8_t* propertyList, size_t length);
TESSEL_EXPORT const uint8_t* TesselServicesLocalNotificationUserInfo(
    const TesselServicesLocalNotification* notification, size_t* length);
/* false when a field cannot travel (see Records.h); free *record with TesselServicesFree. */
TESSEL_EXPORT bool TesselServicesLocalNotificationCopyArchive(
    const TesselServicesLocalNotification* notification, uint8_t** record, size_t* length);

/* Settings of these types without categories (categories: the C++ builder). */
TESSEL_EXPORT bool TesselServicesNotificationSettingsArchive(
    uint64_t types, uint8_t** record, size_t* length);
TESSEL_EXPORT bool TesselServicesNotificationSettingsTypes(
    const uint8_t* record, size_t length, uint64_t* types);

#ifdef __cplusplus
}
#endif

#endif
