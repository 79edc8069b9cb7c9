#include "platform/archive/KeyedUnarchiver.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PlistChildren.h"
#include "platform/archive/PropertyList.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <plist/plist.h>

namespace tessel {

namespace {

    // Records repeat the same keys in the same places. Remembering the last
    // keys seen at each position lets most keys be recognized by comparison
    // instead of being copied out of libplist one allocation at a time.
    class KeyCache {
    public:
        // The key node's text; valid until the next lookup.
        const std::string* lookup(plist_t keyNode, size_t position)
        {
            if (position >= cachedPositions)
                return copy(keyNode, _scratch);
            auto& slots = _slots[position];
            for (auto& slot : slots) {
                if (!slot.empty() && plist_key_val_compare(keyNode, slot.c_str()) == 0)
                    return &slot;
            }
            // Two slots per position: records alternate with the dictionaries inside them.
            std::swap(slots[0], slots[1]);
            return copy(keyNode, slots[0]);
        }

    private:
        static constexpr size_t cachedPositions = 32;

        static const std::string* copy(plist_t keyNode, std::string& into)
        {
            char* text = nullptr;
            plist_get_key_val(keyNode, &text);
            if (!text) {
                into.clear();
                return nullptr;
            }
            into.assign(text);
            free(text);
            return &into;
        }

        std::array<std::string, 2> _slots[cachedPositions];
        std::string _scratch;
    };

    enum class KeyKind { Plain, Escaped, Marker };

    KeyKind kindOfKey(const std::string& key)
    {
        if (!key.starts_with('$'))
            return KeyKind::Plain;
        return key.starts_with("$$") ? KeyKind::Escaped : KeyKind::Marker;
    }

    class Decoder {
    public:
        Decoder(const UnarchiveOptions& options, std::string& error)
            : _options(options)
            , _error(error)
        {
        }

        std::optional<Value> decode(plist_t node, int depth)
        {
            switch (plist_get_node_type(node)) {
            case PLIST_BOOLEAN: {
                uint8_t flag = 0;
                plist_get_bool_val(node, &flag);
                return Value(flag != 0);
            }
            case PLIST_UINT: {
                uint64_t number = 0;
                plist_get_uint_val(node, &number);
                return Value(static_cast<int64_t>(number));
            }
            case PLIST_REAL: {
                double number = 0;
                plist_get_real_val(node, &number);
                return Value(number);
            }
            case PLIST_STRING: {
                uint64_t length = 0;
                const char* text = plist_get_string_ptr(node, &length);
                std::string_view string = text ? std::string_view(text, length) : std::string_view();
                // Whatever decodes must archive again.
                if (!PropertyList::canHoldString(string))
                    return fail("archive holds a string that is not UTF-8");
                return Value(string);
            }
            case PLIST_DATA: {
                uint64_t length = 0;
                const char* bytes = plist_get_data_ptr(node, &length);
                return Value::data(bytes, bytes ? length : 0);
            }
            case PLIST_DATE:
                // Dates that whole seconds and microseconds hold exactly; others use the marker.
                return PropertyList::fromNode(node);
            case PLIST_ARRAY:
                return decodeArray(node, depth);
            case PLIST_DICT:
                return decodeDictionary(node, depth);
            default:
                return fail("archive holds a node of a foreign type");
            }
        }

    private:
        std::nullopt_t fail(std::string reason)
        {
            if (_error.empty())
                _error = std::move(reason);
            return std::nullopt;
        }

        std::optional<Value> decodeArray(plist_t node, int depth)
        {
            if (depth >= PropertyList::maximumDepth)
                return fail("archive nested too deeply");
            return PlistChildren::decodeArray(node, [&](plist_t child) { return decode(child, depth + 1); });
        }

        // Iterates a dictionary's items with their keys.
        class Items {
        public:
            Items(plist_t dictionary, KeyCache& keys)
                : _children(dictionary)
                , _keys(keys)
            {
            }

            // key stays valid until the next dictionary is read.
            bool next(const std::string*& key, plist_t& value)
            {
                value = _children.next();
                key = value ? _keys.lookup(plist_dict_item_get_key(value), _position++) : nullptr;
                return value && key;
            }

        private:
            PlistChildren _children;
            KeyCache& _keys;
            size_t _position = 0;
        };

        std::optional<Value> decodeDictionary(plist_t node, int depth)
        {
            Items items(node, _keys);
            const std::string* key = nullptr;
            plist_t child = nullptr;
            if (!items.next(key, child))
                return depth >= PropertyList::maximumDepth ? fail("archive nested too deeply")
                                                           : std::optional<Value>(Value(Value::Dictionary()));
            if (kindOfKey(*key) == KeyKind::Marker)
                return decodeMarked(node, *key, child, items, depth);
            if (depth >= PropertyList::maximumDepth)
                return fail("archive nested too deeply");
            Value::Dictionary dictionary;
            if (!decodeItems(dictionary, key, child, items, depth + 1))
                return std::nullopt;
            return Value(std::move(dictionary));
        }

