#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/archive/PropertyList.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <plist/plist.h>
#include <thread>

using namespace tessel;

namespace {

// A record with a configurable archive name, so one class can stand for an
// old and a new name.
class Note : public Archivable {
public:
    Note(std::string title = {}, int64_t count = 0, Value extra = {}, std::string name = "TestNote")
        : title(std::move(title))
        , count(count)
        , extra(std::move(extra))
        , name(std::move(name))
    {
    }
    std::string className() const override { return name; }
    void encodeWithCoder(KeyedArchiver& coder) const override
    {
        coder.encodeObject(title, "title");
        coder.encodeInt64(count, "count");
        coder.encodeObject(extra, "$extra");
    }
    bool isEqual(const Archivable& other) const override
    {
        auto note = dynamic_cast<const Note*>(&other);
        return note && note->title == title && note->count == count && note->extra == extra;
    }

    std::string title;
    int64_t count;
    Value extra;
    std::string name;
};

std::shared_ptr<Archivable> decodeNote(KeyedUnarchiver& coder)
{
    return std::make_shared<Note>(
        coder.decodeObject("title").stringValue(), coder.decodeInt64("count"), coder.decodeObject("$extra"));
}

std::shared_ptr<Archivable> decodeOtherNote(KeyedUnarchiver& coder)
{
    auto note = std::static_pointer_cast<Note>(decodeNote(coder));
    note->name = "OtherNote";
    return note;
}

class KeyedArchiveTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        KeyedArchive::registerClass("TestNote", decodeNote);
        KeyedArchive::registerClass("OtherNote", decodeOtherNote);
        KeyedArchive::registerClass("NullNote", [](KeyedUnarchiver&) { return nullptr; });
    }
};

// Same kind and same bits: Value's own == treats 1 and true, 0.0 and -0.0 alike.
bool identical(const Value& a, const Value& b)
{
    if (a.type() != b.type())
        return false;
    switch (a.type()) {
    case Value::Type::Real: {
        double x = a.doubleValue(), y = b.doubleValue();
        return (std::isnan(x) && std::isnan(y)) || std::memcmp(&x, &y, sizeof x) == 0;
    }
    case Value::Type::Date: {
        double x = a.dateValue().timeIntervalSinceReferenceDate(),
               y = b.dateValue().timeIntervalSinceReferenceDate();
        return std::memcmp(&x, &y, sizeof x) == 0;
    }
    case Value::Type::Array:
        if (a.length() != b.length())
            return false;
        for (size_t i = 0; i < a.length(); ++i) {
            if (!identical(a.at(i), b.at(i)))
                return false;
        }
        return true;
    case Value::Type::Dictionary:
        if (a.length() != b.length())
            return false;
        for (const auto& [key, value] : a.dictionaryValue()) {
            if (!b.contains(key) || !identical(value, b[key]))
                return false;
        }
        return true;
    default:
        return a == b;
    }
}

Value nested(int depth, Value leaf = 1)
{
    Value value = std::move(leaf);
    for (int i = 0; i < depth; ++i)
        value = Value::Array { value };
    return value;
}

struct RoundTripCase {
    const char* name;
    Value value;
};

