// The C interface: thin wrappers over the C++ clients and record builders.
#include "tessel/TesselServices_c.h"

#include "services/KTSConstants.h"
#include "tessel/services/KTSNotificationRegistrarClient.h"
#include "tessel/services/KTSNotificationSchedulerClient.h"
#include "tessel/services/Records.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

using namespace tessel;

const char* const TesselServicesRegistrarServiceName = KTSNotificationRegistrarServiceName;
const char* const TesselServicesSchedulerServiceName = KTSNotificationSchedulerServiceName;
const char* const TesselServicesRegistrarProxyEntitlement = KTSNotificationRegistrarProxyEntitlementName;
const char* const TesselServicesRegistrarRemoteNotificationSettingsEntitlement
    = KTSNotificationRegistrarRemoteNotificationSettingsEntitlementName;
const char* const TesselServicesSchedulerProxyEntitlement = KTSNotificationSchedulerProxyEntitlementName;

struct TesselServicesRegistrar {
    KTSNotificationRegistrarClient client;
};

struct TesselServicesScheduler {
    KTSNotificationSchedulerClient client;
};

struct TesselServicesLocalNotification {
    LocalNotificationFields fields;
};

namespace {

ClientOptions optionsFor(const char* busAddress, TesselServicesExecutor executor, void* executorContext,
    TesselServicesErrorCallback onError, void* errorContext, unsigned timeoutMilliseconds)
{
    ClientOptions options;
    if (busAddress)
        options.busAddress = busAddress;
    if (executor) {
        options.executor = [executor, executorContext](std::function<void()> work) {
            auto* heap = new std::function<void()>(std::move(work));
            executor(
                executorContext,
                [](void* context) {
                    std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(context));
                    (*work)();
                },
                heap);
        };
    }
    if (onError) {
        options.errorHandler = [onError, errorContext](const ClientError& error) {
            onError(errorContext, static_cast<TesselServicesErrorCode>(error.code), error.operation.c_str(),
                error.message.c_str());
        };
    }
    if (timeoutMilliseconds)
        options.timeout = std::chrono::milliseconds(timeoutMilliseconds);
    return options;
}

std::string text(const char* string) { return string ? string : ""; }

std::vector<ArchivedRecord> records(size_t count, const uint8_t* const* records, const size_t* lengths)
{
    std::vector<ArchivedRecord> list;
    list.reserve(count);
    for (size_t index = 0; index < count; ++index)
        list.emplace_back(records[index], records[index] + lengths[index]);
    return list;
}

// Pointers into list, valid while it is.
struct RecordPointers {
    explicit RecordPointers(const std::vector<ArchivedRecord>& list)
    {
        for (auto& record : list) {
            data.push_back(record.data());
            lengths.push_back(record.size());
        }
    }
    std::vector<const uint8_t*> data;
    std::vector<size_t> lengths;
};

std::function<void()> completion(TesselServicesCompletion callback, void* context)
{
    if (!callback)
        return {};
    return [callback, context] { callback(context); };
}

KTSNotificationSchedulerClient::NotificationsEvent listEvent(TesselServicesListEvent event, void* context)
{
    if (!event)
        return {};
    return [event, context](const std::vector<ArchivedRecord>& list, const std::string& bundleIdentifier) {
        RecordPointers pointers(list);
        event(context, list.size(), pointers.data.data(), pointers.lengths.data(), bundleIdentifier.c_str());
    };
}

// Hands a plain answer to the application's function, when it gave one.
template <typename Function> auto plainResult(Function result, void* context)
{
    return [result, context](auto value) {
        if (result)
            result(context, value);
    };
}

KTSNotificationRegistrarClient::SettingsResult recordResult(TesselServicesRecordResult result, void* context)
{
    if (!result)
        return {};
    return [result, context](std::optional<ArchivedRecord> record) {
        if (record)
            result(context, record->data(), record->size());
        else
            result(context, nullptr, 0);
    };
}

KTSNotificationRegistrarClient::ErrorResult registrationResult(
    TesselServicesRegistrationResult result, void* context)
{
    if (!result)
        return {};
    return [result, context](std::optional<RegistrationError> error) {
        if (error)
            result(context, error->domain.c_str(), error->code, error->localizedDescription.c_str());
        else
            result(context, nullptr, 0, nullptr);
    };
}

