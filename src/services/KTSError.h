#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// An error a service answers with; the only one today is remote registration's.
struct KTSError {
    std::string domain;
    int64_t code = 0;
    std::string localizedDescription;

    bool operator==(const KTSError&) const = default;
};

} // namespace tessel