std::vector<RoundTripCase> roundTripCases()
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return {
        { "Null", Value() },
        { "True", true },
        { "False", false },
        { "Zero", 0 },
        { "One", 1 },
        { "MinusOne", -1 },
        { "Int64Min", std::numeric_limits<int64_t>::min() },
        { "Int64Max", std::numeric_limits<int64_t>::max() },
        { "BeyondUInt32", int64_t(1) << 40 },
        { "RealFraction", 0.1 },
        { "RealFloatSized", 1.5 },
        { "NegativeZero", -0.0 },
        { "NaN", nan },
        { "Infinity", infinity },
        { "MinusInfinity", -infinity },
        { "Denormal", std::numeric_limits<double>::denorm_min() },
        { "RealMax", std::numeric_limits<double>::max() },
        { "EmptyString", "" },
        { "Utf8String", "caf\xc3\xa9 \xf0\x9f\x94\x94" },
        { "EmptyData", Bytes() },
        { "BinaryData", Bytes { 0, 255, 1, 0 } },
        { "ReferenceDate", Date(0) },
        { "FractionalDate", Date(700000000.123456789) },
        { "NegativeFractionalDate", Date(-0.25) },
        { "DistantPast", Date::distantPast() },
        { "DistantFuture", Date::distantFuture() },
        { "TinyDate", Date(1e-300) },
        { "EmptyArray", Value::Array {} },
        { "EmptyDictionary", Value::Dictionary {} },
        { "NullsInArray", Value::Array { Value(), 1, Value(), true } },
        { "NullsInDictionary", Value::Dictionary { { "a", Value() }, { "b", Value::Array { Value() } } } },
        { "DollarKeys",
            Value::Dictionary { { "$", 1 }, { "$$", 2 }, { "$null", 3 }, { "$date", 4 }, { "$object", 5 },
                { "$format", 6 }, { "$$value", 7 }, { "", 8 }, { "plain$", 9 } } },
        { "DollarKeyWithMarkerShapedValue", Value::Dictionary { { "$null", true } } },
        { "MixedNesting",
            Value::Array { Value::Dictionary { { "list", Value::Array { Date(1.5), Bytes { 1 }, "x" } } },
                Value::Array { Value::Array {} } } },
        { "DeepestAllowed", nested(PropertyList::maximumDepth) },
    };
}

void PrintTo(const RoundTripCase& test, std::ostream* out) { *out << test.name; }

class RoundTrip : public KeyedArchiveTest, public ::testing::WithParamInterface<RoundTripCase> { };

TEST_P(RoundTrip, DecodesToAnIdenticalValue)
{
    std::string error;
    auto bytes = KeyedArchive::archivedData(GetParam().value, &error);
    ASSERT_TRUE(bytes) << error;
    auto decoded = KeyedArchive::unarchive(*bytes, &error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_TRUE(identical(*decoded, GetParam().value)) << decoded->description();
}

INSTANTIATE_TEST_SUITE_P(EveryKind, RoundTrip, ::testing::ValuesIn(roundTripCases()),
    [](const auto& info) { return std::string(info.param.name); });

// The archived value node, parsed back with libplist; the caller frees the root.
plist_t archivedValueNode(const Bytes& bytes, plist_t& root)
{
    root = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()), &root);
    return root ? plist_dict_get_item(root, KeyedArchive::rootKey) : nullptr;
}

TEST(KeyedArchiveDates, UseDateNodesOnlyWhenTheyHoldEveryBit)
{
    struct Case {
        const char* name;
        double seconds;
        bool dateNode;
    } cases[] = {
        { "Whole", 12, true },
        { "Quarter", 700000000.25, true },
        { "NegativeWithFraction", -1.5, true },
        { "SixtyFourths", 1.015625, true },
        { "Tenth", 0.1, true },
        { "Zero", 0, true },
        { "NegativeZero", -0.0, false },
        // The getter loses the sign between -1 and 0.
        { "JustBelowZero", -0.25, false },
        { "BelowMicroseconds", 700000000.123456789, false },
        { "Tiny", 1e-300, false },
        { "BeyondInt32Seconds", 3e9, false },
        { "DistantPast", Date::distantPast().timeIntervalSinceReferenceDate(), false },
    };
    for (const auto& test : cases) {
        Value date = Date(test.seconds);
        auto bytes = KeyedArchive::archivedData(date);
        ASSERT_TRUE(bytes) << test.name;
        plist_t root = nullptr;
        plist_t node = archivedValueNode(*bytes, root);
        ASSERT_TRUE(node) << test.name;
        EXPECT_EQ(plist_get_node_type(node), test.dateNode ? PLIST_DATE : PLIST_DICT) << test.name;
        plist_free(root);
        auto decoded = KeyedArchive::unarchive(*bytes);
        ASSERT_TRUE(decoded) << test.name;
        EXPECT_TRUE(identical(*decoded, date)) << test.name << ": " << decoded->description();
    }
}

TEST_F(KeyedArchiveTest, ObjectsRoundTripInsideCollections)
{
    auto inner = std::make_shared<Note>("inner", -5, Value::Dictionary { { "$object", "not a class" } });
    auto outer = std::make_shared<Note>("outer", 7, Value::Array { inner, Value() });
    Value root = Value::Dictionary { { "note", outer }, { "notes", Value::Array { outer, outer } } };
    auto decoded = KeyedArchive::unarchive(*KeyedArchive::archivedData(root));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, root);
    auto note = (*decoded)["note"].objectAs<Note>();
    ASSERT_TRUE(note);
    EXPECT_EQ(note->extra.at(0).objectAs<Note>()->count, -5);
}

