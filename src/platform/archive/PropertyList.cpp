#include "platform/archive/PropertyList.h"

#include "platform/archive/PlistChildren.h"
#include "platform/foundation/Utf8.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <plist/plist.h>
#include <string_view>
#include <vector>

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

    struct DateParts {
        int32_t seconds;
        int32_t micros; // carries the sign of the seconds: libplist adds the two
    };

    std::optional<DateParts> dateParts(double seconds)
    {
        if (!dateFits(seconds))
            return std::nullopt;
        double whole = std::trunc(seconds);
        auto micros = static_cast<int32_t>(std::llround(std::fabs(seconds - whole) * 1e6));
        if (micros >= 1000000) {
            whole += seconds < 0 ? -1 : 1;
            micros = 0;
        }
        return DateParts { static_cast<int32_t>(whole), seconds < 0 ? -micros : micros };
    }

    plist_t dateNode(Date date)
    {
        auto parts = dateParts(date.timeIntervalSinceReferenceDate());
        return parts ? plist_new_date(parts->seconds, parts->micros) : nullptr;
    }

    // What plist_new_date stores for the parts.
    double partsSeconds(DateParts parts) { return double(parts.seconds) + double(parts.micros) / 1e6; }

    // The parts the getter answers: truncated, and the sign only on the seconds.
    // Absent when they are out of range, as for seconds beyond int32.
    std::optional<DateParts> storedParts(plist_t node)
    {
        DateParts parts { 0, 0 };
        plist_get_date_val(node, &parts.seconds, &parts.micros);
        if (parts.micros < 0 || parts.micros >= 1000000)
            return std::nullopt;
        if (parts.seconds < 0)
            parts.micros = -parts.micros;
        return parts;
    }

    bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

    // Cheap exact read: when the node holds just what plist_new_date makes of the
    // parts its getter answers, those parts give every bit back.
    std::optional<double> canonicalDateSeconds(plist_t node)
    {
        auto parts = storedParts(node);
        if (!parts)
            return std::nullopt;
        NodePointer same(plist_new_date(parts->seconds, parts->micros));
        if (!same || !plist_compare_node_value(node, static_cast<plist_t>(same.get())))
            return std::nullopt;
        return partsSeconds(*parts);
    }

    // The date as libplist holds it: a double of seconds. Its getter truncates that
    // to whole seconds and microseconds and loses the sign between -1 and 0, but the
    // binary writer emits the double unchanged (marker 0x33, big-endian).
    std::optional<double> exactDateSeconds(plist_t node)
    {
        char* bytes = nullptr;
        uint32_t length = 0;
        plist_to_bin(node, &bytes, &length);
        std::optional<double> seconds;
        if (bytes && length >= 17 && static_cast<uint8_t>(bytes[8]) == 0x33) {
            uint64_t bits = 0;
            for (int i = 0; i < 8; ++i)
                bits = (bits << 8) | static_cast<uint8_t>(bytes[9 + i]);
            double value;
            std::memcpy(&value, &bits, sizeof value);
            seconds = value;
        }
        plist_to_bin_free(bytes);
        return seconds;
    }

    Date dateFromNode(plist_t node)
    {
        if (auto seconds = canonicalDateSeconds(node))
            return Date(*seconds);
        if (auto seconds = exactDateSeconds(node))
            return Date(*seconds);
        int32_t seconds = 0;
        int32_t micros = 0;
        plist_get_date_val(node, &seconds, &micros);
        double fraction = std::abs(micros) / 1e6;
        return Date(seconds < 0 ? seconds - fraction : seconds + fraction);
    }

    plist_t containerNode(const Value& value)
    {
        return PlistChildren::makeContainer(
            value, [](const Value& element) { return static_cast<plist_t>(PropertyList::toNode(element)); },
            [](const std::string& key) { return PropertyList::canHoldString(key) ? key.c_str() : nullptr; });
    }

    std::optional<Value> dictionaryFromNode(plist_t node, int depth)
    {
        Value::Dictionary dictionary;
        PlistChildren children(node);
        while (plist_t child = children.next()) {
            char* key = nullptr;
            plist_get_key_val(plist_dict_item_get_key(child), &key);
            std::unique_ptr<char, decltype(&free)> owner(key, &free);
            auto element = PropertyList::fromNode(child, depth + 1);
            if (!element || !key)
                return std::nullopt;
            // Keys come in the order they were written, usually sorted.
            dictionary.insert_or_assign(dictionary.end(), std::string(key), std::move(*element));
        }
        return Value(std::move(dictionary));
    }

    constexpr int structureDepthLimit = PropertyList::maximumDepth + PropertyList::nestingAllowance;

    uint64_t readBigEndian(const uint8_t* bytes, size_t size)
    {
        uint64_t result = 0;
        for (size_t i = 0; i < size; ++i)
            result = (result << 8) | bytes[i];
        return result;
    }

    // Walks the object table of a binary list the way libplist would expand it,
    // without recursion, remembering the depth and expanded size of each object.
    class BinaryStructure {
    public:
        BinaryStructure(const uint8_t* bytes, size_t length)
            : _bytes(bytes)
            , _length(length)
        {
        }

        const char* check()
        {
            constexpr size_t headerLength = 8;
            constexpr size_t trailerLength = 32;
            if (_length < headerLength + trailerLength + 1)
                return "binary property list truncated";
            const uint8_t* trailer = _bytes + _length - trailerLength;
            _offsetSize = trailer[6];
            _referenceSize = trailer[7];
            uint64_t count = readBigEndian(trailer + 8, 8);
            uint64_t top = readBigEndian(trailer + 16, 8);
            uint64_t table = readBigEndian(trailer + 24, 8);
            if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8)
                return "binary property list has a bad trailer";
            if (count == 0 || count > PropertyList::maximumNodeCount || top >= count)
                return "binary property list has a bad object count";
            if (table < headerLength || table > _length - trailerLength
                || count * _offsetSize > _length - trailerLength - table)
                return "binary property list has a bad offset table";
            _count = count;
            _table = table;
            return walk(top);
        }

    private:
        struct Object {
            bool valid = false;
            uint64_t references = 0; // offset of the reference list
            uint64_t referenceCount = 0; // 0 for scalars
        };
        struct Frame {
            uint64_t index;
            Object object;
            uint64_t next = 0;
            uint32_t depth = 0;
            uint64_t size = 1;
        };

        Object parse(uint64_t index) const
        {
            Object object;
            uint64_t offset = readBigEndian(_bytes + _table + index * _offsetSize, _offsetSize);
            if (offset < 8 || offset >= _table)
                return object;
            uint8_t marker = _bytes[offset];
            unsigned type = marker >> 4;
            unsigned info = marker & 15;
            uint64_t position = offset + 1;
            auto available = [&](uint64_t size) { return size <= _table - position; };
            uint64_t count = info;
            if ((type == 4 || type == 5 || type == 6 || type == 0xA || type == 0xC || type == 0xD)
                && info == 15) {
                if (!available(1))
                    return object;
                uint8_t countMarker = _bytes[position++];
                if ((countMarker >> 4) != 1 || (countMarker & 15) > 3)
                    return object;
                size_t size = size_t(1) << (countMarker & 15);
                if (!available(size))
                    return object;
                count = readBigEndian(_bytes + position, size);
                position += size;
            }
            switch (type) {
            case 0:
                object.valid = info == 0 || info == 8 || info == 9 || info == 15;
                return object;
            case 1:
                object.valid = info <= 4 && available(uint64_t(1) << info);
                return object;
            case 2:
                object.valid = (info == 2 || info == 3) && available(uint64_t(1) << info);
                return object;
            case 3:
                object.valid = info == 3 && available(8);
                return object;
            case 4:
                object.valid = available(count);
                return object;
            case 5:
                // libplist asserts that keys hold no NUL; no string of ours does.
                object.valid = available(count) && !std::memchr(_bytes + position, 0, count);
                return object;
            case 6:
                object.valid = count <= (_table - position) / 2;
                for (uint64_t i = 0; object.valid && i < count; ++i)
                    object.valid = _bytes[position + 2 * i] || _bytes[position + 2 * i + 1];
                return object;
            case 8:
                object.valid = available(info + 1);
                return object;
            case 0xA:
            case 0xC:
            case 0xD: {
                uint64_t references = type == 0xD ? count * 2 : count;
                if (type == 0xD && count > UINT64_MAX / 2)
                    return object;
                if (references > (_table - position) / _referenceSize)
                    return object;
                object.valid = true;
                object.references = position;
                object.referenceCount = references;
                return object;
            }
            default:
                return object;
            }
        }

        const char* walk(uint64_t top)
        {
            enum : uint8_t { Unseen, Open, Done };
            std::vector<uint8_t> state(_count, Unseen);
            std::vector<uint32_t> depth(_count, 0);
            std::vector<uint32_t> size(_count, 0);
            std::vector<Frame> stack;

            Object root = parse(top);
            if (!root.valid)
                return "binary property list has a malformed object";
            stack.push_back({ top, root });
            state[top] = Open;
            while (!stack.empty()) {
                Frame& frame = stack.back();
                if (frame.next < frame.object.referenceCount) {
                    uint64_t child = readBigEndian(
                        _bytes + frame.object.references + frame.next * _referenceSize, _referenceSize);
                    ++frame.next;
                    if (child >= _count)
                        return "binary property list references a missing object";
                    if (state[child] == Open)
                        return "binary property list contains a cycle";
                    if (state[child] == Unseen) {
                        Object object = parse(child);
                        if (!object.valid)
                            return "binary property list has a malformed object";
                        if (object.referenceCount || object.references) {
                            if (stack.size() >= structureDepthLimit)
                                return "property list nested too deeply";
                            state[child] = Open;
                            stack.push_back({ child, object });
                            continue;
                        }
                        state[child] = Done;
                        size[child] = 1;
                    }
                    frame.depth = std::max(frame.depth, depth[child]);
                    frame.size += size[child];
                    if (frame.size > PropertyList::maximumNodeCount)
                        return "property list has too many objects";
                    continue;
                }
                uint64_t index = frame.index;
                depth[index] = frame.depth + 1;
                size[index] = static_cast<uint32_t>(frame.size);
                state[index] = Done;
                if (depth[index] > structureDepthLimit)
                    return "property list nested too deeply";
                stack.pop_back();
                if (!stack.empty()) {
                    Frame& parent = stack.back();
                    parent.depth = std::max(parent.depth, depth[index]);
                    parent.size += size[index];
                    if (parent.size > PropertyList::maximumNodeCount)
                        return "property list has too many objects";
                }
            }
            return nullptr;
        }

        const uint8_t* _bytes;
        size_t _length;
        unsigned _offsetSize = 0;
        unsigned _referenceSize = 0;
        uint64_t _count = 0;
        uint64_t _table = 0;
    };

    bool isNameEnd(char c) { return c == '>' || c == '/' || c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

    bool startsWithName(std::string_view text, size_t at, std::string_view name)
    {
        return text.substr(at, name.size()) == name && at + name.size() < text.size()
            && isNameEnd(text[at + name.size()]);
    }

    // Counts open collection tags; comments, CDATA and declarations are skipped
    // so that a closing tag hidden in them cannot hide real nesting.
    const char* checkXml(std::string_view text)
    {
        // libplist asserts that keys hold no NUL, which a raw byte or a character
        // reference could smuggle in.
        if (text.find('\0') != std::string_view::npos)
            return "property list holds a NUL character";
        for (size_t at = text.find("&#"); at != std::string_view::npos; at = text.find("&#", at + 2)) {
            size_t digit = at + 2;
            bool hex = digit < text.size() && (text[digit] == 'x' || text[digit] == 'X');
            digit += hex;
            while (digit < text.size() && text[digit] == '0')
                ++digit;
            if (digit > at + 2 + hex && digit < text.size() && text[digit] == ';')
                return "property list holds a NUL character";
        }
        int depth = 0;
        size_t at = 0;
        while ((at = text.find('<', at)) != std::string_view::npos) {
            std::string_view rest = text.substr(at);
            size_t end;
            if (rest.starts_with("<!--"))
                end = text.find("-->", at + 4);
            else if (rest.starts_with("<![CDATA["))
                end = text.find("]]>", at + 9);
            else
                end = text.find('>', at);
            if (end == std::string_view::npos)
                return nullptr; // unterminated: libplist stops there too
            if (rest.starts_with("</")) {
                if ((startsWithName(text, at + 2, "array") || startsWithName(text, at + 2, "dict"))
                    && depth > 0)
                    --depth;
            } else if (startsWithName(text, at + 1, "array") || startsWithName(text, at + 1, "dict")) {
                if (text[end - 1] != '/' && ++depth > structureDepthLimit)
                    return "property list nested too deeply";
            }
            at = end + 1;
        }
        return nullptr;
    }

} // namespace

