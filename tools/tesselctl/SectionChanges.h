#pragma once

#include "tesselctl/JsonPlist.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessel::ctl {

// The KEY=VALUE operands of "settings set" as the changes the daemon takes.
// sounds, badges and alerts each switch one bit of the enabled types, so they
// start from the section's current ones.
class SectionChanges {
public:
    static Json parse(const std::vector<std::string>& operands, uint64_t enabledTypes);
};

} // namespace tessel::ctl