TEST_F(KeyedArchiveTest, OldClassNameDecodesIntoTheCurrentClass)
{
    auto old = std::make_shared<Note>("legacy", 3, Value(), "LegacyNote");
    auto bytes = KeyedArchive::archivedData(old);
    ASSERT_TRUE(bytes);
    std::string error;
    EXPECT_FALSE(KeyedArchive::unarchive(*bytes, &error));
    EXPECT_NE(error.find("LegacyNote"), std::string::npos) << error;

    KeyedArchive::registerAlias("LegacyNote", "TestNote");
    auto decoded = KeyedArchive::unarchive(*bytes);
    ASSERT_TRUE(decoded);
    auto note = decoded->objectAs<Note>();
    ASSERT_TRUE(note);
    EXPECT_EQ(note->className(), "TestNote");
    EXPECT_EQ(note->title, "legacy");

    UnarchiveOptions options { .expectedClass = "LegacyNote" };
    EXPECT_TRUE(KeyedArchive::unarchive(*bytes, options));

    // A cycle of aliases must end as an unknown class, not a hang.
    KeyedArchive::registerAlias("Ping", "Pong");
    KeyedArchive::registerAlias("Pong", "Ping");
    EXPECT_FALSE(
        KeyedArchive::unarchive(*KeyedArchive::archivedData(std::make_shared<Note>("", 0, Value(), "Ping"))));
}

struct OptionsCase {
    const char* name;
    Value root;
    UnarchiveOptions options;
    bool decodes;
};

std::vector<OptionsCase> optionsCases()
{
    auto note = std::make_shared<Note>("n", 1);
    auto other = std::make_shared<Note>("o", 2, Value(), "OtherNote");
    auto holder = std::make_shared<Note>("h", 3, Value::Array { other });
    return {
        { "ExpectedClassMatches", note, { .expectedClass = "TestNote" }, true },
        { "ExpectedClassMismatch", other, { .expectedClass = "TestNote" }, false },
        { "ExpectedClassButPlainValue", Value::Dictionary { { "title", "n" } },
            { .expectedClass = "TestNote" }, false },
        { "ExpectedClassButNullObject", std::make_shared<Note>("", 0, Value(), "NullNote"),
            { .expectedClass = "NullNote" }, false },
        { "AllowedEverywhere", holder, { .allowedClasses = { "TestNote", "OtherNote" } }, true },
        { "NestedClassNotAllowed", holder, { .allowedClasses = { "TestNote" } }, false },
        { "RootClassNotAllowed", other, { .allowedClasses = { "TestNote" } }, false },
        { "PlainValuesNeedNoClass", Value::Array { 1, "x" }, { .allowedClasses = { "TestNote" } }, true },
    };
}

void PrintTo(const OptionsCase& test, std::ostream* out) { *out << test.name; }

class Options : public KeyedArchiveTest, public ::testing::WithParamInterface<OptionsCase> { };

