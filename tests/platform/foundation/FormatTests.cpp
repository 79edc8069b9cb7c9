#include "platform/foundation/Format.h"

#include <gtest/gtest.h>

using tessel::format;
using tessel::Value;

namespace {

TEST(Format, EveryConversionOfTheLogTexts)
{
    const std::pair<std::string, std::string> cases[] = {
        { format("Saving notification list for %@ with %lu items", Value("com.example.app"), size_t(101)),
            "Saving notification list for com.example.app with 101 items" },
        { format("%s %@", "+[KTNotificationStore migratePushStore]", std::string("Migrating")),
            "+[KTNotificationStore migratePushStore] Migrating" },
        { format("%i|%u|%ld|%lx", -4, 7u, -5L, 255UL), "-4|7|-5|ff" },
        { format("%5d|%-4s|%.2f|%03d", 42, "ab", 3.14159, 7), "   42|ab  |3.14|007" },
        { format("%@", Value(Value::Array { Value("a") })), "(\n    a\n)" },
        { format("%@ and %@", Value(), static_cast<const char*>(nullptr)), "(null) and (null)" },
        { format("%d", int64_t(1) << 33), "0" },
        { format("%ld", int64_t(1) << 33), "8589934592" },
        { format("%x", -1), "ffffffff" },
        // Values convert for numeric conversions.
        { format("%d %f %@", Value("12"), Value(2), Value(2.5)), "12 2.000000 2.5" },
        { format("%@", tessel::Date(0)), "2001-01-01 00:00:00 +0000" },
        { format("%s", Value(Value::Dictionary {})), "{\n}" },
        // Missing arguments and unknown conversions never read beyond the list.
        { format("%@ %d %f %s"), "(null) 0 0.000000 (null)" },
        { format("%y and %"), "%y and %" },
        { format("100%% done"), "100% done" },
        { format("tail %5"), "tail %5" },
        { format("%d", 1, 2, 3), "1" },
    };
    for (const auto& [got, expected] : cases)
        EXPECT_EQ(got, expected);
    EXPECT_EQ(format("%99999999999d", 1).size(), 9999u) << "widths are capped";
}

} // namespace
