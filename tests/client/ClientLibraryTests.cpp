// What libtessel-services.so shows applications.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>

namespace {

TEST(ClientLibraryTest, ExportsOnlyItsInterface)
{
    std::string command = std::string("nm -D --defined-only ") + TESSEL_SERVICES_LIBRARY + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    // The C interface, and the members of the client classes and record builders.
    std::regex allowed("^TesselServices[A-Za-z]*$|^_ZN[K]?6tessel("
                       "30KTSNotificationRegistrarClient|30KTSNotificationSchedulerClient|"
                       "23LocalNotificationFields|26NotificationSettingsFields).*");
    int count = 0;
    char line[4096];
    while (fgets(line, sizeof line, pipe)) {
        std::string text(line);
        auto symbol = text.substr(text.find_last_of(' ') + 1);
        symbol.erase(symbol.find_last_not_of("\r\n") + 1);
        EXPECT_TRUE(std::regex_match(symbol, allowed)) << "unexpected export " << symbol;
        ++count;
    }
    pclose(pipe);
    EXPECT_GT(count, 50);
}

} // namespace
