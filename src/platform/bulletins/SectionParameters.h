#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// How the bulletin service lays out the bulletins of one section.
struct SectionParameters {
    // Applies to bulletins of the section's default subtype.
    struct SubtypeParameters {
        bool suppressesAlertsWhenAppIsActive = false;
        bool suppressesTitle = false;

        bool operator==(const SubtypeParameters&) const = default;
    };

    bool usesVariableLayout = false;
    int32_t messageNumberOfLines = 0;
    SubtypeParameters defaultSubtypeParameters;

    std::string description() const;
    bool operator==(const SectionParameters&) const = default;
};

} // namespace tessel
