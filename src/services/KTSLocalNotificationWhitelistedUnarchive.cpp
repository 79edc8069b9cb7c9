#include "services/KTSLocalNotificationWhitelistedUnarchive.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/location/Region.h"

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
