#include "services/KTSLocalNotificationWhitelistedUnarchive.h"

#include "platform/KeyedArchive.h"
#include "platform/Region.h"

namespace tessel {

std::shared_ptr<LocalNotification> KTSLocalNotificationWhitelistedUnarchiveFromData(const Bytes& data)
{
    LocalNotification::registerArchivableClasses();
    UnarchiveOptions options {
        .expectedClass = LocalNotification::archivedClassName,
        .allowedClasses = { LocalNotification::archivedClassName, Region::archivedClassName },
    };
    auto value = KeyedArchive::unarchive(data, options);
    return value ? value->objectAs<LocalNotification>() : nullptr;
}

} // namespace tessel
