#pragma once

#include "platform/SectionInfo.h"

namespace tessel {

// Whether the user lets the section's notifications reach them in any way.
bool kt_isEnabled(const SectionInfo& sectionInfo);

} // namespace tessel
