#include "platform/sim/CapturedSystemLog.h"

#include <gtest/gtest.h>

using namespace tessel;

namespace {

TEST(CapturedSystemLog, KeepsMessagesForInspection)
{
    CapturedSystemLog log;
    log.log(LogPriority::Error, "disk full while writing /a");
    log.log(LogPriority::Debug, "retrying /a");
    log.log(LogPriority::Notice, std::string_view("partial view", 7));

    EXPECT_EQ(
        log.lines(), (std::vector<std::string> { "disk full while writing /a", "retrying /a", "partial" }));
    auto entries = log.entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].priority, LogPriority::Error);
    EXPECT_EQ(entries[1].priority, LogPriority::Debug);
    EXPECT_EQ(entries[2].priority, LogPriority::Notice);

    struct Case {
        const char* substring;
        size_t count;
    };
    for (auto [substring, count] :
        { Case { "/a", 2 }, Case { "disk", 1 }, Case { "missing", 0 }, Case { "", 3 } }) {
        EXPECT_EQ(log.count(substring), count) << substring;
        EXPECT_EQ(log.contains(substring), count > 0) << substring;
    }
    log.clear();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_FALSE(log.contains(""));
}

} // namespace
