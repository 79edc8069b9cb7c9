#include "platform/PropertyList.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <plist/plist.h>

namespace tessel {

namespace {

struct NodeDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using NodePointer = std::unique_ptr<void, NodeDeleter>;

void fail(std::string* error, const char* reason)
{
    if (error)
        *error = reason;
}

bool dateFits(double seconds) { return std::isfinite(seconds) && std::fabs(seconds) < 2147483647.0; }

plist_t dateNode(Date date)
{
    double seconds = date.timeIntervalSinceReferenceDate();
    if (!dateFits(seconds))
        return nullptr;
    double whole = std::trunc(seconds);
    auto micros = static_cast<int32_t>(std::llround(std::fabs(seconds - whole) * 1e6));
    if (micros >= 1000000) {
        whole += seconds < 0 ? -1 : 1;
        micros = 0;
    }
    return plist_new_date(static_cast<int32_t>(whole), micros);
}

Date dateFromNode(plist_t node)
{
    int32_t seconds = 0;
    int32_t micros = 0;
    plist_get_date_val(node, &seconds, &micros);
    // libplist splits negative dates into a truncated second and a positive fraction.
    double fraction = std::abs(micros) / 1e6;
    return Date(seconds < 0 ? seconds - fraction : seconds + fraction);
}

plist_t containerNode(const Value& value)
{
    if (value.isArray()) {
        plist_t array = plist_new_array();
        for (const auto& element : value.arrayValue()) {
            plist_t child = static_cast<plist_t>(PropertyList::toNode(element));
            if (!child) {
                plist_free(array);
                return nullptr;
            }
            plist_array_append_item(array, child);
        }
        return array;
    }
    plist_t dictionary = plist_new_dict();
    for (const auto& [key, element] : value.dictionaryValue()) {
        plist_t child = static_cast<plist_t>(PropertyList::toNode(element));
        if (!child || key.find('\0') != std::string::npos) {
            plist_free(child);
            plist_free(dictionary);
            return nullptr;
        }
        plist_dict_set_item(dictionary, key.c_str(), child);
    }
    return dictionary;
}

std::optional<Value> arrayFromNode(plist_t node, int depth)
{
    Value::Array array;
    uint32_t count = plist_array_get_size(node);
    array.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        auto element = PropertyList::fromNode(plist_array_get_item(node, i), depth + 1);
        if (!element)
            return std::nullopt;
        array.push_back(std::move(*element));
    }
    return Value(std::move(array));
}

std::optional<Value> dictionaryFromNode(plist_t node, int depth)
{
    Value::Dictionary dictionary;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    std::optional<Value> result;
    while (true) {
        char* key = nullptr;
        plist_t child = nullptr;
        plist_dict_next_item(node, iterator, &key, &child);
        if (!child) {
            free(key);
            result = Value(std::move(dictionary));
            break;
        }
        auto element = PropertyList::fromNode(child, depth + 1);
        if (!element || !key) {
            free(key);
            break;
        }
        dictionary.insert_or_assign(std::string(key), std::move(*element));
        free(key);
    }
    free(iterator);
    return result;
}

} // namespace

void* PropertyList::toNode(const Value& value)
{
    switch (value.type()) {
    case Value::Type::Boolean:
        return plist_new_bool(value.boolValue());
    case Value::Type::Integer:
        return plist_new_uint(static_cast<uint64_t>(value.integerValue()));
    case Value::Type::Real:
        return plist_new_real(value.doubleValue());
    case Value::Type::String:
        if (value.stringValue().find('\0') != std::string::npos)
            return nullptr;
        return plist_new_string(value.stringValue().c_str());
    case Value::Type::Data: {
        const auto& bytes = value.dataValue();
        return plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    case Value::Type::Date:
        return dateNode(value.dateValue());
    case Value::Type::Array:
    case Value::Type::Dictionary:
        return containerNode(value);
    case Value::Type::Null:
    case Value::Type::Object:
        return nullptr;
    }
    return nullptr;
}

std::optional<Value> PropertyList::fromNode(const void* constNode, int depth)
{
    auto node = const_cast<plist_t>(constNode);
    if (!node || depth > maximumDepth)
        return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return Value(flag != 0);
    }
    case PLIST_UINT:
    case PLIST_UID: {
        uint64_t number = 0;
        if (plist_get_node_type(node) == PLIST_UID)
            plist_get_uid_val(node, &number);
        else
            plist_get_uint_val(node, &number);
        return Value(static_cast<int64_t>(number));
    }
    case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(node, &number);
        return Value(number);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return text ? Value(std::string(text, length)) : Value(std::string());
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        return Value::data(bytes, bytes ? length : 0);
    }
    case PLIST_DATE:
        return Value(dateFromNode(node));
    case PLIST_ARRAY:
        return arrayFromNode(node, depth);
    case PLIST_DICT:
        return dictionaryFromNode(node, depth);
    default:
        return std::nullopt;
    }
}

std::optional<Value> PropertyList::read(const void* bytes, size_t length, std::string* error)
{
    if (!bytes || length == 0)
        return fail(error, "empty property list"), std::nullopt;
    if (length > maximumInputLength)
        return fail(error, "property list too large"), std::nullopt;
    plist_t root = nullptr;
    auto text = static_cast<const char*>(bytes);
    auto size = static_cast<uint32_t>(length);
    if (plist_is_binary(text, size))
        plist_from_bin(text, size, &root);
    else
        plist_from_xml(text, size, &root);
    NodePointer owner(root);
    if (!root)
        return fail(error, "not a property list"), std::nullopt;
    auto value = fromNode(root);
    if (!value)
        fail(error, "property list nested too deeply or of an unknown type");
    return value;
}

std::optional<Bytes> PropertyList::data(const Value& value, Format format, std::string* error)
{
    NodePointer root(toNode(value));
    if (!root)
        return fail(error, "value has no property-list form"), std::nullopt;
    char* bytes = nullptr;
    uint32_t length = 0;
    if (format == Format::Binary)
        plist_to_bin(static_cast<plist_t>(root.get()), &bytes, &length);
    else
        plist_to_xml(static_cast<plist_t>(root.get()), &bytes, &length);
    if (!bytes)
        return fail(error, "could not serialize property list"), std::nullopt;
    Bytes result(reinterpret_cast<uint8_t*>(bytes), reinterpret_cast<uint8_t*>(bytes) + length);
    if (format == Format::Binary)
        plist_to_bin_free(bytes);
    else
        plist_to_xml_free(bytes);
    return result;
}

} // namespace tessel
