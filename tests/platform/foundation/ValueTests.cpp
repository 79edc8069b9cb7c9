#include "platform/foundation/Value.h"

#include <gtest/gtest.h>
#include <limits>

using tessel::Date;
using tessel::Value;

namespace {

TEST(Value, BoolFollowsTheCoercionRules)
{
    const std::pair<Value, bool> cases[] = { { Value(), false }, { true, true }, { false, false },
        { 0, false }, { -3, true }, { 0.0, false }, { 0.25, true }, { "YES", true }, { "yes", true },
        { "true", true }, { "T", true }, { "NO", false }, { "false", false }, { "", false }, { "   ", false },
        { "  -007", true }, { "+0001", true }, { "000", false }, { "0x1", false }, { "\t\n y", true },
        { "--1", false }, { "9", true }, { Value::Array { 1 }, false }, { Date(5), false } };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(value.boolValue(), expected) << value.description();
}

TEST(Value, NumericCoercionsSaturateAndParse)
{
    const std::pair<Value, int64_t> integers[]
        = { { 1e300, std::numeric_limits<int64_t>::max() }, { -1e300, std::numeric_limits<int64_t>::min() },
              { std::numeric_limits<double>::quiet_NaN(), 0 }, { -2.9, -2 }, { "  42abc", 42 }, { "+17", 17 },
              { "99999999999999999999", std::numeric_limits<int64_t>::max() }, { "x", 0 },
              { std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::min() }, { Value(), 0 } };
    for (const auto& [value, expected] : integers)
        EXPECT_EQ(value.integerValue(), expected) << value.description();
    EXPECT_DOUBLE_EQ(Value(" 2.5e1").doubleValue(), 25.0);
    EXPECT_EQ(Value(int64_t(1) << 40).intValue(), 0);
}

TEST(Value, TypesAreDistinguishedButNumbersCompareByValue)
{
    EXPECT_TRUE(Value(true).isNumber());
    EXPECT_TRUE(Value(7u).isInteger());
    EXPECT_TRUE(Value(7.5).isReal());
    EXPECT_EQ(Value(1), Value(true));
    EXPECT_EQ(Value(2), Value(2.0));
    EXPECT_NE(Value(2), Value(2.5));
    EXPECT_NE(Value("2"), Value(2));
    EXPECT_NE(Value(), Value(0));
    EXPECT_TRUE(Value(static_cast<const char*>(nullptr)).isNull());
    EXPECT_TRUE(Value(std::shared_ptr<tessel::Archivable>()).isNull());
}

TEST(Value, CollectionsAreSharedAndCompareDeeply)
{
    Value::Dictionary inner { { "b", Value(Value::Array { Value(1), Value(), Value("x") }) } };
    Value record(Value::Dictionary { { "a", Value(inner) }, { "d", Value::data("\x01\x02", 2) } });
    Value copy = record;
    EXPECT_EQ(copy, record);
    EXPECT_EQ(record["a"]["b"].length(), 3u);
    EXPECT_TRUE(record["a"]["b"].at(1).isNull());
    EXPECT_TRUE(record["a"]["b"].at(3).isNull());
    EXPECT_TRUE(record["a"]["b"]["key"].isNull());
    EXPECT_EQ(record["d"].length(), 2u);
    EXPECT_TRUE(record.contains("a"));
    EXPECT_FALSE(record.contains("z"));

    Value::Dictionary changed = record.dictionaryValue();
    changed["a"] = Value(1);
    EXPECT_NE(Value(changed), record);
    EXPECT_TRUE(record["a"].isDictionary()) << "a copy taken out must not change the original";
}

TEST(Value, DescriptionsUseTheClassicNestedForm)
{
    const std::pair<Value, const char*> cases[] = { { "plain text", "plain text" }, { Value(), "(null)" },
        { true, "1" }, { -12, "-12" }, { 0.5, "0.5" }, { Date(0), "2001-01-01 00:00:00 +0000" },
        { Value::data("\x01\x02\x03\x04\xff", 5), "<01020304 ff>" },
        { Value::Dictionary { { "key", Value::Array { "a b", 2 } }, { "x y", "z" } },
            "{\n    key = (\n        \"a b\",\n        2\n    );\n    \"x y\" = z;\n}" } };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(value.description(), expected);
}

TEST(Date, ConvertsBetweenEpochsAndKeepsItsExtremes)
{
    EXPECT_DOUBLE_EQ(Date::fromTimeIntervalSince1970(978307200.0).timeIntervalSinceReferenceDate(), 0.0);
    EXPECT_DOUBLE_EQ(Date(10).timeIntervalSince1970(), 978307210.0);
    EXPECT_LT(Date::distantPast(), Date(-1e9));
    EXPECT_GT(Date::distantFuture(), Date(1e10));
    EXPECT_EQ(Date::distantPast().description(), "0001-01-01 00:00:00 +0000");
    EXPECT_EQ(Date(std::numeric_limits<double>::infinity()).description(), "(invalid date)");
    EXPECT_DOUBLE_EQ(Date(5).addingTimeInterval(2.5).timeIntervalSinceDate(Date(1)), 6.5);
}

} // namespace