TEST_P(Options, DecideWhetherTheArchiveDecodes)
{
    auto bytes = KeyedArchive::archivedData(GetParam().root);
    ASSERT_TRUE(bytes);
    std::string error;
    auto decoded = KeyedArchive::unarchive(*bytes, GetParam().options, &error);
    EXPECT_EQ(decoded.has_value(), GetParam().decodes) << error;
    if (!decoded) {
        EXPECT_FALSE(error.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Classes, Options, ::testing::ValuesIn(optionsCases()),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(KeyedArchiveTest, FactoryAnsweringNullReadsAsNull)
{
    auto gone = std::make_shared<Note>("", 0, Value(), "NullNote");
    auto decoded = KeyedArchive::unarchive(*KeyedArchive::archivedData(Value::Array { gone, 1 }));
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(identical(*decoded, Value::Array { Value(), 1 }));
}

// A class whose fields are whatever the test stores, to check the decoding calls.
class Fields : public Archivable {
public:
    std::string className() const override { return "TestFields"; }
    void encodeWithCoder(KeyedArchiver& coder) const override
    {
        coder.encodeBool(true, "bool");
        coder.encodeInt32(-7, "int32");
        coder.encodeInt64(int64_t(1) << 40, "big");
        coder.encodeInt64(std::numeric_limits<int32_t>::min(), "int32Min");
        coder.encodeDouble(2.5, "double");
        coder.encodeObject("text", "string");
        coder.encodeObject(Value(), "null");
        coder.encodeObject(std::make_shared<Note>("n"), "note");
        coder.encodeInt64(1, "replaced");
        coder.encodeObject("later", "replaced");
    }
};

TEST(KeyedUnarchiver, ReadsEachKindAndAnswersZeroForMismatches)
{
    KeyedArchive::registerClass("TestNote", decodeNote);
    std::vector<Value> seen;
    KeyedArchive::registerClass("TestFields", [&](KeyedUnarchiver& coder) {
        seen = { coder.decodeBool("bool"), coder.decodeBool("int32"), coder.containsValueForKey("null"),
            coder.containsValueForKey("missing"), coder.decodeInt32("int32"), coder.decodeInt32("big"),
            coder.decodeInt32("int32Min"), coder.decodeInt32("bool"), coder.decodeInt64("big"),
            coder.decodeInt64("double"), coder.decodeDouble("double"), coder.decodeDouble("int32"),
            coder.decodeDouble("string"), coder.decodeObjectOfClass("note", "TestNote"),
            coder.decodeObjectOfClass("note", "OtherNote"), coder.decodeObjectOfClass("string", "TestNote"),
            coder.decodeObject("replaced"), coder.decodeObject("missing") };
        return std::make_shared<Fields>();
    });
    ASSERT_TRUE(KeyedArchive::unarchive(*KeyedArchive::archivedData(std::make_shared<Fields>())));
    const Value expected[] = { true, false, true, false, int32_t(-7), int32_t(0),
        std::numeric_limits<int32_t>::min(), int32_t(0), int64_t(1) << 40, int64_t(0), 2.5, -7.0, 0.0,
        std::make_shared<Note>("n"), Value(), Value(), "later", Value() };
    ASSERT_EQ(seen.size(), std::size(expected));
    for (size_t i = 0; i < seen.size(); ++i)
        EXPECT_TRUE(identical(seen[i], expected[i])) << i << ": " << seen[i].description();
}

// Encodes itself inside itself until the depth limit stops it.
class Loop : public Archivable {
public:
    std::string className() const override { return "TestLoop"; }
    void encodeWithCoder(KeyedArchiver& coder) const override { coder.encodeObject(self.lock(), "self"); }
    std::weak_ptr<Loop> self;
};

TEST(KeyedArchiveEncoding, RefusesValuesWithoutArchiveForm)
{
    auto loop = std::make_shared<Loop>();
    loop->self = loop;
    struct Case {
        const char* name;
        Value value;
    } cases[] = {
        { "EmbeddedNul", std::string("a\0b", 3) },
        { "InvalidUtf8", "\xff\xfe" },
        { "Surrogate", "\xed\xa0\x80" },
        { "Overlong", "\xc0\xaf" },
        { "BadKey", Value::Dictionary { { "\xff", 1 } } },
        { "NulKeyDeepInside", Value::Array { 1, Value::Dictionary { { std::string("k\0", 2), 1 } } } },
        { "TooDeep", nested(PropertyList::maximumDepth + 1) },
        { "SelfContainingObject", loop },
        { "BadStringInsideObject", std::make_shared<Note>("\xff") },
    };
    for (const auto& test : cases) {
        std::string error;
        EXPECT_FALSE(KeyedArchive::archivedData(test.value, &error)) << test.name;
        EXPECT_FALSE(error.empty()) << test.name;
    }
}

// Wraps a hand-made value node into an archive with a correct header.
Bytes rawArchive(plist_t value, const char* format = "TesselKeyedArchive", uint64_t version = 1)
{
    plist_t root = plist_new_dict();
    if (format)
        plist_dict_set_item(root, "$format", plist_new_string(format));
    plist_dict_set_item(root, "$formatVersion", plist_new_uint(version));
    if (value)
        plist_dict_set_item(root, "$value", value);
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    Bytes result(bytes, bytes + length);
    plist_to_bin_free(bytes);
    plist_free(root);
    return result;
}

plist_t dictionary(std::initializer_list<std::pair<const char*, plist_t>> items)
{
    plist_t node = plist_new_dict();
    for (auto [key, value] : items)
        plist_dict_set_item(node, key, value);
    return node;
}

plist_t nestedArrays(int depth)
{
    plist_t node = plist_new_uint(1);
    for (int i = 0; i < depth; ++i) {
        plist_t array = plist_new_array();
        plist_array_append_item(array, node);
        node = array;
    }
    return node;
}

TEST_F(KeyedArchiveTest, RefusesMalformedArchives)
{
    struct Case {
        const char* name;
        Bytes bytes;
    } cases[] = {
        { "Empty", {} },
        { "NotAPropertyList", Bytes { 'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd' } },
        { "XmlPropertyList",
            *PropertyList::data(Value::Dictionary { { "a", 1 } }, PropertyList::Format::Xml) },
        { "PlainBinaryList", *PropertyList::data(Value::Array { 1 }, PropertyList::Format::Binary) },
        { "WrongFormatName", rawArchive(plist_new_uint(1), "SomethingElse") },
        { "MissingFormatName", rawArchive(plist_new_uint(1), nullptr) },
        { "FutureVersion", rawArchive(plist_new_uint(1), "TesselKeyedArchive", 2) },
        { "MissingValue", rawArchive(nullptr) },
        { "NullMarkerNotTrue", rawArchive(dictionary({ { "$null", plist_new_uint(1) } })) },
        { "NullMarkerWithCompany",
            rawArchive(dictionary({ { "$null", plist_new_bool(1) }, { "x", plist_new_bool(1) } })) },
        { "DateMarkerNotReal", rawArchive(dictionary({ { "$date", plist_new_string("today") } })) },
        { "ObjectMarkerNotString", rawArchive(dictionary({ { "$object", plist_new_uint(5) } })) },
        { "ObjectMarkerEmpty", rawArchive(dictionary({ { "$object", plist_new_string("") } })) },
        { "UnknownClass", rawArchive(dictionary({ { "$object", plist_new_string("Nobody") } })) },
        { "UnknownMarker", rawArchive(dictionary({ { "$weird", plist_new_bool(1) } })) },
        { "MarkerNotFirst",
            rawArchive(dictionary({ { "a", plist_new_bool(1) }, { "$null", plist_new_bool(1) } })) },
        { "MarkerAmongObjectFields",
            rawArchive(dictionary(
                { { "$object", plist_new_string("TestNote") }, { "$null", plist_new_bool(1) } })) },
        { "ForeignUidNode", rawArchive(plist_new_uid(5)) },
        { "TooDeep", rawArchive(nestedArrays(PropertyList::maximumDepth + 1)) },
        { "FarTooDeep", rawArchive(nestedArrays(5000)) },
    };
    for (const auto& test : cases) {
        std::string error;
        EXPECT_FALSE(KeyedArchive::unarchive(test.bytes, &error)) << test.name;
        EXPECT_FALSE(error.empty()) << test.name;
    }
    EXPECT_TRUE(KeyedArchive::unarchive(rawArchive(nestedArrays(PropertyList::maximumDepth))));
}

TEST(KeyedArchiveDates, ReadsDateNodesOfOtherWritersExactly)
{
    // libplist stores seconds + microseconds / 1e6 as a double; its getter
    // truncates, so some of these only read back through the exact path.
    struct Case {
        const char* name;
        int32_t seconds;
        int32_t micros;
    } cases[] = {
        { "Whole", 5, 0 },
        { "NegativeWhole", -86400, 0 },
        { "JustBelowZero", 0, -250000 },
        { "TruncatedMicroseconds", 700000000, 123456 },
        { "NegativeFraction", -3, -999999 },
    };
    for (const auto& test : cases) {
        auto decoded = KeyedArchive::unarchive(rawArchive(plist_new_date(test.seconds, test.micros)));
        ASSERT_TRUE(decoded && decoded->isDate()) << test.name;
        double expected = test.seconds + static_cast<double>(test.micros) / 1e6;
        EXPECT_TRUE(identical(*decoded, Date(expected))) << test.name << ": " << decoded->description();
    }
}

Bytes sampleArchive()
{
    Value value = Value::Dictionary {
        { "note", std::make_shared<Note>("hello", -2, Value::Array { Value(), Date(-1.5) }) },
        { "$key", Bytes { 1, 2 } },
        { "when", Date(12.5) },
        { "flag", true },
        { "ratio", 0.1 },
    };
    return *KeyedArchive::archivedData(value);
}

TEST_F(KeyedArchiveTest, EveryTruncationFailsAndEveryBitFlipIsSurvived)
{
    Bytes bytes = sampleArchive();
    ASSERT_TRUE(KeyedArchive::unarchive(bytes));
    for (size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(
            KeyedArchive::unarchive(Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length))))
            << length;

    size_t failures = 0;
    size_t flips = bytes.size() * 8;
    for (size_t bit = 0; bit < flips; ++bit) {
        Bytes flipped = bytes;
        flipped[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
        std::string error;
        auto decoded = KeyedArchive::unarchive(flipped, &error);
        if (!decoded) {
            ++failures;
            EXPECT_FALSE(error.empty());
        } else {
            // A flip that still decodes gave a value that archives again.
            EXPECT_TRUE(KeyedArchive::archivedData(*decoded)) << bit;
        }
    }
    EXPECT_GT(failures, flips / 2);
}

// Builds a binary list by hand: object i is an array holding object i + 1 twice,
// so the file is small but libplist would expand it to 2^count nodes.
Bytes expandingList(uint32_t count)
{
    Bytes bytes { 'b', 'p', 'l', 'i', 's', 't', '0', '0' };
    std::vector<uint32_t> offsets;
    for (uint32_t i = 0; i < count; ++i) {
        offsets.push_back(static_cast<uint32_t>(bytes.size()));
        if (i + 1 < count) {
            uint8_t next = static_cast<uint8_t>(i + 1);
            bytes.insert(bytes.end(), { 0xA2, next, next });
        } else
            bytes.push_back(0x09);
    }
    uint64_t table = bytes.size();
    for (auto offset : offsets)
        bytes.push_back(static_cast<uint8_t>(offset));
    uint8_t trailer[32] = {};
    trailer[6] = 1;
    trailer[7] = 1;
    trailer[15] = static_cast<uint8_t>(count);
    trailer[31] = static_cast<uint8_t>(table);
    bytes.insert(bytes.end(), trailer, trailer + 32);
    return bytes;
}

TEST(KeyedArchiveStructure, SharedObjectExpansionIsRefusedBeforeParsing)
{
    std::string error;
    Bytes small = expandingList(10);
    EXPECT_TRUE(PropertyList::checkStructure(small.data(), small.size(), &error)) << error;
    Bytes bomb = expandingList(60);
    EXPECT_FALSE(PropertyList::checkStructure(bomb.data(), bomb.size(), &error));
    EXPECT_FALSE(KeyedArchive::unarchive(bomb));
}

TEST(KeyedArchiveEncoding, DollarKeysAreEscapedOnDisk)
{
    // Stored archives depend on this form; a round trip alone would not notice a change.
    plist_t root = nullptr;
    plist_t node = archivedValueNode(*KeyedArchive::archivedData(Value::Dictionary { { "$x", 1 } }), root);
    ASSERT_TRUE(node);
    EXPECT_TRUE(plist_dict_get_item(node, "$$x"));
    EXPECT_FALSE(plist_dict_get_item(node, "$x"));
    plist_free(root);
}

TEST(KeyedArchiveConcurrent, RegistersWhileOtherThreadsDecode)
{
    KeyedArchive::registerClass("TestNote", decodeNote);
    Bytes bytes = *KeyedArchive::archivedData(
        Value::Array { std::make_shared<Note>("a"), std::make_shared<Note>("b") });
    std::atomic<int> decoded = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i)
                decoded += KeyedArchive::unarchive(bytes).has_value();
        });
    }
    threads.emplace_back([] {
        for (int i = 0; i < 200; ++i)
            KeyedArchive::registerClass("Late" + std::to_string(i), decodeNote);
    });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(decoded, 400);
    EXPECT_TRUE(KeyedArchive::registeredClass("Late199"));
}

} // namespace
