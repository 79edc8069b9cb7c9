#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tessel::ctl {

// A look at property-list bytes before libplist parses them. Its parsers
// recurse once per level of nesting and expand every reference to a shared
// binary object, so nesting and the expanded size are bounded first, without
// recursion; tables that point outside the input are refused too.
class PlistStructure {
public:
    // The reason the bytes may not be parsed, or none. The expanded tree
    // stays within a small multiple of the input's length.
    static std::optional<std::string> problem(const uint8_t* bytes, size_t length, size_t maximumDepth);

private:
    static std::optional<std::string> binaryProblem(const uint8_t* bytes, size_t length, size_t maximumDepth);
    static std::optional<std::string> xmlProblem(std::string_view text, size_t maximumDepth);
};

} // namespace tessel::ctl
