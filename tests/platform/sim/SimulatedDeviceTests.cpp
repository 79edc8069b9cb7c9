#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/logging/FileLogManager.h"
#include "platform/logging/FileLogger.h"
#include "platform/sim/SimulatedDevice.h"

#include "support/TemporaryDirectory.h"

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
        // The start date reaches the platform's clock; timer order is the clock's own business.
        SimulatedDevice device(Date(1000));
        library = device.libraryDirectory();
        EXPECT_EQ(&Platform::current(), &device.platform());
        EXPECT_TRUE(FileManager::fileExistsAtPath(library));
        EXPECT_EQ(Platform::current().clock->now(), Date(1000));

        ASSERT_TRUE(device.platform().preferences->setValue(true, "DeviceLogging", "com.tamber.tessel"));
        EXPECT_TRUE(FileManager::fileExistsAtPath(
            Path::appendingComponent(library, "Preferences/com.tamber.tessel.plist")));

        auto logger = std::make_shared<DeviceLogger>();
        device.platform().fileLogManager->registerLogger(logger);
        EXPECT_TRUE(logger->isEnabled());
        device.advance(90);
        EXPECT_EQ(Platform::current().clock->now(), Date(1090));
        logger->log("one");
        logger->log("two words");
        EXPECT_EQ(device.fileLogLines("DeviceLog"), (std::vector<std::string> { "one", "two words" }));
    }
    EXPECT_FALSE(FileManager::fileExistsAtPath(library));
    EXPECT_FALSE(FileManager::fileExistsAtPath(Path::deletingLastComponent(library)));
}

TEST(LinuxPlatform, UsesTheConfiguredLibraryAndTheRealClock)
{
    TemporaryDirectory directory;
    auto library = directory / "Library";
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
    unsetenv("TESSEL_LIBRARY_DIR");
}

} // namespace