bool PropertyList::canHoldString(std::string_view text) { return Utf8::isValid(text, false); }

bool PropertyList::checkStructure(const void* bytes, size_t length, std::string* error)
{
    if (!bytes || length == 0)
        return fail(error, "empty property list"), false;
    if (length > maximumInputLength)
        return fail(error, "property list too large"), false;
    auto text = static_cast<const char*>(bytes);
    const char* problem;
    if (length >= 8 && std::memcmp(text, "bplist00", 8) == 0)
        problem = BinaryStructure(static_cast<const uint8_t*>(bytes), length).check();
    else
        problem = checkXml(std::string_view(text, length));
    if (problem)
        fail(error, problem);
    return !problem;
}

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
        if (!canHoldString(value.stringValue()))
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
    case PLIST_KEY: {
        // plist_get_string_ptr answers nothing for keys.
        char* text = nullptr;
        plist_get_key_val(node, &text);
        Value key(text ? std::string(text) : std::string());
        free(text);
        return key;
    }
    case PLIST_STRING: {
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
        return PlistChildren::decodeArray(
            node, [depth](plist_t child) { return fromNode(child, depth + 1); });
    case PLIST_DICT:
        return dictionaryFromNode(node, depth);
    default:
        return std::nullopt;
    }
}

void* PropertyList::exactDateNode(Date date)
{
    double seconds = date.timeIntervalSinceReferenceDate();
    auto parts = dateParts(seconds);
    if (!parts || !sameBits(partsSeconds(*parts), seconds))
        return nullptr;
    NodePointer node(plist_new_date(parts->seconds, parts->micros));
    // The reader recovers the parts from the truncating getter; they must come back unchanged.
    auto stored = storedParts(static_cast<plist_t>(node.get()));
    if (!stored || stored->seconds != parts->seconds || stored->micros != parts->micros)
        return nullptr;
    return node.release();
}

std::optional<Value> PropertyList::read(const void* bytes, size_t length, std::string* error)
{
    if (!checkStructure(bytes, length, error))
        return std::nullopt;
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
