#include "tesselctl/JsonPlist.h"

#include "tesselctl/CommandError.h"
#include "tesselctl/Dates.h"
#include "tesselctl/PlistStructure.h"

#include <cstdlib>
#include <memory>
#include <plist/plist.h>

namespace tessel::ctl {

namespace {

    struct NodeFree {
        void operator()(plist_t node) const { plist_free(node); }
    };
    using Node = std::unique_ptr<void, NodeFree>;

    // What libplist hands out with malloc.
    struct MallocFree {
        void operator()(void* memory) const { std::free(memory); }
    };
    template <typename T> using Owned = std::unique_ptr<T, MallocFree>;

    CommandError unreadable(const std::string& reason)
    {
        return { ExitCode::Failed, "unreadable property list: " + reason };
    }

    Json nodeToJson(plist_t node, size_t depth);

    Json arrayToJson(plist_t node, size_t depth)
    {
        Json array = Json::array();
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(node, &iterator);
        Owned<void> owner(iterator);
        plist_t child = nullptr;
        for (plist_array_next_item(node, iterator, &child); child; plist_array_next_item(node, iterator, &child))
            array.push_back(nodeToJson(child, depth + 1));
        return array;
    }

    Json dictionaryToJson(plist_t node, size_t depth)
    {
        Json object = Json::object();
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        Owned<void> owner(iterator);
        while (true) {
            char* key = nullptr;
            plist_t child = nullptr;
            plist_dict_next_item(node, iterator, &key, &child);
            Owned<char> keyOwner(key);
            if (!child)
                break;
            object[key ? key : ""] = nodeToJson(child, depth + 1);
        }
        return object;
    }

    void checkDepth(size_t depth)
    {
        if (depth > JsonPlist::maximumDepth)
            throw CommandError::usage("nested deeper than " + std::to_string(JsonPlist::maximumDepth) + " levels");
    }

    Json nodeToJson(plist_t node, size_t depth)
    {
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return value != 0;
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            // Signed on our side: the bits are the same.
            return static_cast<int64_t>(value);
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return value;
        }
        case PLIST_STRING: {
            char* value = nullptr;
            plist_get_string_val(node, &value);
            Owned<char> owner(value);
            return std::string(value ? value : "");
        }
        case PLIST_DATE: {
            int32_t seconds = 0, micros = 0;
            plist_get_date_val(node, &seconds, &micros);
            return Dates::iso(seconds + micros / 1e6);
        }
        case PLIST_DATA: {
            char* bytes = nullptr;
            uint64_t length = 0;
            plist_get_data_val(node, &bytes, &length);
            Owned<char> owner(bytes);
            return JsonPlist::base64(reinterpret_cast<const uint8_t*>(bytes), bytes ? length : 0);
        }
        case PLIST_UID: {
            uint64_t value = 0;
            plist_get_uid_val(node, &value);
            return value;
        }
        case PLIST_ARRAY:
            if (depth > JsonPlist::maximumDepth)
                throw unreadable("nested too deeply");
            return arrayToJson(node, depth);
        case PLIST_DICT:
            if (depth > JsonPlist::maximumDepth)
                throw unreadable("nested too deeply");
            return dictionaryToJson(node, depth);
        default:
            throw unreadable("a value of an unknown type");
        }
    }

    std::string withoutNul(const std::string& text, const char* what)
    {
        if (text.find('\0') != std::string::npos)
            throw CommandError::usage(std::string(what) + " holding a NUL character cannot become a property list");
        return text;
    }

    plist_t jsonToNode(const Json& value, size_t depth)
    {
        switch (value.type()) {
        case Json::value_t::object: {
            checkDepth(depth);
            Node dictionary(plist_new_dict());
            for (const auto& [key, element] : value.items()) {
                std::string name = withoutNul(key, "a key");
                plist_dict_set_item(dictionary.get(), name.c_str(), jsonToNode(element, depth + 1));
            }
            return dictionary.release();
        }
        case Json::value_t::array: {
            checkDepth(depth);
            Node array(plist_new_array());
            for (const auto& element : value)
                plist_array_append_item(array.get(), jsonToNode(element, depth + 1));
            return array.release();
        }
        case Json::value_t::string:
            return plist_new_string(withoutNul(value.get<std::string>(), "text").c_str());
        case Json::value_t::boolean:
            return plist_new_bool(value.get<bool>());
        case Json::value_t::number_integer:
            return plist_new_uint(static_cast<uint64_t>(value.get<int64_t>()));
        case Json::value_t::number_unsigned:
            return plist_new_uint(value.get<uint64_t>());
        case Json::value_t::number_float:
            return plist_new_real(value.get<double>());
        default:
            throw CommandError::usage("null has no property-list form");
        }
    }

    std::vector<uint8_t> binary(plist_t node)
    {
        char* bytes = nullptr;
        uint32_t length = 0;
        plist_to_bin(node, &bytes, &length);
        std::vector<uint8_t> data(bytes, bytes + (bytes ? length : 0));
        plist_to_bin_free(bytes);
        return data;
    }

    // Parsed after the structural check; none when libplist reads nothing.
    Node parse(const uint8_t* bytes, size_t length)
    {
        if (length > UINT32_MAX)
            return nullptr;
        plist_t node = nullptr;
        plist_from_memory(reinterpret_cast<const char*>(bytes), static_cast<uint32_t>(length), &node);
        return Node(node);
    }

} // namespace

