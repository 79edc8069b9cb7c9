#include "platform/foundation/Value.h"

#include <gtest/gtest.h>
#include <limits>

using tessel::Date;
using tessel::Value;

namespace {

struct BoolCase {
    Value value;
    bool expected;
};

class ValueBool : public testing::TestWithParam<BoolCase> { };

TEST_P(ValueBool, FollowsTheCoercionRules)
{
    EXPECT_EQ(GetParam().value.boolValue(), GetParam().expected) << GetParam().value.description();
}

INSTANTIATE_TEST_SUITE_P(Coercions, ValueBool,
    testing::Values(BoolCase { Value(), false }, BoolCase { Value(true), true },
        BoolCase { Value(false), false }, BoolCase { Value(0), false }, BoolCase { Value(-3), true },
        BoolCase { Value(0.0), false }, BoolCase { Value(0.25), true }, BoolCase { Value("YES"), true },
        BoolCase { Value("yes"), true }, BoolCase { Value("true"), true }, BoolCase { Value("T"), true },
        BoolCase { Value("NO"), false }, BoolCase { Value("false"), false }, BoolCase { Value(""), false },
        BoolCase { Value("   "), false }, BoolCase { Value("  -007"), true },
        BoolCase { Value("+0001"), true }, BoolCase { Value("000"), false }, BoolCase { Value("0x1"), false },
        BoolCase { Value("\t\n y"), true }, BoolCase { Value("--1"), false }, BoolCase { Value("9"), true },
        BoolCase { Value(Value::Array { Value(1) }), false }, BoolCase { Value(Date(5)), false }));

TEST(Value, AbsentValuesAnswerEmpty)
{
    Value absent;
    const char* nullText = nullptr;
    EXPECT_TRUE(Value(nullText).isNull());
    EXPECT_EQ(absent.length(), 0u);
    EXPECT_EQ(absent.stringValue(), "");
    EXPECT_EQ(absent.integerValue(), 0);
    EXPECT_TRUE(absent.arrayValue().empty());
    EXPECT_TRUE(absent["key"].isNull());
    EXPECT_TRUE(absent.at(3).isNull());
    EXPECT_EQ(absent.objectValue(), nullptr);
    EXPECT_EQ(Value(std::shared_ptr<tessel::Archivable>()).type(), Value::Type::Null);
}

TEST(Value, TypesAreDistinguishedButNumbersCompareByValue)
{
    EXPECT_TRUE(Value(true).isNumber());
    EXPECT_TRUE(Value(int64_t(7)).isInteger());
    EXPECT_TRUE(Value(7u).isInteger());
    EXPECT_TRUE(Value(7.5).isReal());
    EXPECT_EQ(Value(1), Value(true));
    EXPECT_EQ(Value(2), Value(2.0));
    EXPECT_NE(Value(2), Value(2.5));
    EXPECT_NE(Value("2"), Value(2));
    EXPECT_NE(Value(), Value(0));
    EXPECT_EQ(Value(std::numeric_limits<int64_t>::min()).integerValue(), std::numeric_limits<int64_t>::min());
}

TEST(Value, NumericCoercionsSaturateAndParse)
{
    EXPECT_EQ(Value(1e300).integerValue(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(Value(-1e300).integerValue(), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(Value(std::numeric_limits<double>::quiet_NaN()).integerValue(), 0);
    EXPECT_EQ(Value(-2.9).integerValue(), -2);
    EXPECT_EQ(Value("  42abc").integerValue(), 42);
    EXPECT_EQ(Value("+17").integerValue(), 17);
    EXPECT_EQ(Value("99999999999999999999").integerValue(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(Value("x").integerValue(), 0);
    EXPECT_DOUBLE_EQ(Value(" 2.5e1").doubleValue(), 25.0);
    EXPECT_EQ(Value(int64_t(1) << 40).intValue(), 0);
}

TEST(Value, CollectionsAreSharedAndCompareDeeply)
{
    Value::Dictionary inner { { "b", Value(Value::Array { Value(1), Value(), Value("x") }) } };
    Value record(Value::Dictionary { { "a", Value(inner) }, { "d", Value::data("\x01\x02", 2) } });
    Value copy = record;
    EXPECT_EQ(copy, record);
    EXPECT_EQ(record["a"]["b"].length(), 3u);
    EXPECT_TRUE(record["a"]["b"].at(1).isNull());
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
    EXPECT_EQ(Value("plain text").description(), "plain text");
    EXPECT_EQ(Value().description(), "(null)");
    EXPECT_EQ(Value(true).description(), "1");
    EXPECT_EQ(Value(-12).description(), "-12");
    EXPECT_EQ(Value(0.5).description(), "0.5");
    EXPECT_EQ(Value(Date(0)).description(), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(Value::data("\x01\x02\x03\x04\xff", 5).description(), "<01020304 ff>");
    Value nested(Value::Dictionary {
        { "key", Value(Value::Array { Value("a b"), Value(2) }) }, { "x y", Value("z") } });
    EXPECT_EQ(
        nested.description(), "{\n    key = (\n        \"a b\",\n        2\n    );\n    \"x y\" = z;\n}");
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