bool copyOut(const ArchivedRecord& bytes, uint8_t** record, size_t* length)
{
    auto* copy = static_cast<uint8_t*>(malloc(bytes.empty() ? 1 : bytes.size()));
    if (!copy)
        return false;
    memcpy(copy, bytes.data(), bytes.size());
    *record = copy;
    *length = bytes.size();
    return true;
}

std::string* textField(LocalNotificationFields& fields, TesselServicesTextField field)
{
    switch (field) {
    case TesselServicesFieldAlertBody:
        return &fields.alertBody;
    case TesselServicesFieldAlertTitle:
        return &fields.alertTitle;
    case TesselServicesFieldAlertAction:
        return &fields.alertAction;
    case TesselServicesFieldAlertLaunchImage:
        return &fields.alertLaunchImage;
    case TesselServicesFieldSoundName:
        return &fields.soundName;
    case TesselServicesFieldCategory:
        return &fields.category;
    case TesselServicesFieldRepeatCalendar:
        return &fields.repeatCalendar;
    case TesselServicesFieldTimeZone:
        break;
    }
    return nullptr;
}

// The four list operations differ only in the client method they call.
using ListOperation = void (KTSNotificationSchedulerClient::*)(const KTSNotificationSchedulerClient::List&,
    const std::string&, KTSNotificationSchedulerClient::Completion);

void sendList(TesselServicesScheduler* client, ListOperation operation, size_t count,
    const uint8_t* const* list, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion callback, void* context)
{
    (client->client.*operation)(
        records(count, list, lengths), text(bundleIdentifier), completion(callback, context));
}

} // namespace

