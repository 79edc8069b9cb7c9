#include "platform/foundation/Format.h"

#include <gtest/gtest.h>

using tessel::format;
using tessel::Value;

namespace {

TEST(Format, EveryConversionOfTheLogTexts)
{
    Value list(Value::Array { Value("a") });
    struct Case {
        std::string got;
        std::string expected;
    } cases[] = {
        { format("Saving notification list for %@ with %lu items", Value("com.example.app"), size_t(101)),
            "Saving notification list for com.example.app with 101 items" },
        { format("%s %@", "+[KTNotificationStore migratePushStore]", std::string("Migrating")),
            "+[KTNotificationStore migratePushStore] Migrating" },
        { format("%d files(s)", 3), "3 files(s)" },
        { format("%i|%u|%ld|%lx", -4, 7u, -5L, 255UL), "-4|7|-5|ff" },
        { format("%lx:%lx:%f", uint64_t(0xdeadbeefcafeULL), uint64_t(0), 12.5), "deadbeefcafe:0:12.500000" },
        { format("100%% done"), "100% done" },
        { format("%5d|%-4s|%.2f|%03d", 42, "ab", 3.14159, 7), "   42|ab  |3.14|007" },
        { format("%@", list), "(\n    a\n)" },
        { format("%@ and %@", Value(), static_cast<const char*>(nullptr)), "(null) and (null)" },
        { format("\"%@\" moved aside", "x.vysnote"), "\"x.vysnote\" moved aside" },
        { format("%d", int64_t(1) << 33), "0" },
        { format("%ld", int64_t(1) << 33), "8589934592" },
        { format("%x", -1), "ffffffff" },
        { format("%c%c", 'o', 'k'), "ok" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.got, c.expected);
}

TEST(Format, MissingArgumentsAndUnknownConversionsNeverReadBeyondTheList)
{
    EXPECT_EQ(format("%@ %d %f %s"), "(null) 0 0.000000 (null)");
    EXPECT_EQ(format("%y and %"), "%y and %");
    EXPECT_EQ(format("%l"), "%l");
    EXPECT_EQ(format("tail %5"), "tail %5");
    EXPECT_EQ(format("%d", 1, 2, 3), "1");
    EXPECT_EQ(format("%99999999999d", 1).size(), 9999u) << "widths are capped";
}

TEST(Format, ValuesConvertForNumericConversions)
{
    EXPECT_EQ(format("%d %f %@", Value("12"), Value(2), Value(2.5)), "12 2.000000 2.5");
    EXPECT_EQ(format("%@", tessel::Date(0)), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(format("%s", Value(Value::Dictionary {})), "{\n}");
}

} // namespace
