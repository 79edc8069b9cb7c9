#pragma once

#include <stdexcept>
#include <string>

namespace tessel {

// A programming error in a caller's arguments. The text names the failed
// condition: "Invalid parameter not satisfying: <condition>".
class KTInternalInconsistencyException : public std::logic_error {
public:
    explicit KTInternalInconsistencyException(const std::string& condition);
};

} // namespace tessel
