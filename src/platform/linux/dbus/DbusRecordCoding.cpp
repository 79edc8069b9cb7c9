#include "platform/linux/dbus/DbusRecordCoding.h"

#include "platform/Platform.h"
#include "platform/archive/KeyedArchive.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "services/KTSNotificationSettingsWhitelistedUnarchive.h"

namespace tessel {

std::optional<Bytes> DbusRecordCoding::archive(const Value& value)
{
    if (value.isNull())
        return Bytes {};
    std::string error;
    auto data = KeyedArchive::archivedData(value, &error);
    if (!data)
        Platform::log(LogPriority::Error, "D-Bus: cannot archive an answer: " + error);
    return data;
}

std::vector<Bytes> DbusRecordCoding::archiveNotifications(const List& notifications)
{
    std::vector<Bytes> archives;
    archives.reserve(notifications.size());
    for (const auto& notification : notifications) {
        if (!notification)
            continue;
        if (auto data = archive(Value(notification)))
            archives.push_back(std::move(*data));
    }
    return archives;
}

std::optional<DbusRecordCoding::List> DbusRecordCoding::unarchiveNotifications(
    const std::vector<Bytes>& archives)
{
    List notifications;
    notifications.reserve(archives.size());
    for (const auto& data : archives) {
        auto notification = KTSLocalNotificationWhitelistedUnarchiveFromData(data);
        if (!notification)
            return std::nullopt;
        notifications.push_back(std::move(notification));
    }
    return notifications;
}

std::optional<std::shared_ptr<NotificationSettings>> DbusRecordCoding::unarchiveSettings(const Bytes& data)
{
    if (data.empty())
        return std::shared_ptr<NotificationSettings>();
    auto settings = KTSNotificationSettingsWhitelistedUnarchiveFromData(data);
    if (!settings)
        return std::nullopt;
    return settings;
}

std::optional<std::shared_ptr<KTSNotificationScheduleFetchRequest>> DbusRecordCoding::unarchiveFetchRequest(
    const Bytes& data)
{
    if (data.empty())
        return std::shared_ptr<KTSNotificationScheduleFetchRequest>();
    KTSNotificationScheduleFetchRequest::registerArchivableClass();
    UnarchiveOptions options {
        .expectedClass = KTSNotificationScheduleFetchRequest::archivedClassName,
        .allowedClasses = { KTSNotificationScheduleFetchRequest::archivedClassName },
    };
    auto value = KeyedArchive::unarchive(data, options);
    auto request = value ? value->objectAs<KTSNotificationScheduleFetchRequest>() : nullptr;
    if (!request)
        return std::nullopt;
    return request;
}

} // namespace tessel