        // Decodes the current item and the rest into dictionary, unescaping keys.
        bool decodeItems(
            Value::Dictionary& dictionary, const std::string* key, plist_t child, Items& items, int depth)
        {
            do {
                auto kind = kindOfKey(*key);
                if (kind == KeyKind::Marker)
                    return fail("archive has a marker inside a dictionary"), false;
                // Copied before decoding the value, which reads further keys.
                std::string name = key->substr(kind == KeyKind::Escaped ? 1 : 0);
                if (!PropertyList::canHoldString(name))
                    return fail("archive holds a key that is not UTF-8"), false;
                auto value = decode(child, depth);
                if (!value)
                    return false;
                // We write keys sorted; a hint at the end makes each insertion constant time.
                auto size = dictionary.size();
                dictionary.emplace_hint(dictionary.end(), std::move(name), std::move(*value));
                if (dictionary.size() == size)
                    return fail("archive repeats a dictionary key"), false;
            } while (items.next(key, child));
            return true;
        }

        std::optional<Value> decodeMarked(
            plist_t node, const std::string& marker, plist_t child, Items& items, int depth)
        {
            uint32_t size = plist_dict_get_size(node);
            if (marker == KeyedArchive::nullMarker) {
                uint8_t flag = 0;
                if (size != 1 || plist_get_node_type(child) != PLIST_BOOLEAN)
                    return fail("archive has a malformed null");
                plist_get_bool_val(child, &flag);
                return flag ? std::optional<Value>(Value()) : fail("archive has a malformed null");
            }
            if (marker == KeyedArchive::dateMarker) {
                double seconds = 0;
                if (size != 1 || plist_get_node_type(child) != PLIST_REAL)
                    return fail("archive has a malformed date");
                plist_get_real_val(child, &seconds);
                return Value(Date(seconds));
            }
            if (marker == KeyedArchive::objectMarker)
                return decodeObject(child, items, depth);
            return fail(std::string("archive has an unknown marker ") + marker);
        }

        std::optional<Value> decodeObject(plist_t classNode, Items& items, int depth)
        {
            if (depth >= PropertyList::maximumDepth)
                return fail("archive nested too deeply");
            uint64_t length = 0;
            const char* text = plist_get_node_type(classNode) == PLIST_STRING
                ? plist_get_string_ptr(classNode, &length)
                : nullptr;
            if (!text || !length)
                return fail("archive has an object without a class name");
            std::string archivedName(text, length);
            if (!PropertyList::canHoldString(archivedName))
                return fail("archive has an object with a malformed class name");
            auto registered = KeyedArchive::registeredClass(archivedName);
            if (!registered && !_options.unknownClassesDecodeAsNull)
                return fail("archive holds an unknown class " + archivedName);
            const auto& allowed = _options.allowedClasses;
            if (registered && !allowed.empty() && !allowed.contains(registered->name)
                && !allowed.contains(archivedName))
                return fail("archive holds a class that is not allowed here: " + archivedName);

            Value::Dictionary fields;
            const std::string* key = nullptr;
            plist_t child = nullptr;
            if (items.next(key, child) && !decodeItems(fields, key, child, items, depth + 1))
                return std::nullopt;
            if (!registered)
                return Value();
            KeyedUnarchiver coder(fields, std::move(archivedName));
            return Value(registered->factory ? registered->factory(coder) : nullptr);
        }

        const UnarchiveOptions& _options;
        std::string& _error;
        KeyCache _keys;
    };

} // namespace

std::optional<Value> KeyedUnarchiver::decodeRoot(
    const void* node, const UnarchiveOptions& options, std::string& error)
{
    return Decoder(options, error).decode(const_cast<plist_t>(node), 0);
}

bool KeyedUnarchiver::containsValueForKey(std::string_view key) const { return _fields.contains(key); }

Value KeyedUnarchiver::decodeObject(std::string_view key) const
{
    auto found = _fields.find(key);
    return found == _fields.end() ? Value() : found->second;
}

Value KeyedUnarchiver::decodeObjectOfClass(std::string_view key, std::string_view className) const
{
    Value value = decodeObject(key);
    if (!value.isObject() || !KeyedArchive::isObjectOfClass(*value.objectValue(), className))
        return Value();
    return value;
}

bool KeyedUnarchiver::decodeBool(std::string_view key) const
{
    Value value = decodeObject(key);
    return value.isBoolean() && value.boolValue();
}

int32_t KeyedUnarchiver::decodeInt32(std::string_view key) const
{
    int64_t number = decodeInt64(key);
    if (number < std::numeric_limits<int32_t>::min() || number > std::numeric_limits<int32_t>::max())
        return 0;
    return static_cast<int32_t>(number);
}

int64_t KeyedUnarchiver::decodeInt64(std::string_view key) const
{
    auto found = _fields.find(key);
    return found != _fields.end() && found->second.isInteger() ? found->second.integerValue() : 0;
}

double KeyedUnarchiver::decodeDouble(std::string_view key) const
{
    auto found = _fields.find(key);
    if (found == _fields.end() || !(found->second.isReal() || found->second.isInteger()))
        return 0;
    return found->second.doubleValue();
}

} // namespace tessel
