#include "core/KTFormatNetworkString.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

struct Case {
    const char* name;
    std::string format;
    std::vector<Value> arguments;
    std::optional<std::string> expected;
};

class NetworkString : public testing::TestWithParam<Case> { };

TEST_P(NetworkString, FollowsTheRules)
{
    const auto& c = GetParam();
    EXPECT_EQ(KTFormatNetworkString(std::string_view(c.format), c.arguments), c.expected);
}

const std::string null(KTNetworkStringNullPlaceholder);

INSTANTIATE_TEST_SUITE_P(Rules, NetworkString,
    testing::Values(Case { "Empty", "", {}, "" },
        Case { "SequentialRunsOut", "%@ and %@", { "a" }, "a and " + null },
        Case { "Positional", "%2$@ %1$@ %@", { "one", "two" }, "two one one" },
        Case { "PositionalZero", "[%0$@]", { "one" }, "[" + null + "]" },
        Case { "PositionalBeyond", "[%3$@]", { "one" }, "[" + null + "]" },
        Case { "PositionalHuge", "[%99999999999999999999999$@]", { "one" }, "[" + null + "]" },
        Case { "DoubledPercent", "100%% sure %", {}, "100% sure " },
        Case { "OtherConversionsVanish", "a%db%sc%xd", { "x" }, "abcd" },
        Case { "DigitsThenLetter", "%12d items", { "x" }, "d items" },
        Case { "PercentThenMultibyteDropsOneByte", "%\xC3\xA9", {}, std::nullopt },
        Case { "InvalidArgument", "ok %@", { "\xC3" }, std::nullopt },
        Case { "HalvesJoinedByAnEmptyArgument", "\xC3%@\xA9", { "" }, "\xC3\xA9" },
        Case { "NumbersByDescription", "%@/%@/%@", { 7, 2.5, true }, "7/2.5/1" },
        Case { "NullArgument", "<%@>", { Value() }, "<" + null + ">" },
        Case { "PlaceholderTextNotReinterpreted", "%@", { "%@ %1$@ %%" }, "%@ %1$@ %%" }),
    [](const auto& info) { return std::string(info.param.name); });

TEST(NetworkString, TheCInterfaceCopiesTheResultAndAbsentFormatsGiveNothing)
{
    EXPECT_FALSE(KTFormatNetworkString(std::nullopt, { Value("a") }));
    EXPECT_EQ(::KTFormatNetworkString(nullptr, nullptr, 0), nullptr);
    const char* arguments[] = { "Ann", nullptr };
    char* text = ::KTFormatNetworkString("%@ wrote to %@ %%", arguments, 2);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), "Ann wrote to " + null + " %");
    free(text);
    EXPECT_EQ(::KTFormatNetworkString("bad \xC3", arguments, 2), nullptr);
    char* noArguments = ::KTFormatNetworkString("%@", nullptr, 5);
    ASSERT_NE(noArguments, nullptr);
    EXPECT_EQ(std::string(noArguments), null);
    free(noArguments);
}

} // namespace
