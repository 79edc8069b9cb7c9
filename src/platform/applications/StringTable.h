#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <string>

namespace tessel {

// Localized string tables as applications ship them: a property list holding a
// dictionary of strings, or the text form
//
//     /* comment */ "key" = "value";   // comment
//     simple_key = "value";
//     "same";                          // the key is its own value
//
// Text is UTF-8 (an initial byte order mark is skipped) or UTF-16 with a byte
// order mark. Quoted strings take the escapes \" \\ \' \n \t \r and \uXXXX or
// \UXXXX (UTF-16 units; a surrogate pair is two escapes in a row). Unquoted
// words use letters, digits and _ . $ : -. A later entry replaces an earlier one
// with the same key. Tables come from applications, so anything malformed fails
// as a whole: no partial table.
class StringTable {
public:
    static constexpr size_t maximumInputLength = 16 * 1024 * 1024;

    // The text form only.
    static std::optional<Value::Dictionary> parse(
        const void* bytes, size_t length, std::string* error = nullptr);
    // A property list when the bytes look like one, the text form otherwise.
    static std::optional<Value::Dictionary> read(const Bytes& bytes, std::string* error = nullptr);
    // As read(), as a dictionary value: a property list's dictionary is kept, not copied.
    static std::optional<Value> readValue(const Bytes& bytes, std::string* error = nullptr);
    // The text form of a table whose keys and values are strings; parse() reads
    // it back equal. Other values are left out.
    static std::string text(const Value::Dictionary& table);
};

} // namespace tessel
