#include "platform/foundation/Value.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>

namespace tessel {

namespace {

    const std::string emptyString;
    const Bytes emptyBytes;
    const Value::Array emptyArray;
    const Value::Dictionary emptyDictionary;
    const std::shared_ptr<Archivable> nullObject;
    const Value nullValue;

    bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

    bool stringBoolValue(std::string_view text)
    {
        size_t i = 0;
        while (i < text.size() && isSpace(text[i]))
            ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-'))
            ++i;
        while (i < text.size() && text[i] == '0')
            ++i;
        if (i == text.size())
            return false;
        char c = text[i];
        return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
    }

    int64_t saturatingInteger(double value)
    {
        if (std::isnan(value))
            return 0;
        if (value >= 9223372036854775807.0)
            return std::numeric_limits<int64_t>::max();
        if (value <= -9223372036854775808.0)
            return std::numeric_limits<int64_t>::min();
        return static_cast<int64_t>(value);
    }

    std::string_view trimmedLeft(std::string_view text)
    {
        size_t i = 0;
        while (i < text.size() && isSpace(text[i]))
            ++i;
        return text.substr(i);
    }

    int64_t stringIntegerValue(std::string_view text)
    {
        text = trimmedLeft(text);
        if (!text.empty() && text.front() == '+')
            text.remove_prefix(1);
        int64_t result = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
        if (error == std::errc::result_out_of_range)
            return text.starts_with('-') ? std::numeric_limits<int64_t>::min()
                                         : std::numeric_limits<int64_t>::max();
        return error == std::errc() ? result : 0;
    }

    double stringDoubleValue(std::string_view text)
    {
        text = trimmedLeft(text);
        if (!text.empty() && text.front() == '+')
            text.remove_prefix(1);
        double result = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
        return error == std::errc() ? result : 0;
    }

    std::string numberText(double value)
    {
        char buffer[64];
        auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
        return error == std::errc() ? std::string(buffer, end) : std::string("nan");
    }

    // Strings inside collections are quoted unless they are plain words.
    bool needsQuotes(std::string_view text)
    {
        if (text.empty())
            return true;
        for (unsigned char c : text) {
            if (!(std::isalnum(c) || c == '_' || c == '.' || c == '$' || c == '/' || c == ':' || c >= 0x80))
                return true;
        }
        return false;
    }

    void appendQuoted(std::string& out, std::string_view text)
    {
        out += '"';
        for (char c : text) {
            if (c == '"' || c == '\\')
                out += '\\';
            if (c == '\n') {
                out += "\\n";
                continue;
            }
            out += c;
        }
        out += '"';
    }

