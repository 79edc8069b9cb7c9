#pragma once

#include "platform/foundation/Value.h"

#include <optional>
#include <plist/plist.h>
#include <utility>

namespace tessel {

// The children of a libplist array or dictionary, in order; a dictionary's
// children are its values, and plist_dict_item_get_key gives each one's key.
// Index lookups walk a parsed container from its start, so only an iterator
// keeps a walk linear.
class PlistChildren {
public:
    explicit PlistChildren(plist_t container);
    ~PlistChildren();
    PlistChildren(const PlistChildren&) = delete;
    PlistChildren& operator=(const PlistChildren&) = delete;

    // nullptr after the last child.
    plist_t next();

    // The array of decode(child) for each child; absent as soon as one is.
    template <typename Decode> static std::optional<Value> decodeArray(plist_t array, Decode&& decode)
    {
        Value::Array elements;
        elements.reserve(plist_array_get_size(array));
        PlistChildren children(array);
        while (plist_t child = children.next()) {
            std::optional<Value> element = decode(child);
            if (!element)
                return std::nullopt;
            elements.push_back(std::move(*element));
        }
        return Value(std::move(elements));
    }

private:
    plist_t _container;
    bool _isDictionary;
    void* _iterator = nullptr;
};

} // namespace tessel
