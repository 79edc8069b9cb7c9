#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tessel {

struct UnarchiveOptions;

// Reads the fields of one archived object; a class factory receives one. The
// fields are decoded before the factory runs, so a malformed or forbidden
// field fails the archive whether or not the factory asks for it.
// A missing key or a value of another kind reads as null, false or 0.
class KeyedUnarchiver {
public:
    KeyedUnarchiver(const Value::Dictionary& fields, std::string archivedClassName)
        : _fields(fields)
        , _archivedClassName(std::move(archivedClassName))
    {
    }
    KeyedUnarchiver(const KeyedUnarchiver&) = delete;
    KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

    // The name the object was archived under, before aliases.
    const std::string& archivedClassName() const { return _archivedClassName; }

    bool containsValueForKey(std::string_view key) const;
    Value decodeObject(std::string_view key) const;
    // Null unless the value is an object of className (or a class it aliases).
    Value decodeObjectOfClass(std::string_view key, std::string_view className) const;
    bool decodeBool(std::string_view key) const;
    // Integers outside the int32_t range read as 0, like any other mismatch:
    // a silently wrapped count is worse than a missing one.
    int32_t decodeInt32(std::string_view key) const;
    int64_t decodeInt64(std::string_view key) const;
    // Reals, and integers converted.
    double decodeDouble(std::string_view key) const;

    // Decodes the archived value under the root dictionary's value node; absent
    // with a reason in error for anything malformed or not allowed.
    static std::optional<Value> decodeRoot(
        const void* node, const UnarchiveOptions& options, std::string& error);

private:
    const Value::Dictionary& _fields;
    std::string _archivedClassName;
};

} // namespace tessel
