#include "platform/FileLogManager.h"
#include "platform/FileLogger.h"
#include "platform/FileManager.h"
#include "platform/Path.h"
#include "platform/Preferences.h"
#include "platform/WorkQueue.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/sim/SimulatedDevice.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

using namespace tessel;

namespace {

class DeviceLogger : public FileLogger {
public:
    std::string name() const override { return "DeviceLog"; }
    std::string logPreferenceName() const override { return "DeviceLogging"; }
    std::string logPreferenceDomain() const override { return "com.tamber.tessel"; }
};

TEST(SimulatedDevice, InstallsAPlatformInItsOwnLibraryAndRemovesIt)
{
    std::string library;
    {
        SimulatedDevice device;
        library = device.libraryDirectory();
        EXPECT_EQ(&Platform::current(), &device.platform());
        EXPECT_TRUE(FileManager::fileExistsAtPath(library));
        EXPECT_EQ(Platform::current().clock->now(), ManualClock::defaultStartDate);

        ASSERT_TRUE(device.platform().preferences->setValue(true, "DeviceLogging", "com.tamber.tessel"));
        EXPECT_TRUE(FileManager::fileExistsAtPath(
            Path::appendingComponent(library, "Preferences/com.tamber.tessel.plist")));

        auto logger = std::make_shared<DeviceLogger>();
        device.platform().fileLogManager->registerLogger(logger);
        EXPECT_TRUE(logger->isEnabled());
        device.advance(90);
        logger->log("one");
        logger->log("two words");
        EXPECT_EQ(device.fileLogLines("DeviceLog"), (std::vector<std::string> { "one", "two words" }));
    }
    EXPECT_FALSE(FileManager::fileExistsAtPath(library));
    EXPECT_FALSE(FileManager::fileExistsAtPath(Path::deletingLastComponent(library)));
}

TEST(SimulatedDevice, AdvanceRunsTimersOnTheirQueuesInDateOrder)
{
    SimulatedDevice device(Date(1000));
    auto queue = WorkQueue::create("com.tamber.test.timers");
    std::vector<double> fired;
    for (double at : { 1030.0, 1010.0, 1020.0, 1100.0 })
        device.clock().scheduleTimer(Date(at), queue, [&fired, &device, queue] {
            KT_ASSERT_ON_QUEUE(queue);
            fired.push_back(device.clock().now().timeIntervalSinceReferenceDate());
        });
    device.advance(30);
    EXPECT_EQ(fired, (std::vector<double> { 1010, 1020, 1030 }));
    EXPECT_EQ(device.clock().now(), Date(1030));
}

TEST(LinuxPlatform, UsesTheConfiguredLibraryAndTheRealClock)
{
    char pattern[] = "/tmp/tessel-linux-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    auto library = Path::appendingComponent(pattern, "Library");
    setenv("TESSEL_LIBRARY_DIR", library.c_str(), 1);
    auto platform = LinuxPlatform::make();
    EXPECT_EQ(platform->libraryDirectory, library);
    EXPECT_TRUE(FileManager::fileExistsAtPath(library));
    double realNow = static_cast<double>(std::time(nullptr));
    EXPECT_NEAR(platform->clock->now().timeIntervalSince1970(), realNow, 5);
    EXPECT_TRUE(platform->preferences->setValue(1, "k", "com.tamber.tessel"));
    EXPECT_TRUE(FileManager::fileExistsAtPath(
        Path::appendingComponent(library, "Preferences/com.tamber.tessel.plist")));
    platform.reset();
    FileManager::removeItemAtPath(pattern);
}

} // namespace
