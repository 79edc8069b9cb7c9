// Notifications as applications send them: decoded through the safe decoder,
// then every calendar computation the scheduler runs on them.
#include "platform/archive/KeyedArchive.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"

#include <cstddef>
#include <cstdint>

using namespace tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto notification = KTSLocalNotificationWhitelistedUnarchiveFromData(Bytes(data, data + size));
    if (!notification)
        return 0;
    for (Date date : { Date(0), Date(788918400), Date::distantPast(), Date::distantFuture() }) {
        auto next = notification->nextFireDateAfterDate(date, std::string("Europe/Berlin"));
        if (next && !(*next > date))
            __builtin_trap();
        notification->nextFireDateForLastFireDate(date);
        notification->nextFireDateAfterDate(date);
    }
    auto copy = notification->copy();
    if (!copy->isEqual(*notification)
        || copy->compareFireDates(*notification) != std::weak_ordering::equivalent)
        __builtin_trap();
    copy->clearNonSystemProperties();
    (void)notification->description();
    auto archived = KeyedArchive::archivedData(Value(notification));
    if (!archived || !KTSLocalNotificationWhitelistedUnarchiveFromData(*archived))
        __builtin_trap();
    return 0;
}
