#pragma once

#include "platform/bulletins/SectionInfo.h"

#include <cstdint>

namespace tessel {

// Push settings of a section: bits 0-2 the types the application ever
// registered (badge 1, sound 2, alert 4), bits 3-5 the ones the user allows,
// each the supported bit shifted left by 3.
inline constexpr uint64_t KTSupportedTypesMask = 7;
inline constexpr uint64_t KTEnabledTypesMask = 7 << 3;

// Whether the user lets the section's notifications reach them in any way.
bool kt_isEnabled(const SectionInfo& sectionInfo);
// The types that actually reach the user: none while notifications are off,
// and alert only when the user gave alerts a style.
uint64_t kt_effectiveNotificationTypes(const SectionInfo& sectionInfo);
// A copy registering types: a type new to the section starts enabled, one
// already supported keeps the user's choice, and nothing is ever unsupported.
SectionInfo kt_sectionInfoWithNotificationTypes(const SectionInfo& sectionInfo, uint64_t types);

} // namespace tessel
