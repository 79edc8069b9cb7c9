#include "platform/bulletins/SectionInfo.h"

#include "platform/foundation/Format.h"

namespace tessel {

SectionInfo SectionInfo::defaultSectionInfoForType(int64_t sectionType)
{
    SectionInfo info;
    info.sectionType = sectionType;
    return info;
}

std::string SectionInfo::description() const
{
    return format("<SectionInfo %@ type: %ld allows: %d push settings: %lu alert type: %ld lock screen: %d "
                  "notification centre: %d>",
        sectionID, sectionType, allowsNotifications, pushSettings, alertType, showsInLockScreen,
        showsInNotificationCentre);
}

} // namespace tessel
