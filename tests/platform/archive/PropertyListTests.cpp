#include "platform/archive/PropertyList.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>

using namespace tessel;

namespace {

std::optional<Value> readText(const std::string& text, std::string* error = nullptr)
{
    return PropertyList::read(text.data(), text.size(), error);
}

std::string xml(const std::string& body)
{
    return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + body + "</plist>";
}

TEST(PropertyList, ReadsXml)
{
    auto value = readText(xml("<dict><key>count</key><integer>-42</integer>"
                              "<key>big</key><integer>9223372036854775807</integer>"
                              "<key>ratio</key><real>-2.5</real>"
                              "<key>on</key><true/>"
                              "<key>name</key><string>caf&#233; &amp; co</string>"
                              "<key>bytes</key><data>AAEC</data>"
                              "<key>when</key><date>2001-01-01T00:01:40Z</date>"
                              "<key>list</key><array><integer>1</integer><array/><dict/></array></dict>"));
    ASSERT_TRUE(value);
    Value expected = Value::Dictionary { { "count", -42 }, { "big", std::numeric_limits<int64_t>::max() },
        { "ratio", -2.5 }, { "on", true }, { "name", "caf\xc3\xa9 & co" }, { "bytes", Bytes { 0, 1, 2 } },
        { "when", Date(100) }, { "list", Value::Array { 1, Value::Array {}, Value::Dictionary {} } } };
    EXPECT_EQ(*value, expected) << value->description();
    // == does not tell integers from booleans.
    EXPECT_TRUE((*value)["count"].isInteger());
    EXPECT_TRUE((*value)["on"].isBoolean());
}

struct BinaryCase {
    const char* name;
    Value value;
};

void PrintTo(const BinaryCase& test, std::ostream* out) { *out << test.name; }

class BinaryRoundTrip : public ::testing::TestWithParam<BinaryCase> { };

TEST_P(BinaryRoundTrip, KeepsTheValue)
{
    std::string error;
    auto bytes = PropertyList::data(GetParam().value, PropertyList::Format::Binary, &error);
    ASSERT_TRUE(bytes) << error;
    auto value = PropertyList::read(*bytes, &error);
    ASSERT_TRUE(value) << error;
    EXPECT_EQ(value->type(), GetParam().value.type());
    EXPECT_EQ(*value, GetParam().value) << value->description();
}

INSTANTIATE_TEST_SUITE_P(Kinds, BinaryRoundTrip,
    ::testing::Values(BinaryCase { "MinusOne", -1 },
        BinaryCase { "Int64Min", std::numeric_limits<int64_t>::min() }, BinaryCase { "NegativeSmall", -300 },
        BinaryCase { "Bool", true }, BinaryCase { "NegativeFractionalDate", Date(-1.5) },
        BinaryCase { "DateJustBelowZero", Date(-0.25) }, BinaryCase { "FractionalDate", Date(700000000.125) },
        BinaryCase { "NegativeWholeDate", Date(-86400) },
        BinaryCase { "Nested", Value::Dictionary { { "a", Value::Array { 1, "b", Bytes {} } } } }),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PropertyList, BinaryDatesKeepMicroseconds)
{
    for (double seconds : { 12.000250, -12.000250, -0.000001, 700000000.999999, -700000000.5 }) {
        auto bytes = PropertyList::data(Date(seconds), PropertyList::Format::Binary);
        ASSERT_TRUE(bytes);
        auto value = PropertyList::read(*bytes);
        ASSERT_TRUE(value && value->isDate());
        EXPECT_NEAR(value->dateValue().timeIntervalSinceReferenceDate(), seconds, 0.5e-6);
    }
}

TEST(PropertyList, XmlKeepsNegativeIntegers)
{
    Value integers = Value::Array { -7, std::numeric_limits<int64_t>::min() };
    auto bytes = PropertyList::data(integers, PropertyList::Format::Xml);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(PropertyList::read(*bytes), integers);
}

TEST(PropertyList, RefusesValuesItCannotHold)
{
    Value cases[] = { Value(), std::string("a\0b", 3), "\xff", Value::Dictionary { { "\xc0\x80", 1 } },
        Value::Array { 1, Value() }, Date(1e12) };
    for (const auto& value : cases) {
        std::string error;
        EXPECT_FALSE(PropertyList::data(value, PropertyList::Format::Binary, &error)) << value.description();
        EXPECT_FALSE(error.empty());
    }
}

TEST(PropertyList, CanHoldOnlyUtf8WithoutNul)
{
    struct Case {
        std::string text;
        bool holds;
    } cases[] = {
        { "", true },
        { "plain ascii\t\n", true },
        { "\xc3\xa9\xe2\x82\xac\xf0\x9f\x94\x94", true },
        { "\xf4\x8f\xbf\xbf", true },
        { std::string("\0", 1), false },
        { "\x80", false },
        { "\xc3", false },
        { "\xc0\xaf", false },
        { "\xe0\x80\xaf", false },
        { "\xed\xa0\x80", false },
        { "\xf4\x90\x80\x80", false },
        { "\xf8\x88\x80\x80\x80", false },
        // Longer texts are scanned eight bytes at a time first.
        { "0123456\xc3\xa9"
          "89abcdef",
            true },
        { "0123456789abcdef\xf0\x9f\x94\x94", true },
        { std::string("0123456789\0bcdef", 16), false },
        { std::string("01234567\0", 9), false },
        { "012\xff"
          "456789abcdef",
            false },
        { "0123456789abcde\xc3", false },
        { "01234567\xed\xa0\x80"
          "89abcdef",
            false },
    };
    for (const auto& test : cases)
        EXPECT_EQ(PropertyList::canHoldString(test.text), test.holds) << test.text;
}

std::string nestedXml(int depth, const std::string& between = "")
{
    std::string body;
    for (int i = 0; i < depth; ++i)
        body += "<array>" + between;
    for (int i = 0; i < depth; ++i)
        body += "</array>";
    return xml(body);
}

TEST(PropertyList, RefusesHostileXmlBeforeParsing)
{
    struct Case {
        const char* name;
        std::string text;
        bool reads;
    } cases[] = {
        { "DeepestAllowed", nestedXml(PropertyList::maximumDepth + 1), true },
        { "OneTooDeep", nestedXml(PropertyList::maximumDepth + 2), false },
        { "FarTooDeep", nestedXml(200000), false },
        { "ClosingTagsHiddenInComments", nestedXml(100000, "<!-- </array></array> -->"), false },
        { "SelfClosingArraysDoNotNest", xml("<array>" + std::string(200000, ' ') + "<array/><dict/></array>"),
            true },
        { "NulReference", xml("<dict><key>a&#0;b</key><true/></dict>"), false },
        { "NulHexReference", xml("<dict><key>a&#x000;b</key><true/></dict>"), false },
        { "RawNul", xml(std::string("<dict><key>a\0b</key><true/></dict>", 34)), false },
        { "NotXml", "definitely not a property list", false },
    };
    for (const auto& test : cases) {
        std::string error;
        EXPECT_EQ(readText(test.text, &error).has_value(), test.reads) << test.name << ": " << error;
    }
}

// A binary list whose objects are single-element arrays nested count deep.
Bytes nestedBinary(uint32_t count)
{
    Bytes bytes { 'b', 'p', 'l', 'i', 's', 't', '0', '0' };
    std::vector<uint32_t> offsets;
    auto append32 = [&](uint32_t number) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<uint8_t>(number >> shift));
    };
    for (uint32_t i = 0; i < count; ++i) {
        offsets.push_back(static_cast<uint32_t>(bytes.size()));
        if (i + 1 < count) {
            bytes.push_back(0xA1);
            append32(i + 1);
        } else
            bytes.push_back(0x09);
    }
    uint32_t table = static_cast<uint32_t>(bytes.size());
    for (auto offset : offsets)
        append32(offset);
    Bytes trailer(32, 0);
    trailer[6] = 4;
    trailer[7] = 4;
    for (int i = 0; i < 4; ++i) {
        trailer[12 + i] = static_cast<uint8_t>(count >> (24 - 8 * i));
        trailer[28 + i] = static_cast<uint8_t>(table >> (24 - 8 * i));
    }
    bytes.insert(bytes.end(), trailer.begin(), trailer.end());
    return bytes;
}

TEST(PropertyList, RefusesHostileBinaryBeforeParsing)
{
    auto withKey = [](std::string key) {
        return *PropertyList::data(Value::Dictionary { { key, true } }, PropertyList::Format::Binary);
    };
    Bytes nulKey = withKey("aXb");
    for (auto& byte : nulKey) {
        if (byte == 'X')
            byte = 0;
    }
    Bytes selfReference = nestedBinary(2);
    selfReference[12] = 0; // the inner array now holds the outer one
    struct Case {
        const char* name;
        Bytes bytes;
        bool reads;
    } cases[] = {
        { "DeepestAllowed", nestedBinary(PropertyList::maximumDepth + 1), true },
        { "OneTooDeep", nestedBinary(PropertyList::maximumDepth + 2), false },
        { "FarTooDeep", nestedBinary(200000), false },
        { "PlainKey", withKey("aXb"), true },
        { "NulInKey", nulKey, false },
        { "Cycle", selfReference, false },
        { "TrailerOnly", Bytes(40, 0), false },
    };
    for (const auto& test : cases) {
        std::string error;
        EXPECT_EQ(PropertyList::read(test.bytes, &error).has_value(), test.reads)
            << test.name << ": " << error;
    }
}

} // namespace
