#pragma once

#include <cmath>

namespace tessel {

struct Size {
    double width = 0;
    double height = 0;

    // Both sides finite and greater than zero: something that can be drawn.
    bool isDrawable() const
    {
        return std::isfinite(width) && std::isfinite(height) && width > 0 && height > 0;
    }
    bool operator==(const Size&) const = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const Rect&) const = default;
};

} // namespace tessel