extern "C" {

void TesselServicesFree(void* pointer) { free(pointer); }

TesselServicesRegistrar* TesselServicesRegistrarCreate(const char* busAddress,
    TesselServicesExecutor executor, void* executorContext, TesselServicesErrorCallback onError,
    void* errorContext, unsigned timeoutMilliseconds)
{
    return new TesselServicesRegistrar {
        KTSNotificationRegistrarClient(
            optionsFor(busAddress, executor, executorContext, onError, errorContext, timeoutMilliseconds)),
    };
}

void TesselServicesRegistrarDestroy(TesselServicesRegistrar* client) { delete client; }

void TesselServicesRegistrarSetObserver(
    TesselServicesRegistrar* client, TesselServicesTokenEvent didReceiveDeviceToken, void* context)
{
    KTSNotificationRegistrarClient::Observer observer;
    if (didReceiveDeviceToken)
        observer.didReceiveDeviceToken = [didReceiveDeviceToken, context](const std::vector<uint8_t>& token,
                                             const std::string& bundleIdentifier) {
            didReceiveDeviceToken(context, token.data(), token.size(), bundleIdentifier.c_str());
        };
    client->client.setObserver(std::move(observer));
}

void TesselServicesRegistrarSetObservingRemoteNotifications(TesselServicesRegistrar* client, bool observing,
    const char* bundleIdentifier, TesselServicesCompletion callback, void* context)
{
    client->client.setObservingRemoteNotifications(
        observing, text(bundleIdentifier), completion(callback, context));
}

void TesselServicesRegistrarInvalidateTokenForRemoteNotifications(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesCompletion callback, void* context)
{
    client->client.invalidateTokenForRemoteNotificationsForBundleIdentifier(
        text(bundleIdentifier), completion(callback, context));
}

void TesselServicesRegistrarRegisterNotificationSettings(TesselServicesRegistrar* client,
    const uint8_t* settings, size_t length, const char* bundleIdentifier, TesselServicesRecordResult result,
    void* context)
{
    client->client.registerNotificationSettings(
        ArchivedRecord(settings, settings + length), text(bundleIdentifier), recordResult(result, context));
}

void TesselServicesRegistrarRegisterBadgeSetting(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesCompletion callback, void* context)
{
    client->client.registerBadgeSettingForBundleIdentifier(
        text(bundleIdentifier), completion(callback, context));
}

void TesselServicesRegistrarNotificationSettings(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesRecordResult result, void* context)
{
    client->client.notificationSettingsForBundleIdentifier(
        text(bundleIdentifier), recordResult(result, context));
}

void TesselServicesRegistrarNotificationTypes(TesselServicesRegistrar* client, const char* bundleIdentifier,
    TesselServicesTypesResult result, void* context)
{
    client->client.notificationTypesForBundleIdentifier(text(bundleIdentifier), plainResult(result, context));
}

void TesselServicesRegistrarAllowsRemoteNotifications(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesBoolResult result, void* context)
{
    client->client.allowsRemoteNotificationsForBundleIdentifier(
        text(bundleIdentifier), plainResult(result, context));
}

void TesselServicesRegistrarRemoteNotificationTypes(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesTypesResult result, void* context)
{
    client->client.remoteNotificationTypesForBundleIdentifier(
        text(bundleIdentifier), plainResult(result, context));
}

void TesselServicesRegistrarRegisterRemoteNotificationTypes(TesselServicesRegistrar* client, uint64_t types,
    const char* bundleIdentifier, TesselServicesRegistrationResult result, void* context)
{
    client->client.registerRemoteNotificationTypes(
        types, text(bundleIdentifier), registrationResult(result, context));
}

void TesselServicesRegistrarRequestTokenForRemoteNotifications(TesselServicesRegistrar* client,
    const char* bundleIdentifier, TesselServicesRegistrationResult result, void* context)
{
    client->client.requestTokenForRemoteNotificationsForBundleIdentifier(
        text(bundleIdentifier), registrationResult(result, context));
}

void TesselServicesRegistrarBackgroundAppRefreshMapping(
    TesselServicesRegistrar* client, TesselServicesMappingResult result, void* context)
{
    client->client.backgroundAppRefreshBundleIdentifierMappingWithResult(
        [result, context](std::map<std::string, bool> mapping) {
            if (!result)
                return;
            std::vector<const char*> identifiers;
            // Not std::vector<bool>, which holds no bools to point at.
            std::unique_ptr<bool[]> allowed(new bool[mapping.size() + 1]);
            for (auto& [bundleIdentifier, value] : mapping) {
                allowed[identifiers.size()] = value;
                identifiers.push_back(bundleIdentifier.c_str());
            }
            result(context, identifiers.size(), identifiers.data(), allowed.get());
        });
}

void TesselServicesRegistrarSetAllowsBackgroundRefresh(TesselServicesRegistrar* client, bool allowed,
    const char* bundleIdentifier, TesselServicesCompletion callback, void* context)
{
    client->client.setAllowsBackgroundRefresh(allowed, text(bundleIdentifier), completion(callback, context));
}

TesselServicesScheduler* TesselServicesSchedulerCreate(const char* busAddress,
    TesselServicesExecutor executor, void* executorContext, TesselServicesErrorCallback onError,
    void* errorContext, unsigned timeoutMilliseconds)
{
    return new TesselServicesScheduler {
        KTSNotificationSchedulerClient(
            optionsFor(busAddress, executor, executorContext, onError, errorContext, timeoutMilliseconds)),
    };
}

void TesselServicesSchedulerDestroy(TesselServicesScheduler* client) { delete client; }

void TesselServicesSchedulerSetObserver(TesselServicesScheduler* client,
    TesselServicesListEvent didChangeScheduledLocalNotifications,
    TesselServicesListEvent didFireLocalNotifications, void* context)
{
    client->client.setObserver({
        .didChangeScheduledLocalNotifications = listEvent(didChangeScheduledLocalNotifications, context),
        .didFireLocalNotifications = listEvent(didFireLocalNotifications, context),
    });
}

void TesselServicesSchedulerScheduledLocalNotifications(TesselServicesScheduler* client,
    const char* bundleIdentifier, TesselServicesListResult result, void* context)
{
    client->client.scheduledLocalNotificationsForBundleIdentifier(
        text(bundleIdentifier), [result, context](std::vector<ArchivedRecord> list) {
            if (!result)
                return;
            RecordPointers pointers(list);
            result(context, list.size(), pointers.data.data(), pointers.lengths.data());
        });
}

void TesselServicesSchedulerSchedule(TesselServicesScheduler* client, const char* bundleIdentifier,
    const double* startDate, const double* endDate, uint64_t maxSize, bool includeSnoozes,
    TesselServicesScheduleResult result, void* context)
{
    ScheduleFetchRequest request { .maxSize = maxSize, .includeSnoozes = includeSnoozes };
    if (startDate)
        request.startDate = *startDate;
    if (endDate)
        request.endDate = *endDate;
    client->client.scheduleForBundleIdentifier(
        text(bundleIdentifier), request, [result, context](std::vector<ScheduleEntry> entries) {
            if (!result)
                return;
            std::vector<const uint8_t*> data;
            std::vector<size_t> lengths;
            std::vector<double> dates;
            for (auto& entry : entries) {
                data.push_back(entry.notification.data());
                lengths.push_back(entry.notification.size());
                dates.push_back(entry.fireDate);
            }
            result(context, entries.size(), data.data(), lengths.data(), dates.data());
        });
}

void TesselServicesSchedulerSetScheduledLocalNotifications(TesselServicesScheduler* client, size_t count,
    const uint8_t* const* list, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion callback, void* context)
{
    sendList(client, &KTSNotificationSchedulerClient::setScheduledLocalNotifications, count, list, lengths,
        bundleIdentifier, callback, context);
}

void TesselServicesSchedulerAddScheduledLocalNotifications(TesselServicesScheduler* client, size_t count,
    const uint8_t* const* list, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion callback, void* context)
{
    sendList(client, &KTSNotificationSchedulerClient::addScheduledLocalNotifications, count, list, lengths,
        bundleIdentifier, callback, context);
}

void TesselServicesSchedulerCancelScheduledLocalNotifications(TesselServicesScheduler* client, size_t count,
    const uint8_t* const* list, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion callback, void* context)
{
    sendList(client, &KTSNotificationSchedulerClient::cancelScheduledLocalNotifications, count, list, lengths,
        bundleIdentifier, callback, context);
}

void TesselServicesSchedulerSnoozeScheduledLocalNotifications(TesselServicesScheduler* client, size_t count,
    const uint8_t* const* list, const size_t* lengths, const char* bundleIdentifier,
    TesselServicesCompletion callback, void* context)
{
    sendList(client, &KTSNotificationSchedulerClient::snoozeScheduledLocalNotifications, count, list, lengths,
        bundleIdentifier, callback, context);
}

void TesselServicesSchedulerSetObservingScheduledLocalNotifications(TesselServicesScheduler* client,
    bool observing, const char* bundleIdentifier, TesselServicesCompletion callback, void* context)
{
    client->client.setObservingScheduledLocalNotifications(
        observing, text(bundleIdentifier), completion(callback, context));
}

TesselServicesLocalNotification* TesselServicesLocalNotificationCreate(void)
{
    return new TesselServicesLocalNotification {};
}

TesselServicesLocalNotification* TesselServicesLocalNotificationCreateFromArchive(
    const uint8_t* record, size_t length)
{
    auto fields = LocalNotificationFields::unarchive(ArchivedRecord(record, record + length));
    return fields ? new TesselServicesLocalNotification { std::move(*fields) } : nullptr;
}

void TesselServicesLocalNotificationDestroy(TesselServicesLocalNotification* notification)
{
    delete notification;
}

void TesselServicesLocalNotificationSetText(
    TesselServicesLocalNotification* notification, TesselServicesTextField field, const char* value)
{
    if (field == TesselServicesFieldTimeZone) {
        notification->fields.timeZone = value ? std::optional<std::string>(value) : std::nullopt;
        return;
    }
    if (auto* target = textField(notification->fields, field))
        *target = text(value);
}

const char* TesselServicesLocalNotificationText(
    const TesselServicesLocalNotification* notification, TesselServicesTextField field)
{
    auto& fields = const_cast<LocalNotificationFields&>(notification->fields);
    if (field == TesselServicesFieldTimeZone)
        return fields.timeZone ? fields.timeZone->c_str() : nullptr;
    auto* target = textField(fields, field);
    return target ? target->c_str() : nullptr;
}

void TesselServicesLocalNotificationSetNumber(
    TesselServicesLocalNotification* notification, TesselServicesNumberField field, double value)
{
    auto& fields = notification->fields;
    switch (field) {
    case TesselServicesFieldFireDate:
        fields.fireDate = std::isnan(value) ? std::nullopt : std::optional<double>(value);
        break;
    case TesselServicesFieldRepeatInterval:
        fields.repeatInterval = static_cast<RepeatUnit>(static_cast<int32_t>(value));
        break;
    case TesselServicesFieldTotalRepeatCount:
        fields.totalRepeatCount = static_cast<int32_t>(value);
        break;
    case TesselServicesFieldApplicationIconBadgeNumber:
        fields.applicationIconBadgeNumber = static_cast<int>(value);
        break;
    case TesselServicesFieldHasAction:
        fields.hasAction = value != 0;
        break;
    case TesselServicesFieldRegionTriggersOnce:
        fields.regionTriggersOnce = value != 0;
        break;
    case TesselServicesFieldFromSnooze:
        fields.fromSnooze = value != 0;
        break;
    }
}

double TesselServicesLocalNotificationNumber(
    const TesselServicesLocalNotification* notification, TesselServicesNumberField field)
{
    auto& fields = notification->fields;
    switch (field) {
    case TesselServicesFieldFireDate:
        return fields.fireDate.value_or(NAN);
    case TesselServicesFieldRepeatInterval:
        return static_cast<double>(fields.repeatInterval);
    case TesselServicesFieldTotalRepeatCount:
        return fields.totalRepeatCount;
    case TesselServicesFieldApplicationIconBadgeNumber:
        return fields.applicationIconBadgeNumber;
    case TesselServicesFieldHasAction:
        return fields.hasAction;
    case TesselServicesFieldRegionTriggersOnce:
        return fields.regionTriggersOnce;
    case TesselServicesFieldFromSnooze:
        return fields.fromSnooze;
    }
    return NAN;
}

void TesselServicesLocalNotificationSetRegion(TesselServicesLocalNotification* notification,
    const char* identifier, double latitude, double longitude, double radius, bool notifyOnEntry,
    bool notifyOnExit)
{
    if (!identifier) {
        notification->fields.region.reset();
        return;
    }
    notification->fields.region
        = RegionFields { identifier, latitude, longitude, radius, notifyOnEntry, notifyOnExit };
}

bool TesselServicesLocalNotificationRegion(const TesselServicesLocalNotification* notification,
    const char** identifier, double* latitude, double* longitude, double* radius, bool* notifyOnEntry,
    bool* notifyOnExit)
{
    auto& region = notification->fields.region;
    if (!region)
        return false;
    if (identifier)
        *identifier = region->identifier.c_str();
    if (latitude)
        *latitude = region->latitude;
    if (longitude)
        *longitude = region->longitude;
    if (radius)
        *radius = region->radius;
    if (notifyOnEntry)
        *notifyOnEntry = region->notifyOnEntry;
    if (notifyOnExit)
        *notifyOnExit = region->notifyOnExit;
    return true;
}

void TesselServicesLocalNotificationSetUserInfo(
    TesselServicesLocalNotification* notification, const uint8_t* propertyList, size_t length)
{
    notification->fields.userInfo
        = propertyList ? ArchivedRecord(propertyList, propertyList + length) : ArchivedRecord {};
}

const uint8_t* TesselServicesLocalNotificationUserInfo(
    const TesselServicesLocalNotification* notification, size_t* length)
{
    auto& userInfo = notification->fields.userInfo;
    if (length)
        *length = userInfo.size();
    return userInfo.empty() ? nullptr : userInfo.data();
}

bool TesselServicesLocalNotificationCopyArchive(
    const TesselServicesLocalNotification* notification, uint8_t** record, size_t* length)
{
    auto archive = notification->fields.archive();
    return archive && copyOut(*archive, record, length);
}

bool TesselServicesNotificationSettingsArchive(uint64_t types, uint8_t** record, size_t* length)
{
    auto archive = NotificationSettingsFields { .types = types }.archive();
    return archive && copyOut(*archive, record, length);
}

bool TesselServicesNotificationSettingsTypes(const uint8_t* record, size_t length, uint64_t* types)
{
    auto settings = NotificationSettingsFields::unarchive(ArchivedRecord(record, record + length));
    if (!settings)
        return false;
    if (types)
        *types = settings->types;
    return true;
}

} // extern "C"
