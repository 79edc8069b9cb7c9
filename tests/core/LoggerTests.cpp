#include "core/KTLocalNotificationLogger.h"
#include "core/KTLogging.h"
#include "core/KTRemoteNotificationLogger.h"
#include "core/KTSystemStateProviding.h"
#include "platform/events/InProcessSystemNotificationCenter.h"
#include "platform/files/Preferences.h"
#include "platform/logging/FileLogManager.h"
#include "platform/sim/SimulatedDevice.h"
#include "server/KTTesselServer.h"

#include <gtest/gtest.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

class Loggers : public testing::Test {
protected:
    void start() { KTTesselServerStart(std::shared_ptr<KTSystemStateProviding>()); }

    void setSwitch(const char* preference, bool on)
    {
        Preferences other(device.platform().preferences->directory());
        ASSERT_TRUE(other.setValue(on, preference, "com.tamber.tessel"));
        device.systemNotificationCenter().postNotification("com.tamber.tessel.prefsChanged");
        device.waitUntilIdle();
    }

    SimulatedDevice device;
};

TEST_F(Loggers, StartRegistersBothOffAndTheSwitchDrivesTheLevel)
{
    start();
    auto loggers = device.platform().fileLogManager->loggers();
    ASSERT_EQ(loggers.size(), 2u);
    EXPECT_EQ(loggers[0]->name(), "KTLocalNotificationLog");
    EXPECT_EQ(loggers[1]->name(), "KTRemoteNotificationLog");
    EXPECT_EQ(KTLocalNotificationLoggingLevel, -1);
    KT_REMOTE_LOG("before %d", 1);
    setSwitch("KTRemoteNotificationLogging", true);
    EXPECT_EQ(KTRemoteNotificationLoggingLevel, 3);
    EXPECT_EQ(KTLocalNotificationLoggingLevel, -1) << "each logger has its own switch";
    KT_REMOTE_LOG("token for %@ is %s", Value("com.example.app"), "abc");
    KT_LOCAL_LOG("com.example.app", "not written");

    setSwitch("KTRemoteNotificationLogging", false);
    EXPECT_EQ(KTRemoteNotificationLoggingLevel, -1);
    KT_REMOTE_LOG("after");
    EXPECT_EQ(device.fileLogLines("KTRemoteNotificationLog"),
        std::vector<std::string> { "token for com.example.app is abc" });
    EXPECT_TRUE(device.fileLogLines("KTLocalNotificationLog").empty());

    setSwitch("KTLocalNotificationLogging", true);
    KT_LOCAL_LOG("com.example.app", "armed %lu timers", size_t(2));
    EXPECT_EQ(device.fileLogLines("KTLocalNotificationLog"),
        std::vector<std::string> { "[com.example.app] armed 2 timers" });
}

TEST_F(Loggers, AnExplicitLevelSurvivesAReloadThatKeepsTheSwitch)
{
    auto logger = std::make_shared<KTLocalNotificationLogger>();
    struct Step {
        const char* what;
        std::function<void()> act;
        int32_t level;
    } steps[] = {
        { "enable", [&] { logger->_setEnabled(true); }, 3 },
        { "explicit level", [&] { logger->_setLevel(7); }, 7 },
        { "enable again", [&] { logger->_setEnabled(true); }, 7 },
        { "below off clamps", [&] { logger->_setLevel(-5); }, -1 },
        { "zero is kept", [&] { logger->_setLevel(0); }, 0 },
        { "disable", [&] { logger->_setEnabled(false); }, -1 },
        { "disable again", [&] { logger->_setEnabled(false); }, -1 },
        { "level while off", [&] { logger->_setLevel(4); }, 4 },
        { "enable from an explicit level", [&] { logger->_setEnabled(true); }, 3 },
    };
    for (const auto& step : steps) {
        step.act();
        EXPECT_EQ(KTLocalNotificationLoggingLevel, step.level) << step.what;
        EXPECT_EQ(logger->level(), step.level) << step.what;
    }
}

} // namespace
