#include "tesselctl/PlistStructure.h"

#include <cstring>
#include <string_view>
#include <vector>

namespace tessel::ctl {

namespace {

    uint64_t bigEndian(const uint8_t* bytes, size_t size)
    {
        uint64_t value = 0;
        for (size_t i = 0; i < size; ++i)
            value = value << 8 | bytes[i];
        return value;
    }

    // The object table of a binary list: each object's references, if any.
    class ObjectTable {
    public:
        struct Object {
            bool valid = false;
            uint64_t references = 0; // where the list of references starts
            uint64_t referenceCount = 0;
        };

        ObjectTable(const uint8_t* bytes, size_t length)
            : _bytes(bytes)
            , _length(length)
        {
        }

        const char* open()
        {
            constexpr size_t trailerLength = 32;
            if (_length < 8 + trailerLength + 1)
                return "truncated binary property list";
            const uint8_t* trailer = _bytes + _length - trailerLength;
            _offsetSize = trailer[6];
            _referenceSize = trailer[7];
            count = bigEndian(trailer + 8, 8);
            top = bigEndian(trailer + 16, 8);
            _table = bigEndian(trailer + 24, 8);
            if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8)
                return "binary property list with a bad trailer";
            if (count == 0 || count > _length || top >= count)
                return "binary property list with a bad object count";
            if (_table < 8 || _table > _length - trailerLength || count * _offsetSize > _length - trailerLength - _table)
                return "binary property list with a bad offset table";
            return nullptr;
        }

        Object object(uint64_t index) const
        {
            Object object;
            uint64_t offset = bigEndian(_bytes + _table + index * _offsetSize, _offsetSize);
            if (offset < 8 || offset >= _table)
                return object;
            unsigned type = _bytes[offset] >> 4;
            unsigned info = _bytes[offset] & 15;
            uint64_t count = info;
            uint64_t position = offset + 1;
            auto available = [&](uint64_t size) { return size <= _table - position; };
            bool counted = type == 4 || type == 5 || type == 6 || type == 0xA || type == 0xC || type == 0xD;
            if (counted && info == 15) {
                if (!available(1) || (_bytes[position] >> 4) != 1 || (_bytes[position] & 15) > 3)
                    return object;
                size_t size = size_t(1) << (_bytes[position] & 15);
                ++position;
                if (!available(size))
                    return object;
                count = bigEndian(_bytes + position, size);
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
                // A key holding NUL trips libplist's assertions.
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
            case 0xD:
                break;
            default:
                return object;
            }
            uint64_t references = type == 0xD ? count * 2 : count;
            if (count > _length || references > (_table - position) / _referenceSize)
                return object;
            return { true, position, references };
        }

        uint64_t reference(const Object& object, uint64_t which) const
        {
            return bigEndian(_bytes + object.references + which * _referenceSize, _referenceSize);
        }

        uint64_t count = 0;
        uint64_t top = 0;

    private:
        const uint8_t* _bytes;
        size_t _length;
        unsigned _offsetSize = 0;
        unsigned _referenceSize = 0;
        uint64_t _table = 0;
    };

    bool nameFollows(std::string_view text, size_t at, std::string_view name)
    {
        if (text.substr(at, name.size()) != name || at + name.size() >= text.size())
            return false;
        char next = text[at + name.size()];
        return next == '>' || next == '/' || next == ' ' || next == '\t' || next == '\r' || next == '\n';
    }

} // namespace

std::optional<std::string> PlistStructure::problem(const uint8_t* bytes, size_t length, size_t maximumDepth)
{
    if (!bytes || length == 0)
        return "empty property list";
    if (length >= 8 && std::memcmp(bytes, "bplist00", 8) == 0)
        return binaryProblem(bytes, length, maximumDepth);
    return xmlProblem(std::string_view(reinterpret_cast<const char*>(bytes), length), maximumDepth);
}

std::optional<std::string> PlistStructure::binaryProblem(const uint8_t* bytes, size_t length, size_t maximumDepth)
{
    ObjectTable table(bytes, length);
    if (const char* problem = table.open())
        return problem;
    // Walks the tree as libplist will expand it, counting every node it will make.
    const uint64_t maximumNodes = 4 * static_cast<uint64_t>(length) + 64;
    struct Frame {
        ObjectTable::Object object;
        uint64_t index;
        uint64_t next = 0;
    };
    std::vector<uint8_t> open(table.count, 0);
    std::vector<Frame> stack;
    uint64_t nodes = 1;
    auto enter = [&](uint64_t index) -> const char* {
        auto object = table.object(index);
        if (!object.valid)
            return "binary property list with a malformed object";
        if (!object.referenceCount)
            return nullptr;
        if (stack.size() >= maximumDepth)
            return "property list nested too deeply";
        if (open[index])
            return "binary property list that contains itself";
        open[index] = 1;
        stack.push_back({ object, index });
        return nullptr;
    };
    if (const char* problem = enter(table.top))
        return problem;
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next == frame.object.referenceCount) {
            open[frame.index] = 0;
            stack.pop_back();
            continue;
        }
        uint64_t child = table.reference(frame.object, frame.next++);
        if (child >= table.count)
            return "binary property list with a reference to nothing";
        if (++nodes > maximumNodes)
            return "binary property list that expands too far";
        if (const char* problem = enter(child))
            return problem;
    }
    return std::nullopt;
}

std::optional<std::string> PlistStructure::xmlProblem(std::string_view text, size_t maximumDepth)
{
    if (text.find('\0') != std::string_view::npos)
        return "property list holding a NUL character";
    // A character reference to NUL, in any spelling.
    for (size_t at = text.find("&#"); at != std::string_view::npos; at = text.find("&#", at + 2)) {
        size_t digit = at + 2;
        bool hex = digit < text.size() && (text[digit] == 'x' || text[digit] == 'X');
        digit += hex;
        size_t zeros = digit;
        while (digit < text.size() && text[digit] == '0')
            ++digit;
        if (digit > zeros && digit < text.size() && text[digit] == ';')
            return "property list holding a NUL character";
    }
    // Comments and CDATA are skipped, so that a closing tag inside one cannot hide nesting.
    size_t depth = 0;
    for (size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at)) {
        std::string_view rest = text.substr(at);
        size_t end = rest.starts_with("<!--") ? text.find("-->", at + 4)
            : rest.starts_with("<![CDATA[")   ? text.find("]]>", at + 9)
                                              : text.find('>', at);
        if (end == std::string_view::npos)
            return std::nullopt;
        if (rest.starts_with("</")) {
            if ((nameFollows(text, at + 2, "array") || nameFollows(text, at + 2, "dict")) && depth > 0)
                --depth;
        } else if ((nameFollows(text, at + 1, "array") || nameFollows(text, at + 1, "dict"))
            && text[end - 1] != '/' && ++depth > maximumDepth) {
            return "property list nested too deeply";
        }
        at = end + 1;
    }
    return std::nullopt;
}

} // namespace tessel::ctl