Json JsonPlist::toJson(const std::vector<uint8_t>& plist)
{
    if (auto problem = PlistStructure::problem(plist.data(), plist.size(), maximumDepth))
        throw unreadable(*problem);
    Node node = parse(plist.data(), plist.size());
    if (!node)
        throw unreadable("libplist could not read it");
    return nodeToJson(node.get(), 1);
}

std::vector<uint8_t> JsonPlist::toBinary(const Json& value)
{
    Node node(jsonToNode(value, 1));
    return binary(node.get());
}

Json JsonPlist::parseJson(std::string_view text, const std::string& what)
{
    if (text.size() > maximumInputLength)
        throw CommandError::usage(what + " is longer than " + std::to_string(maximumInputLength) + " bytes");
    auto bounded = [&](int depth, nlohmann::json::parse_event_t event, Json&) {
        using Event = nlohmann::json::parse_event_t;
        if ((event == Event::object_start || event == Event::array_start)
            && static_cast<size_t>(depth) >= maximumDepth)
            throw CommandError::usage(what + " is nested deeper than " + std::to_string(maximumDepth));
        return true;
    };
    try {
        return Json::parse(text.begin(), text.end(), bounded);
    } catch (const Json::exception& error) {
        throw CommandError::usage(what + " is not JSON: " + error.what());
    }
}

std::vector<uint8_t> JsonPlist::dictionaryFromUser(std::string_view text, const std::string& what)
{
    if (text.size() > maximumInputLength)
        throw CommandError::usage(what + " is longer than " + std::to_string(maximumInputLength) + " bytes");
    size_t first = text.find_first_not_of(" \t\r\n");
    bool plist = text.starts_with("bplist00") || (first != std::string_view::npos && text[first] == '<');
    if (!plist) {
        Json value = parseJson(text, what);
        if (!value.is_object())
            throw CommandError::usage(what + " must be a JSON object");
        return toBinary(value);
    }
    auto bytes = reinterpret_cast<const uint8_t*>(text.data());
    if (auto problem = PlistStructure::problem(bytes, text.size(), maximumDepth))
        throw CommandError::usage(what + " is not a property list we read: " + *problem);
    Node node = parse(bytes, text.size());
    if (!node || plist_get_node_type(node.get()) != PLIST_DICT)
        throw CommandError::usage(what + " must be a property list of a dictionary");
    return binary(node.get());
}

std::string JsonPlist::base64(const uint8_t* bytes, size_t length)
{
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((length + 2) / 3 * 4);
    for (size_t at = 0; at < length; at += 3) {
        uint32_t group = uint32_t(bytes[at]) << 16;
        if (at + 1 < length)
            group |= uint32_t(bytes[at + 1]) << 8;
        if (at + 2 < length)
            group |= bytes[at + 2];
        text += alphabet[group >> 18 & 63];
        text += alphabet[group >> 12 & 63];
        text += at + 1 < length ? alphabet[group >> 6 & 63] : '=';
        text += at + 2 < length ? alphabet[group & 63] : '=';
    }
    return text;
}

} // namespace tessel::ctl
