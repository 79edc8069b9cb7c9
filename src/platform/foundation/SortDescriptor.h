#pragma once

#include <string>

namespace tessel {

// How the bulletin service orders a section's bulletins: by the named field.
struct SortDescriptor {
    std::string key;
    bool ascending = true;

    bool operator==(const SortDescriptor&) const = default;
};

} // namespace tessel
