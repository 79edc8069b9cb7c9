#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// How a bulletin's button looks.
struct ActionAppearance {
    enum Style : int64_t { StyleDefault = 0, StyleDestructive = 1 };

    std::string title;
    int64_t style = StyleDefault;

    std::string description() const;
    bool operator==(const ActionAppearance&) const = default;
};

} // namespace tessel
