#pragma once

#include <cstddef>
#include <string_view>

namespace tessel {

// UTF-8 checks for text that comes from outside.
class Utf8 {
public:
    // Well-formed UTF-8: shortest forms only, no surrogates, nothing above
    // U+10FFFF; a NUL byte is allowed only when asked for.
    static bool isValid(std::string_view text, bool allowNul = true);
    // Length of the well-formed sequence at text (NUL counts as one byte when
    // allowed), or 0 when none starts there.
    static size_t sequenceLength(const unsigned char* text, size_t available, bool allowNul = true);
    // Equal but for the case of ASCII letters; every other byte must match,
    // so names from outside never match by a locale's folding.
    static bool equalsIgnoringASCIICase(std::string_view a, std::string_view b);
};

} // namespace tessel
