#include "platform/archive/KeyedArchiver.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PlistChildren.h"
#include "platform/archive/PropertyList.h"

#include <plist/plist.h>

namespace tessel {

namespace {

    // Keys beginning with '$' get one more, so they never read as markers.
    const char* escapedKey(std::string_view key, std::string& buffer)
    {
        buffer.clear();
        if (key.starts_with('$'))
            buffer += '$';
        buffer += key;
        return buffer.c_str();
    }

} // namespace

bool KeyedArchiver::fail(std::string reason)
{
    if (_error.empty())
        _error = std::move(reason);
    return false;
}

void KeyedArchiver::setRawItem(const char* key, void* node)
{
    plist_dict_set_item(static_cast<plist_t>(_dictionary), key, static_cast<plist_t>(node));
}

void KeyedArchiver::setItem(std::string_view key, void* node)
{
    if (!node)
        return;
    if (!PropertyList::canHoldString(key)) {
        plist_free(static_cast<plist_t>(node));
        fail("key is not UTF-8 or holds NUL");
        return;
    }
    std::string buffer;
    setRawItem(escapedKey(key, buffer), node);
}

void KeyedArchiver::encodeObject(const Value& value, std::string_view key)
{
    if (!failed())
        setItem(key, node(value, _depth));
}

void KeyedArchiver::encodeBool(bool value, std::string_view key)
{
    if (!failed())
        setItem(key, plist_new_bool(value));
}

void KeyedArchiver::encodeInt32(int32_t value, std::string_view key) { encodeInt64(value, key); }

void KeyedArchiver::encodeInt64(int64_t value, std::string_view key)
{
    // libplist holds the two's-complement bits; the reader converts back.
    if (!failed())
        setItem(key, plist_new_uint(static_cast<uint64_t>(value)));
}

void KeyedArchiver::encodeDouble(double value, std::string_view key)
{
    if (!failed())
        setItem(key, plist_new_real(value));
}

void* KeyedArchiver::node(const Value& value, int depth)
{
    switch (value.type()) {
    case Value::Type::Null: {
        plist_t marker = plist_new_dict();
        plist_dict_set_item(marker, KeyedArchive::nullMarker, plist_new_bool(1));
        return marker;
    }
    case Value::Type::Boolean:
        return plist_new_bool(value.boolValue());
    case Value::Type::Integer:
        return plist_new_uint(static_cast<uint64_t>(value.integerValue()));
    case Value::Type::Real:
        return plist_new_real(value.doubleValue());
    case Value::Type::String:
        if (!PropertyList::canHoldString(value.stringValue()))
            return fail("string is not UTF-8 or holds NUL"), nullptr;
        return plist_new_string(value.stringValue().c_str());
    case Value::Type::Data: {
        const auto& bytes = value.dataValue();
        return plist_new_data(bytes.empty() ? "" : reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    case Value::Type::Date: {
        if (void* date = PropertyList::exactDateNode(value.dateValue()))
            return date;
        // libplist dates keep only int32 seconds and microseconds.
        plist_t marker = plist_new_dict();
        plist_dict_set_item(marker, KeyedArchive::dateMarker,
            plist_new_real(value.dateValue().timeIntervalSinceReferenceDate()));
        return marker;
    }
    case Value::Type::Array:
    case Value::Type::Dictionary:
        return collectionNode(value, depth);
    case Value::Type::Object:
        return objectNode(*value.objectValue(), depth);
    }
    return nullptr;
}

void* KeyedArchiver::collectionNode(const Value& value, int depth)
{
    if (depth >= PropertyList::maximumDepth)
        return fail("value nested too deeply"), nullptr;
    std::string buffer;
    return PlistChildren::makeContainer(
        value, [&](const Value& element) { return static_cast<plist_t>(node(element, depth + 1)); },
        [&](const std::string& key) -> const char* {
            if (!PropertyList::canHoldString(key))
                return fail("key is not UTF-8 or holds NUL"), nullptr;
            return key.starts_with('$') ? escapedKey(key, buffer) : key.c_str();
        });
}

void* KeyedArchiver::objectNode(const Archivable& object, int depth)
{
    if (depth >= PropertyList::maximumDepth)
        return fail("value nested too deeply"), nullptr;
    std::string className = object.className();
    if (className.empty() || !PropertyList::canHoldString(className))
        return fail("object has no usable class name"), nullptr;
    plist_t dictionary = plist_new_dict();
    plist_dict_set_item(dictionary, KeyedArchive::objectMarker, plist_new_string(className.c_str()));
    KeyedArchiver fields(dictionary, depth + 1, _error);
    object.encodeWithCoder(fields);
    if (failed()) {
        plist_free(dictionary);
        return nullptr;
    }
    return dictionary;
}

} // namespace tessel
