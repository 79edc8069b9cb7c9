#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace tessel {

// Property lists (XML or binary, through libplist) to and from Values.
// Integers are signed 64-bit on our side (libplist keeps them unsigned; the bits
// are the same). Binary dates read back exactly, written ones keep microseconds;
// libplist writes XML dates in whole seconds.
class PropertyList {
public:
    enum class Format { Binary, Xml };

    // Inputs larger than this are refused before parsing.
    static constexpr size_t maximumInputLength = 64 * 1024 * 1024;
    // Deeper nesting than this is refused.
    static constexpr int maximumDepth = 256;
    // A binary list may reference one object from many places; libplist expands
    // every reference, so the expanded tree is capped as well.
    static constexpr size_t maximumNodeCount = 4 * 1024 * 1024;

    // Parses XML or binary; absent with a reason on any failure.
    static std::optional<Value> read(const void* bytes, size_t length, std::string* error = nullptr);
    static std::optional<Value> read(const Bytes& bytes, std::string* error = nullptr)
    {
        return read(bytes.data(), bytes.size(), error);
    }
    // Fails for values a property list cannot hold: null and archivable objects.
    static std::optional<Bytes> data(const Value& value, Format format, std::string* error = nullptr);

    // Cheap structural check of bytes before libplist parses them: its parsers
    // recurse once per nesting level and copy shared binary objects per
    // reference, so hostile input could overflow the stack or exhaust memory.
    // Refuses nesting deeper than maximumDepth + nestingAllowance, expanded
    // trees above maximumNodeCount and binary tables that point outside the input.
    static constexpr int nestingAllowance = 8;
    static bool checkStructure(const void* bytes, size_t length, std::string* error = nullptr);
    // Valid UTF-8 without NUL: what a libplist string or key keeps intact.
    static bool canHoldString(std::string_view text);

    // The node conversions, for writers that build their own trees. toNode
    // answers nullptr for a value that has no property-list form; the caller
    // owns the node. fromNode answers absent beyond maximumDepth.
    static void* toNode(const Value& value);
    static std::optional<Value> fromNode(const void* node, int depth = 0);
    // A date node that reads back as exactly date, or nullptr when libplist's
    // int32 seconds and microseconds cannot hold it to the bit.
    static void* exactDateNode(Date date);
};

} // namespace tessel
