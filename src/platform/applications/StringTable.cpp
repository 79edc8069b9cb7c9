#include "platform/applications/StringTable.h"

#include "platform/archive/PropertyList.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace tessel {

namespace {

    // Beyond this many entries a table is hostile, not large: each costs far more
    // memory than the few bytes of text it takes.
    constexpr size_t maximumEntryCount = 100000;

    void setError(std::string* error, std::string text)
    {
        if (error)
            *error = std::move(text);
    }

    void appendUTF8(std::string& out, uint32_t scalar)
    {
        if (scalar < 0x80) {
            out += static_cast<char>(scalar);
        } else if (scalar < 0x800) {
            out += static_cast<char>(0xC0 | (scalar >> 6));
            out += static_cast<char>(0x80 | (scalar & 0x3F));
        } else if (scalar < 0x10000) {
            out += static_cast<char>(0xE0 | (scalar >> 12));
            out += static_cast<char>(0x80 | ((scalar >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (scalar & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (scalar >> 18));
            out += static_cast<char>(0x80 | ((scalar >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((scalar >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (scalar & 0x3F));
        }
    }

    bool isHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
    bool isLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
    uint32_t combineSurrogates(uint32_t high, uint32_t low)
    {
        return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
    }

    // Text with a byte order mark, to UTF-8.
    std::optional<std::string> decodeUTF16(
        const uint8_t* bytes, size_t length, bool bigEndian, std::string* error)
    {
        if (length % 2) {
            setError(error, "UTF-16 text with an odd number of bytes");
            return std::nullopt;
        }
        std::string out;
        out.reserve(length);
        auto unitAt = [&](size_t index) -> uint32_t {
            return bigEndian ? (bytes[index] << 8) | bytes[index + 1]
                             : bytes[index] | (bytes[index + 1] << 8);
        };
        for (size_t index = 0; index < length; index += 2) {
            uint32_t unit = unitAt(index);
            if (isHighSurrogate(unit)) {
                if (index + 3 >= length || !isLowSurrogate(unitAt(index + 2))) {
                    setError(error, "UTF-16 text with an unpaired surrogate");
                    return std::nullopt;
                }
                unit = combineSurrogates(unit, unitAt(index + 2));
                index += 2;
            } else if (isLowSurrogate(unit)) {
                setError(error, "UTF-16 text with an unpaired surrogate");
                return std::nullopt;
            }
            if (!unit) {
                setError(error, "NUL character");
                return std::nullopt;
            }
            appendUTF8(out, unit);
        }
        return out;
    }

    // Offset of the first byte that is not valid UTF-8 (or is NUL), or npos.
    size_t invalidUTF8Offset(std::string_view text)
    {
        size_t index = 0;
        while (index < text.size()) {
            auto byte = static_cast<uint8_t>(text[index]);
            if (!byte)
                return index;
            if (byte < 0x80) {
                ++index;
                continue;
            }
            size_t extra;
            uint32_t scalar;
            if (byte >= 0xC2 && byte <= 0xDF) {
                extra = 1;
                scalar = byte & 0x1F;
            } else if (byte >= 0xE0 && byte <= 0xEF) {
                extra = 2;
                scalar = byte & 0x0F;
            } else if (byte >= 0xF0 && byte <= 0xF4) {
                extra = 3;
                scalar = byte & 0x07;
            } else {
                return index;
            }
            if (index + extra >= text.size())
                return index;
            for (size_t k = 1; k <= extra; ++k) {
                auto next = static_cast<uint8_t>(text[index + k]);
                if ((next & 0xC0) != 0x80)
                    return index;
                scalar = (scalar << 6) | (next & 0x3F);
            }
            bool overlong = (extra == 2 && scalar < 0x800) || (extra == 3 && scalar < 0x10000);
            if (overlong || scalar > 0x10FFFF || (scalar >= 0xD800 && scalar <= 0xDFFF))
                return index;
            index += extra + 1;
        }
        return std::string_view::npos;
    }

    bool isUnquotedCharacter(char c)
    {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'
            || c == '.' || c == '$' || c == ':' || c == '-';
    }

    int hexDigit(char c)
    {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    }

    class TextParser {
    public:
        explicit TextParser(std::string_view text)
            : _text(text)
        {
        }

        std::optional<Value::Dictionary> parse(std::string* error)
        {
            Value::Dictionary table;
            while (true) {
                if (!skipSpace())
                    return fail(error);
                if (atEnd())
                    return table;
                std::string key;
                if (!readString(key, "a key"))
                    return fail(error);
                if (!skipSpace())
                    return fail(error);
                std::string value;
                if (!atEnd() && _text[_position] == '=') {
                    ++_position;
                    if (!skipSpace() || !readString(value, "a value") || !skipSpace())
                        return fail(error);
                } else {
                    value = key;
                }
                if (atEnd() || _text[_position] != ';') {
                    _problem = "expected ';'";
                    return fail(error);
                }
                ++_position;
                table.insert_or_assign(std::move(key), Value(std::move(value)));
                if (table.size() > maximumEntryCount) {
                    _problem = "too many entries";
                    return fail(error);
                }
            }
        }

    private:
        bool atEnd() const { return _position >= _text.size(); }

        std::nullopt_t fail(std::string* error) const
        {
            size_t line = 1;
            for (size_t index = 0; index < _position && index < _text.size(); ++index)
                line += _text[index] == '\n';
            setError(error, "line " + std::to_string(line) + ": " + _problem);
            return std::nullopt;
        }

        // Whitespace and comments; false on a comment that never ends.
        bool skipSpace()
        {
            while (!atEnd()) {
                char c = _text[_position];
                if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
                    ++_position;
                } else if (_text.substr(_position, 2) == "/*") {
                    auto end = _text.find("*/", _position + 2);
                    if (end == std::string_view::npos) {
                        _problem = "unterminated comment";
                        return false;
                    }
                    _position = end + 2;
                } else if (_text.substr(_position, 2) == "//") {
                    auto end = _text.find('\n', _position + 2);
                    _position = end == std::string_view::npos ? _text.size() : end + 1;
                } else {
                    break;
                }
            }
            return true;
        }

        bool readString(std::string& out, const char* what)
        {
            if (atEnd()) {
                _problem = std::string("expected ") + what + " at the end of the text";
                return false;
            }
            if (_text[_position] == '"')
                return readQuoted(out);
            size_t start = _position;
            while (!atEnd() && isUnquotedCharacter(_text[_position]))
                ++_position;
            if (_position == start) {
                _problem = std::string("expected ") + what;
                return false;
            }
            out.assign(_text.substr(start, _position - start));
            return true;
        }

        bool readQuoted(std::string& out)
        {
            ++_position;
            while (true) {
                // Copy the run up to the next quote or escape in one go.
                size_t stop = _text.find_first_of("\"\\", _position);
                if (stop == std::string_view::npos) {
                    _problem = "unterminated string";
                    return false;
                }
                out.append(_text.substr(_position, stop - _position));
                _position = stop + 1;
                if (_text[stop] == '"')
                    return true;
                if (!readEscape(out))
                    return false;
            }
        }

        // After a backslash.
        bool readEscape(std::string& out)
        {
            if (atEnd()) {
                _problem = "unterminated string";
                return false;
            }
            char c = _text[_position++];
            switch (c) {
            case '"':
            case '\\':
            case '\'':
                out += c;
                return true;
            case 'n':
                out += '\n';
                return true;
            case 't':
                out += '\t';
                return true;
            case 'r':
                out += '\r';
                return true;
            case 'u':
            case 'U': {
                uint32_t unit;
                if (!readUnit(unit))
                    return false;
                if (isHighSurrogate(unit)) {
                    uint32_t low;
                    if (_text.substr(_position, 2) != "\\u" && _text.substr(_position, 2) != "\\U") {
                        _problem = "unpaired surrogate escape";
                        return false;
                    }
                    _position += 2;
                    if (!readUnit(low))
                        return false;
                    if (!isLowSurrogate(low)) {
                        _problem = "unpaired surrogate escape";
                        return false;
                    }
                    unit = combineSurrogates(unit, low);
                } else if (isLowSurrogate(unit)) {
                    _problem = "unpaired surrogate escape";
                    return false;
                }
                if (!unit) {
                    _problem = "escaped NUL character";
                    return false;
                }
                appendUTF8(out, unit);
                return true;
            }
            default:
                _problem = "unknown escape";
                --_position;
                return false;
            }
        }

        bool readUnit(uint32_t& unit)
        {
            unit = 0;
            for (int k = 0; k < 4; ++k) {
                int digit = atEnd() ? -1 : hexDigit(_text[_position]);
                if (digit < 0) {
                    _problem = "expected four hexadecimal digits after \\u";
                    return false;
                }
                unit = (unit << 4) | static_cast<uint32_t>(digit);
                ++_position;
            }
            return true;
        }

        std::string_view _text;
        size_t _position = 0;
        std::string _problem;
    };

    bool looksLikePropertyList(const uint8_t* bytes, size_t length)
    {
        if (length >= 6 && !std::memcmp(bytes, "bplist", 6))
            return true;
        size_t index = 0;
        if (length >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF)
            index = 3;
        while (index < length
            && (bytes[index] == ' ' || bytes[index] == '\t' || bytes[index] == '\n' || bytes[index] == '\r'))
            ++index;
        // No text table starts with '<'.
        return index < length && bytes[index] == '<';
    }

} // namespace

std::optional<Value::Dictionary> StringTable::parse(const void* bytes, size_t length, std::string* error)
{
    if (length > maximumInputLength) {
        setError(error, "string table of " + std::to_string(length) + " bytes is too long");
        return std::nullopt;
    }
    auto data = static_cast<const uint8_t*>(bytes);
    std::optional<std::string> converted;
    std::string_view text;
    if (length >= 2 && ((data[0] == 0xFF && data[1] == 0xFE) || (data[0] == 0xFE && data[1] == 0xFF))) {
        converted = decodeUTF16(data + 2, length - 2, data[0] == 0xFE, error);
        if (!converted)
            return std::nullopt;
        text = *converted;
    } else {
        text = std::string_view(reinterpret_cast<const char*>(data), length);
        if (text.substr(0, 3) == "\xEF\xBB\xBF")
            text.remove_prefix(3);
        auto invalid = invalidUTF8Offset(text);
        if (invalid != std::string_view::npos) {
            setError(error,
                (text[invalid] ? "invalid UTF-8 at byte " : "NUL character at byte ")
                    + std::to_string(invalid));
            return std::nullopt;
        }
    }
    return TextParser(text).parse(error);
}

std::optional<Value::Dictionary> StringTable::read(const Bytes& bytes, std::string* error)
{
    auto table = readValue(bytes, error);
    if (!table)
        return std::nullopt;
    return table->dictionaryValue();
}

std::optional<Value> StringTable::readValue(const Bytes& bytes, std::string* error)
{
    if (!looksLikePropertyList(bytes.data(), bytes.size())) {
        auto table = parse(bytes.data(), bytes.size(), error);
        if (!table)
            return std::nullopt;
        return Value(std::move(*table));
    }
    auto list = PropertyList::read(bytes, error);
    if (!list)
        return std::nullopt;
    if (!list->isDictionary()) {
        setError(error, "string table property list is not a dictionary");
        return std::nullopt;
    }
    if (list->length() > maximumEntryCount) {
        setError(error, "too many entries");
        return std::nullopt;
    }
    for (const auto& [key, value] : list->dictionaryValue()) {
        if (!value.isString()) {
            setError(error, "value of \"" + key + "\" is not a string");
            return std::nullopt;
        }
    }
    return list;
}

std::string StringTable::text(const Value::Dictionary& table)
{
    auto quote = [](std::string& out, std::string_view text) {
        out += '"';
        for (char c : text) {
            switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (static_cast<uint8_t>(c) < 0x20) {
                    static const char digits[] = "0123456789ABCDEF";
                    out += "\\U00";
                    out += digits[(c >> 4) & 0xF];
                    out += digits[c & 0xF];
                } else {
                    out += c;
                }
            }
        }
        out += '"';
    };
    std::string out;
    for (const auto& [key, value] : table) {
        if (!value.isString() || !PropertyList::canHoldString(key)
            || !PropertyList::canHoldString(value.stringValue()))
            continue;
        quote(out, key);
        out += " = ";
        quote(out, value.stringValue());
        out += ";\n";
    }
    return out;
}

} // namespace tessel
