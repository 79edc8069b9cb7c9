#pragma once

#include "platform/Value.h"

#include <optional>
#include <string>

namespace tessel {

// Property lists (XML or binary, through libplist) to and from Values.
// Integers are signed 64-bit on our side (libplist keeps them unsigned; the bits
// are the same), dates keep microseconds.
class PropertyList {
public:
    enum class Format { Binary, Xml };

    // Inputs larger than this are refused before parsing.
    static constexpr size_t maximumInputLength = 64 * 1024 * 1024;
    // Deeper nesting than this is refused.
    static constexpr int maximumDepth = 256;

    // Parses XML or binary; absent with a reason on any failure.
    static std::optional<Value> read(const void* bytes, size_t length, std::string* error = nullptr);
    static std::optional<Value> read(const Bytes& bytes, std::string* error = nullptr)
    {
        return read(bytes.data(), bytes.size(), error);
    }
    // Fails for values a property list cannot hold: null and archivable objects.
    static std::optional<Bytes> data(const Value& value, Format format, std::string* error = nullptr);

    // The node conversions, for writers that build their own trees. toNode
    // answers nullptr for a value that has no property-list form; the caller
    // owns the node. fromNode answers absent beyond maximumDepth.
    static void* toNode(const Value& value);
    static std::optional<Value> fromNode(const void* node, int depth = 0);
};

} // namespace tessel
