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

TEST(PropertyList, RoundTripsKeepKindAndValue)
{
    constexpr auto binary = PropertyList::Format::Binary;
    constexpr auto xml = PropertyList::Format::Xml;
    const std::pair<PropertyList::Format, Value> cases[]
        = { { binary, -1 }, { binary, std::numeric_limits<int64_t>::min() }, { binary, -300 },
              { binary, true }, { binary, Date(-1.5) }, { binary, Date(-0.25) },
              { binary, Date(700000000.125) }, { binary, Date(-86400) },
              { binary, Value::Dictionary { { "a", Value::Array { 1, "b", Bytes {} } } } }, { xml, -7 },
              { xml, std::numeric_limits<int64_t>::min() } };
    for (const auto& [format, value] : cases) {
        SCOPED_TRACE(value.description());
        std::string error;
        auto bytes = PropertyList::data(value, format, &error);
        ASSERT_TRUE(bytes) << error;
        auto read = PropertyList::read(*bytes, &error);
        ASSERT_TRUE(read) << error;
        EXPECT_EQ(read->type(), value.type());
        EXPECT_EQ(*read, value) << read->description();
    }
    for (double seconds : { 12.000250, -12.000250, -0.000001, 700000000.999999, -700000000.5 }) {
        auto read = PropertyList::read(*PropertyList::data(Date(seconds), binary));
        ASSERT_TRUE(read && read->isDate());
        EXPECT_NEAR(read->dateValue().timeIntervalSinceReferenceDate(), seconds, 0.5e-6);
    }
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
    using namespace std::string_literals;
    // Longer texts are scanned eight bytes at a time first.
    const std::pair<std::string, bool> cases[] = { { "", true }, { "plain ascii\t\n", true },
        { "\xc3\xa9\xe2\x82\xac\xf0\x9f\x94\x94", true }, { "\xf4\x8f\xbf\xbf", true }, { "\0"s, false },
        { "\x80", false }, { "\xc3", false }, { "\xc0\xaf", false }, { "\xe0\x80\xaf", false },
        { "\xed\xa0\x80", false }, { "\xf4\x90\x80\x80", false }, { "\xf8\x88\x80\x80\x80", false },
        { "0123456\303\25189abcdef", true }, { "0123456789abcdef\xf0\x9f\x94\x94", true },
        { "0123456789\0bcdef"s, false }, { "01234567\0"s, false }, { "012\377456789abcdef", false },
        { "0123456789abcde\xc3", false }, { "01234567\355\240\20089abcdef", false } };
    for (const auto& [text, holds] : cases)
        EXPECT_EQ(PropertyList::canHoldString(text), holds) << text;
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
    // Name, text, whether it reads.
    const std::tuple<const char*, std::string, bool> cases[] = {
        { "DeepestAllowed", nestedXml(PropertyList::maximumDepth + 1), true },
        { "OneTooDeep", nestedXml(PropertyList::maximumDepth + 2), false },
        { "FarTooDeep", nestedXml(200000), false },
        { "ClosingTagsHiddenInComments", nestedXml(100000, "<!-- </array></array> -->"), false },
        { "SelfClosingArraysDoNotNest", xml("<array>" + std::string(200000, ' ') + "<array/><dict/></array>"),
            true },
        { "NulReference", xml("<dict><key>a&#0;b</key><true/></dict>"), false },
        { "NulHexReference", xml("<dict><key>a&#x000;b</key><true/></dict>"), false },
        { "RawNul", xml(std::string("<dict><key>a\0b</key><true/></dict>", 34)), false },
    };
    for (const auto& [name, text, reads] : cases) {
        std::string error;
        EXPECT_EQ(readText(text, &error).has_value(), reads) << name << ": " << error;
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
    // Name, bytes, whether they read.
    const std::tuple<const char*, Bytes, bool> cases[] = {
        { "DeepestAllowed", nestedBinary(PropertyList::maximumDepth + 1), true },
        { "OneTooDeep", nestedBinary(PropertyList::maximumDepth + 2), false },
        { "FarTooDeep", nestedBinary(200000), false },
        { "PlainKey", withKey("aXb"), true },
        { "NulInKey", nulKey, false },
        { "Cycle", selfReference, false },
    };
    for (const auto& [name, bytes, reads] : cases) {
        std::string error;
        EXPECT_EQ(PropertyList::read(bytes, &error).has_value(), reads) << name << ": " << error;
    }
}

} // namespace
