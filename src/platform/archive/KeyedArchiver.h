#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel {

// Writes the fields of one archived object; an Archivable receives one in
// encodeWithCoder(). Encoding a key twice keeps the last value. The first
// failure (a value without archive form) sticks and fails the whole archive.
class KeyedArchiver {
public:
    KeyedArchiver(const KeyedArchiver&) = delete;
    KeyedArchiver& operator=(const KeyedArchiver&) = delete;

    void encodeObject(const Value& value, std::string_view key);
    void encodeBool(bool value, std::string_view key);
    void encodeInt32(int32_t value, std::string_view key);
    void encodeInt64(int64_t value, std::string_view key);
    void encodeDouble(double value, std::string_view key);

    bool failed() const { return !_error.empty(); }

private:
    friend class KeyedArchive;

    // dictionary is the libplist node receiving the fields; depth counts the
    // collections and objects around it.
    KeyedArchiver(void* dictionary, int depth, std::string& error)
        : _dictionary(dictionary)
        , _depth(depth)
        , _error(error)
    {
    }

    void* node(const Value& value, int depth);
    void* collectionNode(const Value& value, int depth);
    void* objectNode(const Archivable& object, int depth);
    void setItem(std::string_view key, void* node);
    void setRawItem(const char* key, void* node);
    bool fail(std::string reason);

    void* _dictionary;
    int _depth;
    std::string& _error;
};

} // namespace tessel
