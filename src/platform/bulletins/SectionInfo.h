#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// One section's settings as the bulletin service keeps them: whether the user
// allows its notifications and how they are shown.
struct SectionInfo {
    enum AlertType : int64_t { AlertTypeNone = 0, AlertTypeBanner = 1, AlertTypeModal = 2 };

    std::string sectionID;
    int64_t sectionType = 0;
    bool allowsNotifications = true;
    // Bits 0-2 the supported notification types, bits 3-5 the enabled ones.
    uint64_t pushSettings = 0;
    int64_t alertType = AlertTypeBanner;
    bool showsInLockScreen = true;
    bool showsInNotificationCentre = true;

    // What a new section of that type starts with.
    static SectionInfo defaultSectionInfoForType(int64_t sectionType);

    std::string description() const;
    bool operator==(const SectionInfo&) const = default;
};

} // namespace tessel
