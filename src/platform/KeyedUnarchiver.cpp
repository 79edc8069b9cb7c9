#include "platform/KeyedUnarchiver.h"

#include "platform/KeyedArchive.h"
#include "platform/PropertyList.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <plist/plist.h>

namespace tessel {

namespace {

    struct KeyDeleter {
        void operator()(char* key) const { free(key); }
    };
    using Key = std::unique_ptr<char, KeyDeleter>;

    enum class KeyKind { Plain, Escaped, Marker };

    KeyKind kindOfKey(const char* key)
    {
        if (key[0] != '$')
            return KeyKind::Plain;
        return key[1] == '$' ? KeyKind::Escaped : KeyKind::Marker;
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
            uint32_t count = plist_array_get_size(node);
            Value::Array array;
            array.reserve(count);
            for (uint32_t i = 0; i < count; ++i) {
                auto element = decode(plist_array_get_item(node, i), depth + 1);
                if (!element)
                    return std::nullopt;
                array.push_back(std::move(*element));
            }
            return Value(std::move(array));
        }

        // Iterates a dictionary's items, owning the key copies libplist hands out.
        class Items {
        public:
            explicit Items(plist_t dictionary)
                : _dictionary(dictionary)
            {
                plist_dict_new_iter(dictionary, &_iterator);
            }
            ~Items() { free(_iterator); }
            Items(const Items&) = delete;
            Items& operator=(const Items&) = delete;

            bool next(Key& key, plist_t& value)
            {
                char* text = nullptr;
                value = nullptr;
                plist_dict_next_item(_dictionary, _iterator, &text, &value);
                key.reset(text);
                return value && text;
            }

        private:
            plist_t _dictionary;
            plist_dict_iter _iterator = nullptr;
        };

        std::optional<Value> decodeDictionary(plist_t node, int depth)
        {
            Items items(node);
            Key key;
            plist_t child = nullptr;
            if (!items.next(key, child))
                return depth >= PropertyList::maximumDepth ? fail("archive nested too deeply")
                                                           : std::optional<Value>(Value(Value::Dictionary()));
            if (kindOfKey(key.get()) == KeyKind::Marker)
                return decodeMarked(node, key.get(), child, items, depth);
            if (depth >= PropertyList::maximumDepth)
                return fail("archive nested too deeply");
            Value::Dictionary dictionary;
            if (!decodeItems(dictionary, key, child, items, depth + 1))
                return std::nullopt;
            return Value(std::move(dictionary));
        }

        // Decodes the current item and the rest into dictionary, unescaping keys.
        bool decodeItems(Value::Dictionary& dictionary, Key& key, plist_t child, Items& items, int depth)
        {
            do {
                auto kind = kindOfKey(key.get());
                if (kind == KeyKind::Marker)
                    return fail("archive has a marker inside a dictionary"), false;
                auto value = decode(child, depth);
                if (!value)
                    return false;
                const char* name = key.get() + (kind == KeyKind::Escaped ? 1 : 0);
                if (!PropertyList::canHoldString(name))
                    return fail("archive holds a key that is not UTF-8"), false;
                if (!dictionary.emplace(name, std::move(*value)).second)
                    return fail("archive repeats a dictionary key"), false;
            } while (items.next(key, child));
            return true;
        }

        std::optional<Value> decodeMarked(
            plist_t node, const char* marker, plist_t child, Items& items, int depth)
        {
            uint32_t size = plist_dict_get_size(node);
            if (std::strcmp(marker, KeyedArchive::nullMarker) == 0) {
                uint8_t flag = 0;
                if (size != 1 || plist_get_node_type(child) != PLIST_BOOLEAN)
                    return fail("archive has a malformed null");
                plist_get_bool_val(child, &flag);
                return flag ? std::optional<Value>(Value()) : fail("archive has a malformed null");
            }
            if (std::strcmp(marker, KeyedArchive::dateMarker) == 0) {
                double seconds = 0;
                if (size != 1 || plist_get_node_type(child) != PLIST_REAL)
                    return fail("archive has a malformed date");
                plist_get_real_val(child, &seconds);
                return Value(Date(seconds));
            }
            if (std::strcmp(marker, KeyedArchive::objectMarker) == 0)
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
            if (!registered)
                return fail("archive holds an unknown class " + archivedName);
            const auto& allowed = _options.allowedClasses;
            if (!allowed.empty() && !allowed.contains(registered->name) && !allowed.contains(archivedName))
                return fail("archive holds a class that is not allowed here: " + archivedName);

            Value::Dictionary fields;
            Key key;
            plist_t child = nullptr;
            if (items.next(key, child) && !decodeItems(fields, key, child, items, depth + 1))
                return std::nullopt;
            KeyedUnarchiver coder(fields, std::move(archivedName));
            return Value(registered->factory ? registered->factory(coder) : nullptr);
        }

        const UnarchiveOptions& _options;
        std::string& _error;
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
