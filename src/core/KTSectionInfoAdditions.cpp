#include "core/KTSectionInfoAdditions.h"

namespace tessel {

namespace {

    constexpr uint64_t enabledBadgeOrSound = 8 | 16;
    constexpr uint64_t enabledAlert = 32;
    constexpr uint64_t alertType = 4;

    bool alertReachesUser(const SectionInfo& sectionInfo)
    {
        // An alert the user gave no style to is never seen.
        return (sectionInfo.pushSettings & enabledAlert)
            && sectionInfo.alertType != SectionInfo::AlertTypeNone;
    }

} // namespace

bool kt_isEnabled(const SectionInfo& sectionInfo)
{
    if (!sectionInfo.allowsNotifications)
        return false;
    if ((sectionInfo.pushSettings & enabledBadgeOrSound) || alertReachesUser(sectionInfo))
        return true;
    return sectionInfo.showsInLockScreen || sectionInfo.showsInNotificationCentre;
}

uint64_t kt_effectiveNotificationTypes(const SectionInfo& sectionInfo)
{
    if (!sectionInfo.allowsNotifications)
        return 0;
    uint64_t types = (sectionInfo.pushSettings >> 3) & 3;
    if (alertReachesUser(sectionInfo))
        types |= alertType;
    return types;
}

SectionInfo kt_sectionInfoWithNotificationTypes(const SectionInfo& sectionInfo, uint64_t types)
{
    const uint64_t old = sectionInfo.pushSettings;
    const uint64_t supported = (types | old) & KTSupportedTypesMask;
    const uint64_t newlySupported = types & ~old & KTSupportedTypesMask;
    const uint64_t enabled = ((old & KTEnabledTypesMask) | (newlySupported << 3)) & KTEnabledTypesMask;
    SectionInfo copy = sectionInfo;
    copy.pushSettings = supported | enabled;
    return copy;
}

} // namespace tessel
