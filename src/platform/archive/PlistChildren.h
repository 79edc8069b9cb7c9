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

    // The reverse: the array or dictionary node of value, each element's node
    // made by encode and each dictionary key stored under the name key answers;
    // either answering null refuses the whole container.
    template <typename Encode, typename Key>
    static plist_t makeContainer(const Value& value, Encode&& encode, Key&& key)
    {
        if (value.isArray()) {
            plist_t array = plist_new_array();
            for (const auto& element : value.arrayValue()) {
                plist_t child = encode(element);
                if (!child) {
                    plist_free(array);
                    return nullptr;
                }
                plist_array_append_item(array, child);
            }
            return array;
        }
        plist_t dictionary = plist_new_dict();
        for (const auto& [name, element] : value.dictionaryValue()) {
            const char* stored = key(name);
            plist_t child = stored ? encode(element) : nullptr;
            if (!child) {
                plist_free(dictionary);
                return nullptr;
            }
            plist_dict_set_item(dictionary, stored, child);
        }
        return dictionary;
    }

private:
    plist_t _container;
    bool _isDictionary;
    void* _iterator = nullptr;
};

} // namespace tessel
