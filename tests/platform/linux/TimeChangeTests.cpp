#include "ipc/IpcTestSupport.h"
#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/dbus/DbusSystemNotificationCenter.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

using namespace tessel;
using namespace tessel::ipctest;

namespace {

// Replaces path with a link to the zone as a zone tool does: a new link renamed over it.
void linkZone(const std::string& path, const std::string& zone)
{
    auto fresh = path + ".new";
    ASSERT_EQ(symlink(("/usr/share/zoneinfo/" + zone).c_str(), fresh.c_str()), 0);
    ASSERT_EQ(rename(fresh.c_str(), path.c_str()), 0);
}

TEST(TimeZoneWatch, EveryChangeOfTheZoneFileAndNothingElse)
{
    TemporaryDirectory directory;
    auto file = directory / "localtime";
    linkZone(file, "Europe/Berlin");
    Mailbox<int> changes;
    SystemClock clock(file);
    clock.setSignificantTimeChangeHandler([&] { changes.push(0); });

    struct Case {
        const char* what;
        std::function<void()> change;
    } cases[] = {
        { "a file renamed over it",
            [&] {
                std::ofstream(directory / "copy") << "TZif";
                std::rename((directory / "copy").c_str(), file.c_str());
            } },
        { "written in place", [&] { std::ofstream(file) << "TZif2"; } },
        { "a link renamed over it", [&] { linkZone(file, "Asia/Tokyo"); } },
        { "removed", [&] { std::remove(file.c_str()); } },
    };
    size_t count = 0;
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        // Neighbours come and go without a change of zone.
        std::ofstream(directory / "neighbour") << "x";
        linkZone(directory / "localtime.other", "UTC");
        c.change();
        EXPECT_EQ(changes.waitFor(++count).size(), count);
    }
    WorkQueue::waitUntilIdle();
    EXPECT_EQ(changes.items().size(), count);
}

// The daemon's platform: a zone change or a jump of the wall clock updates the zone
// and reaches observers here and in other processes.
TEST(TimeChange, ReachesObserversWithTheCurrentZone)
{
    TemporaryDirectory directory;
    PrivateBus bus;
    auto zoneFile = directory / "localtime";
    linkZone(zoneFile, "Europe/Berlin");
    setenv("TZ", (":" + zoneFile).c_str(), 1);
    setenv("TESSEL_LIBRARY_DIR", (directory / "Library").c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    Mailbox<std::string> zones, elsewhere;
    DbusSystemNotificationCenter otherProcess(std::make_shared<DbusIpcService>(bus.address()));
    otherProcess.addObserver("SignificantTimeChangeNotification", [&](auto& name) { elsewhere.push(name); });
    auto platform = LinuxPlatform::make();
    EXPECT_EQ(platform->timeZone(), "Europe/Berlin");
    platform->systemNotificationCenter->addObserver(
        "SignificantTimeChangeNotification", [&](auto&) { zones.push(platform->timeZone()); });

    linkZone(zoneFile, "Asia/Tokyo");
    EXPECT_EQ(zones.waitFor(1), std::vector<std::string> { "Asia/Tokyo" });
    // Waited for, or the other process might hear both changes as one.
    EXPECT_EQ(elsewhere.waitFor(1).size(), 1u);
    std::dynamic_pointer_cast<SystemClock>(platform->clock)->wallClockWasSet();
    EXPECT_EQ(zones.waitFor(2), (std::vector<std::string> { "Asia/Tokyo", "Asia/Tokyo" }));
    EXPECT_EQ(elsewhere.waitFor(2).size(), 2u);
    WorkQueue::waitUntilIdle();
    for (auto* name : { "TZ", "TESSEL_LIBRARY_DIR", "DBUS_SESSION_BUS_ADDRESS" })
        unsetenv(name);
}

} // namespace
