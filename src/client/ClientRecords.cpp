#include "client/ClientRecords.h"

#include "platform/archive/KeyedArchive.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "services/KTSNotificationSchedule.h"
#include "services/KTSNotificationScheduleFetchRequest.h"
#include "services/KTSNotificationSettingsWhitelistedUnarchive.h"

namespace tessel {

std::optional<ArchivedRecord> validatedSettings(ArchivedRecord settings)
{
    if (settings.empty())
        return std::nullopt;
    if (!KTSNotificationSettingsWhitelistedUnarchiveFromData(settings))
        throw MalformedAnswer("notification settings that do not decode");
    return settings;
}

std::vector<ArchivedRecord> validatedNotifications(std::vector<ArchivedRecord> notifications)
{
    for (auto& notification : notifications)
        if (!KTSLocalNotificationWhitelistedUnarchiveFromData(notification))
            throw MalformedAnswer("a local notification that does not decode");
    return notifications;
}

std::map<std::string, bool> backgroundRefreshMapping(const ArchivedRecord& archive)
{
    if (archive.empty())
        return {};
    // A mapping holds no objects: no class is allowed. An empty class name
    // never names a registered class, and an empty set would allow them all.
    UnarchiveOptions options { .allowedClasses = { "" } };
    std::string error;
    auto root = KeyedArchive::unarchive(archive, options, &error);
    if (!root || !root->isDictionary())
        throw MalformedAnswer("a background refresh mapping that does not decode: " + error);
    std::map<std::string, bool> mapping;
    for (auto& [bundleIdentifier, allowed] : root->dictionaryValue()) {
        if (!allowed.isBoolean())
            throw MalformedAnswer("a background refresh mapping with a value other than a boolean");
        mapping.emplace(bundleIdentifier, allowed.boolValue());
    }
    return mapping;
}

std::vector<ScheduleEntry> scheduleEntries(const ArchivedRecord& archive)
{
    if (archive.empty())
        return {};
    KTSNotificationSchedule::registerArchivableClass();
    UnarchiveOptions options {
        .expectedClass = KTSNotificationSchedule::archivedClassName,
        .allowedClasses = { KTSNotificationSchedule::archivedClassName, LocalNotification::archivedClassName,
            Region::archivedClassName },
    };
    std::string error;
    auto root = KeyedArchive::unarchive(archive, options, &error);
    auto schedule = root ? root->objectAs<KTSNotificationSchedule>() : nullptr;
    if (!schedule)
        throw MalformedAnswer("a schedule that does not decode: " + error);
    std::vector<ScheduleEntry> entries;
    entries.reserve(schedule->count());
    for (auto& entry : schedule->entries()) {
        auto notification = KeyedArchive::archivedData(Value(entry.notification), &error);
        if (!notification)
            throw MalformedAnswer("a scheduled notification that does not archive: " + error);
        entries.push_back({ std::move(*notification), entry.fireDate.timeIntervalSinceReferenceDate() });
    }
    return entries;
}

ArchivedRecord archivedFetchRequest(const ScheduleFetchRequest& request)
{
    KTSNotificationScheduleFetchRequest fetchRequest;
    if (request.startDate)
        fetchRequest.setStartDate(Date(*request.startDate));
    if (request.endDate)
        fetchRequest.setEndDate(Date(*request.endDate));
    fetchRequest.setMaxSize(request.maxSize);
    fetchRequest.setIncludeSnoozes(request.includeSnoozes);
    // Dates and integers always archive.
    return KeyedArchive::archivedData(
        Value(std::make_shared<KTSNotificationScheduleFetchRequest>(fetchRequest)))
        .value_or(ArchivedRecord {});
}

} // namespace tessel
