#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/foundation/Date.h"

#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tessel {

using Bytes = std::vector<uint8_t>;

// An untyped value as records, payloads and preferences carry them. Copies are
// cheap: strings are copied, collections and data are shared and immutable.
// Every accessor answers empty, zero or false for a value of another type, so
// absent values behave the same everywhere.
class Value {
public:
    using Array = std::vector<Value>;
    // String keys in a deterministic (sorted) order.
    using Dictionary = std::map<std::string, Value, std::less<>>;

    enum class Type { Null, Boolean, Integer, Real, String, Data, Date, Array, Dictionary, Object };

    Value() noexcept = default;
    Value(std::nullptr_t) noexcept { }
    Value(bool value)
        : _storage(value)
    {
    }
    template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>) Value(T value)
        : _storage(static_cast<int64_t>(value))
    {
    }
    Value(double value)
        : _storage(value)
    {
    }
    Value(float value)
        : _storage(static_cast<double>(value))
    {
    }
    // A null pointer is the null value, as an absent string would be.
    Value(const char* value);
    Value(std::string value)
        : _storage(std::move(value))
    {
    }
    Value(std::string_view value)
        : _storage(std::string(value))
    {
    }
    Value(Bytes value);
    Value(tessel::Date value)
        : _storage(value)
    {
    }
    Value(Array value);
    Value(Dictionary value);
    // A null object pointer is the null value.
    Value(std::shared_ptr<Archivable> object);
    template <std::derived_from<Archivable> T>
    Value(std::shared_ptr<T> object)
        : Value(std::static_pointer_cast<Archivable>(std::move(object)))
    {
    }

    static Value data(const void* bytes, size_t length);

    Type type() const { return static_cast<Type>(_storage.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isNumber() const { return isBoolean() || isInteger() || isReal(); }
    bool isBoolean() const { return type() == Type::Boolean; }
    bool isInteger() const { return type() == Type::Integer; }
    bool isReal() const { return type() == Type::Real; }
    bool isString() const { return type() == Type::String; }
    bool isData() const { return type() == Type::Data; }
    bool isDate() const { return type() == Type::Date; }
    bool isArray() const { return type() == Type::Array; }
    bool isDictionary() const { return type() == Type::Dictionary; }
    bool isObject() const { return type() == Type::Object; }

    // Numbers: non-zero. Strings: after leading whitespace, an optional sign and
    // zeros, true when the next character is Y, y, T, t or a digit 1-9.
    bool boolValue() const;
    // Numbers (reals truncate toward zero, saturating) and decimal strings.
    int64_t integerValue() const;
    int32_t intValue() const { return static_cast<int32_t>(integerValue()); }
    double doubleValue() const;

    const std::string& stringValue() const;
    // Characters of a string, bytes of data, elements of a collection; 0 otherwise.
    size_t length() const;
    const Bytes& dataValue() const;
    tessel::Date dateValue() const;
    const Array& arrayValue() const;
    const Dictionary& dictionaryValue() const;
    const std::shared_ptr<Archivable>& objectValue() const;
    template <std::derived_from<Archivable> T> std::shared_ptr<T> objectAs() const
    {
        return std::dynamic_pointer_cast<T>(objectValue());
    }

    // Dictionary member, or null when absent or when this is not a dictionary.
    const Value& operator[](std::string_view key) const;
    bool contains(std::string_view key) const;
    // Array element, or null when out of range or when this is not an array.
    const Value& at(size_t index) const;

    // Text for "%@": strings as they are, collections in the classic nested form.
    std::string description() const;

    // Deep equality; numbers compare by value whatever their kind, and NaN
    // equals NaN so that every value equals its copy.
    bool operator==(const Value& other) const;

private:
    using Storage = std::variant<std::monostate, bool, int64_t, double, std::string,
        std::shared_ptr<const Bytes>, tessel::Date, std::shared_ptr<const Array>,
        std::shared_ptr<const Dictionary>, std::shared_ptr<Archivable>>;

    void describe(std::string& out, int indent, bool nested) const;

    Storage _storage;
};

// Lets test frameworks print values readably.
void PrintTo(const Value& value, std::ostream* stream);

} // namespace tessel
