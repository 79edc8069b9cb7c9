#include "services/KTSNotificationSettingsWhitelistedUnarchive.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/records/NotificationAction.h"
#include "platform/records/NotificationCategory.h"

namespace tessel {

std::shared_ptr<NotificationSettings> KTSNotificationSettingsWhitelistedUnarchiveFromData(const Bytes& data)
{
    NotificationSettings::registerArchivableClasses();
    UnarchiveOptions options {
        .expectedClass = NotificationSettings::archivedClassName,
        .allowedClasses = { NotificationSettings::archivedClassName, NotificationCategory::archivedClassName,
            NotificationAction::archivedClassName },
    };
    auto value = KeyedArchive::unarchive(data, options);
    return value ? value->objectAs<NotificationSettings>() : nullptr;
}

} // namespace tessel