    void appendIndent(std::string& out, int indent) { out.append(static_cast<size_t>(indent) * 4, ' '); }

} // namespace

Value::Value(const char* value)
{
    if (value)
        _storage = std::string(value);
}

Value::Value(Bytes value)
    : _storage(std::make_shared<const Bytes>(std::move(value)))
{
}

Value::Value(Array value)
    : _storage(std::make_shared<const Array>(std::move(value)))
{
}

Value::Value(Dictionary value)
    : _storage(std::make_shared<const Dictionary>(std::move(value)))
{
}

Value::Value(std::shared_ptr<Archivable> object)
{
    if (object)
        _storage = std::move(object);
}

Value Value::data(const void* bytes, size_t length)
{
    auto begin = static_cast<const uint8_t*>(bytes);
    return Value(Bytes(begin, begin + length));
}

bool Value::boolValue() const
{
    switch (type()) {
    case Type::Boolean:
        return std::get<bool>(_storage);
    case Type::Integer:
        return std::get<int64_t>(_storage) != 0;
    case Type::Real:
        return std::get<double>(_storage) != 0;
    case Type::String:
        return stringBoolValue(std::get<std::string>(_storage));
    default:
        return false;
    }
}

int64_t Value::integerValue() const
{
    switch (type()) {
    case Type::Boolean:
        return std::get<bool>(_storage) ? 1 : 0;
    case Type::Integer:
        return std::get<int64_t>(_storage);
    case Type::Real:
        return saturatingInteger(std::get<double>(_storage));
    case Type::String:
        return stringIntegerValue(std::get<std::string>(_storage));
    default:
        return 0;
    }
}

double Value::doubleValue() const
{
    switch (type()) {
    case Type::Boolean:
        return std::get<bool>(_storage) ? 1 : 0;
    case Type::Integer:
        return static_cast<double>(std::get<int64_t>(_storage));
    case Type::Real:
        return std::get<double>(_storage);
    case Type::String:
        return stringDoubleValue(std::get<std::string>(_storage));
    default:
        return 0;
    }
}

const std::string& Value::stringValue() const
{
    auto string = std::get_if<std::string>(&_storage);
    return string ? *string : emptyString;
}

size_t Value::length() const
{
    switch (type()) {
    case Type::String:
        return std::get<std::string>(_storage).size();
    case Type::Data:
        return dataValue().size();
    case Type::Array:
        return arrayValue().size();
    case Type::Dictionary:
        return dictionaryValue().size();
    default:
        return 0;
    }
}

const Bytes& Value::dataValue() const
{
    auto data = std::get_if<std::shared_ptr<const Bytes>>(&_storage);
    return data ? **data : emptyBytes;
}

Date Value::dateValue() const
{
    auto date = std::get_if<tessel::Date>(&_storage);
    return date ? *date : tessel::Date();
}

const Value::Array& Value::arrayValue() const
{
    auto array = std::get_if<std::shared_ptr<const Array>>(&_storage);
    return array ? **array : emptyArray;
}

const Value::Dictionary& Value::dictionaryValue() const
{
    auto dictionary = std::get_if<std::shared_ptr<const Dictionary>>(&_storage);
    return dictionary ? **dictionary : emptyDictionary;
}

const std::shared_ptr<Archivable>& Value::objectValue() const
{
    auto object = std::get_if<std::shared_ptr<Archivable>>(&_storage);
    return object ? *object : nullObject;
}

const Value& Value::operator[](std::string_view key) const
{
    const auto& dictionary = dictionaryValue();
    auto found = dictionary.find(key);
    return found == dictionary.end() ? nullValue : found->second;
}

bool Value::contains(std::string_view key) const { return dictionaryValue().contains(key); }

const Value& Value::at(size_t index) const
{
    const auto& array = arrayValue();
    return index < array.size() ? array[index] : nullValue;
}

std::string Value::description() const
{
    std::string out;
    describe(out, 0, false);
    return out;
}

void Value::describe(std::string& out, int indent, bool nested) const
{
    switch (type()) {
    case Type::Null:
        out += "(null)";
        break;
    case Type::Boolean:
        out += std::get<bool>(_storage) ? "1" : "0";
        break;
    case Type::Integer:
        out += std::to_string(std::get<int64_t>(_storage));
        break;
    case Type::Real:
        out += numberText(std::get<double>(_storage));
        break;
    case Type::String: {
        const auto& text = std::get<std::string>(_storage);
        if (nested && needsQuotes(text))
            appendQuoted(out, text);
        else
            out += text;
        break;
    }
    case Type::Data: {
        static const char digits[] = "0123456789abcdef";
        out += '<';
        const auto& bytes = dataValue();
        for (size_t i = 0; i < bytes.size(); ++i) {
            if (i && i % 4 == 0)
                out += ' ';
            out += digits[bytes[i] >> 4];
            out += digits[bytes[i] & 15];
        }
        out += '>';
        break;
    }
    case Type::Date:
        out += std::get<tessel::Date>(_storage).description();
        break;
    case Type::Array: {
        const auto& array = arrayValue();
        out += "(\n";
        for (size_t i = 0; i < array.size(); ++i) {
            appendIndent(out, indent + 1);
            array[i].describe(out, indent + 1, true);
            out += i + 1 < array.size() ? ",\n" : "\n";
        }
        appendIndent(out, indent);
        out += ')';
        break;
    }
    case Type::Dictionary:
        out += "{\n";
        for (const auto& [key, value] : dictionaryValue()) {
            appendIndent(out, indent + 1);
            if (needsQuotes(key))
                appendQuoted(out, key);
            else
                out += key;
            out += " = ";
            value.describe(out, indent + 1, true);
            out += ";\n";
        }
        appendIndent(out, indent);
        out += '}';
        break;
    case Type::Object:
        out += objectValue()->description();
        break;
    }
}

bool Value::operator==(const Value& other) const
{
    // NaN equals NaN here: a value always equals itself and its copies.
    auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    if (isNumber() && other.isNumber()) {
        if (isReal() || other.isReal())
            return same(doubleValue(), other.doubleValue());
        return integerValue() == other.integerValue();
    }
    if (type() != other.type())
        return false;
    switch (type()) {
    case Type::Null:
        return true;
    case Type::String:
        return stringValue() == other.stringValue();
    case Type::Data:
        return dataValue() == other.dataValue();
    case Type::Date:
        return same(
            dateValue().timeIntervalSinceReferenceDate(), other.dateValue().timeIntervalSinceReferenceDate());
    case Type::Array:
        return arrayValue() == other.arrayValue();
    case Type::Dictionary:
        return dictionaryValue() == other.dictionaryValue();
    case Type::Object:
        return objectValue()->isEqual(*other.objectValue());
    default:
        return false;
    }
}

void PrintTo(const Value& value, std::ostream* stream) { *stream << value.description(); }

} // namespace tessel
