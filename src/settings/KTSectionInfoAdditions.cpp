#include "bulletins/KTSectionInfoAdditions.h"

namespace tessel {

namespace {

    constexpr uint64_t enabledBadgeOrSound = 8 | 16;
    constexpr uint64_t enabledAlert = 32;

} // namespace

bool kt_isEnabled(const SectionInfo& sectionInfo)
{
    if (!sectionInfo.allowsNotifications)
        return false;
    if (sectionInfo.pushSettings & enabledBadgeOrSound)
        return true;
    // An alert the user gave no style to is never seen.
    if ((sectionInfo.pushSettings & enabledAlert) && sectionInfo.alertType != SectionInfo::AlertTypeNone)
        return true;
    return sectionInfo.showsInLockScreen || sectionInfo.showsInNotificationCentre;
}

} // namespace tessel
