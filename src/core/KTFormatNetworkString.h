#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// The text that stands for a missing argument.
inline constexpr std::string_view KTNetworkStringNullPlaceholder = "(null)";

// Substitutes arguments from the network into a format from the network. Only
// "%@", "%N$@" and "%%" are understood; anything else after a "%" is dropped.
// Absent when the format is absent or the result is not valid UTF-8.
std::optional<std::string> KTFormatNetworkString(
    const std::optional<std::string_view>& format, const std::vector<Value>& arguments);

} // namespace tessel
