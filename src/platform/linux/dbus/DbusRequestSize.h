#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <cstddef>
#include <optional>

namespace tessel {

// What a call's arguments amount to, read from the message in place before
// anything is unmarshalled: a flood of tiny list entries costs nothing here.
class DbusRequestSize {
public:
    // Bytes of the byte arrays (alone or in lists) and strings.
    size_t bytes = 0;
    // Entries of the longest list of byte arrays.
    size_t listItems = 0;

    // Absent when the arguments cannot be walked. Stops as soon as a count
    // passes its bound, so that one huge call costs no more than a fitting
    // one. Leaves the message rewound.
    static std::optional<DbusRequestSize> measure(
        const sdbus::Message& message, size_t maxBytes, size_t maxListItems);
};

} // namespace tessel
