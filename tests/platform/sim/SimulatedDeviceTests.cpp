#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/sim/SimulatedDevice.h"

#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

using namespace tessel;

namespace {

TEST(SimulatedDevice, InstallsAPlatformInItsOwnLibraryAndRemovesIt)
{
    std::string library;
    {
        SimulatedDevice device(Date(1000));
        library = device.libraryDirectory();
        EXPECT_EQ(&Platform::current(), &device.platform());
        EXPECT_TRUE(FileManager::fileExistsAtPath(library));
        device.advance(90);
        EXPECT_EQ(Platform::current().clock->now(), Date(1090));
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
    unsetenv("TESSEL_LIBRARY_DIR");
    EXPECT_EQ(platform->libraryDirectory, library);
    EXPECT_NEAR(platform->clock->now().timeIntervalSince1970(), static_cast<double>(std::time(nullptr)), 5);
    EXPECT_TRUE(platform->preferences->setValue(1, "k", "com.tamber.tessel"));
    EXPECT_TRUE(FileManager::fileExistsAtPath(
        Path::appendingComponent(library, "Preferences/com.tamber.tessel.plist")));
}

} // namespace
