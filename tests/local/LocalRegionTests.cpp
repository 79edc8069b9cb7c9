#include "local/LocalClientFixture.h"

#include "platform/location/LocationServices.h"
#include "platform/location/Region.h"
#include "platform/sim/SimulatedProcessManager.h"

using namespace tessel;
using tessel::testing_support::LocalClientTest;

namespace {

class LocalRegions : public LocalClientTest {
protected:
    void SetUp() override
    {
        LocalClientTest::SetUp();
        locations().setAuthorizationStatus(app, LocationManager::AuthorizedWhenInUse);
        makeClient();
    }

    LocationServices& locations() { return device.locationServices(); }

    void cross(const std::string& identifier, bool entered = true)
    {
        device.waitUntilIdle();
        locations().reportCrossing(identifier, entered);
        device.waitUntilIdle();
    }

    void deliver(const std::shared_ptr<Region>& region, bool entered)
    {
        device.waitUntilIdle();
        locations().deliverCrossing(region, entered);
        device.waitUntilIdle();
    }

    Strings monitored()
    {
        device.waitUntilIdle();
        return locations().monitoredRegionIdentifiers();
    }
};

TEST_F(LocalRegions, ARegionIsMonitoredOnceWhileAnyNotificationUsesIt)
{
    auto first = regional("home", "first");
    auto second = regional("home", "second");
    schedule({ first, second, regional("gym") });
    EXPECT_EQ(monitored(), (Strings { "gym", "home" }));
    onQueue([&] { client->cancelLocalNotification(first); });
    EXPECT_EQ(monitored(), (Strings { "gym", "home" }));
    onQueue([&] { client->cancelLocalNotification(second); });
    EXPECT_EQ(monitored(), (Strings { "gym" }));
    EXPECT_TRUE(logged("LocationManager started monitoring region "));
}

TEST_F(LocalRegions, OnceOnlyNotificationsRetireAfterTheirFirstCrossing)
{
    schedule({ regional("office", "once", true), regional("gym", "every time") });
    cross("office");
    cross("gym", false);
    cross("gym");
    cross("office");
    EXPECT_EQ(bodies(fired), (Strings { "once", "every time", "every time" }));
    EXPECT_EQ(bodies(scheduled()), (Strings { "every time" }));
    EXPECT_EQ(monitored(), (Strings { "gym" }));
    EXPECT_EQ(deliveredCount(), 3u);
}

TEST_F(LocalRegions, UnauthorizedCrossingsFireAndSaveNothing)
{
    schedule({ regional("home") });
    for (auto status :
        { LocationManager::NotDetermined, LocationManager::Restricted, LocationManager::Denied }) {
        locations().setAuthorizationStatus(app, status);
        cross("home");
    }
    EXPECT_TRUE(fired.empty());
    EXPECT_EQ(deliveredCount(), 0u);
    EXPECT_EQ(bodies(scheduled()), (Strings { "at home" }));
    EXPECT_TRUE(logged("is not authorized for notifications."));
    locations().setAuthorizationStatus(app, LocationManager::AuthorizedAlways);
    cross("home");
    EXPECT_EQ(fired.size(), 1u);
}

TEST_F(LocalRegions, StrayCrossingsAreToldOrIgnored)
{
    schedule({ regional("home") });
    auto unknown = std::make_shared<Region>("nowhere", 0, 0, 100);
    unknown->setOnBehalfOfBundleId(app);
    auto foreign = std::make_shared<Region>("home", 0, 0, 100);
    foreign->setOnBehalfOfBundleId("com.example.other");

    size_t changesBefore = changes.size();
    deliver(foreign, true);
    EXPECT_TRUE(fired.empty()) << "stamped for another application";
    EXPECT_EQ(changes.size(), changesBefore) << "and nothing saved";
    deliver(unknown, false);
    EXPECT_TRUE(fired.empty());
    EXPECT_TRUE(logged("received handleTriggeredRegion:didEnter: for left region "));
    EXPECT_GT(changes.size(), changesBefore) << "the list is saved all the same";
}

TEST_F(LocalRegions, MonitoringFollowsTheCapReplacingUninstallAndRestart)
{
    List list;
    for (int i = 0; i < 25; ++i)
        list.push_back(regional("region " + std::to_string(100 + i)));
    schedule(list);
    EXPECT_EQ(monitored().size(), 20u);
    schedule({ regional("region 100") }, true);
    EXPECT_EQ(monitored(), (Strings { "region 100" })) << "replacing releases the others";
    onQueue([&] { client.reset(); });
    EXPECT_TRUE(monitored().empty()) << "the monitor goes with its client";
    makeClient();
    EXPECT_EQ(monitored(), (Strings { "region 100" })) << "persisted regions are monitored at start";
    cross("region 100");
    EXPECT_EQ(fired.size(), 1u);
    onQueue([&] { client->handleUninstall(); });
    EXPECT_TRUE(monitored().empty());
    EXPECT_EQ(storedList().length(), 1u);
}

TEST_F(LocalRegions, AForegroundRegionFiringShowsTheLocationIndicator)
{
    device.processManager().launch(app);
    schedule({ regional("home") });
    cross("home");
    EXPECT_EQ(locations().locationIndicatorCount(), 1);
    EXPECT_EQ(device.processManager().sentActions().size(), 1u);
}

TEST_F(LocalRegions, AFailedStartIsLoggedAndKeepsTheRegistration)
{
    locations().failNextStart("no signal");
    schedule({ regional("home") });
    EXPECT_TRUE(monitored().empty());
    EXPECT_TRUE(logged("LocationManager failed with error no signal for com.example.alarm"));
    schedule({ regional("home"), regional("gym") }, true);
    EXPECT_EQ(monitored(), (Strings { "gym" })) << "home counts as monitored already";
}

} // namespace
