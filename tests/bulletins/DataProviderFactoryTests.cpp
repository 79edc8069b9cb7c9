#include "settings/SettingsFixture.h"

#include "platform/applications/ApplicationDataStore.h"
#include "platform/bulletins/SettingsGateway.h"
#include "platform/files/Path.h"
#include "platform/linux/LinuxBulletinService.h"
#include "store/KTNotificationStore.h"

#include <atomic>
#include <tessel/Tessel.h>

using namespace tessel;
using namespace tessel::testing;

namespace {

class DataProviderFactory : public SettingsFixture {
protected:
    std::shared_ptr<KTDefaultDataProviderFactory> factory()
    {
        return KTDefaultDataProviderFactory::sharedInstance();
    }

    bool registered(const std::string& bundleIdentifier)
    {
        std::atomic<int> answer { -1 };
        factory()->isBundleIdentifierRegistered(bundleIdentifier, [&](bool value) { answer = value; });
        device.waitUntilIdle();
        return answer == 1;
    }

    // A section the bulletin service already knows, as after an earlier run.
    void knownSection(const std::string& bundleIdentifier)
    {
        bulletins().setSectionInfo({ .sectionID = bundleIdentifier, .allowsNotifications = false });
    }
};

TEST_F(DataProviderFactory, StartHostsQualifyingApplicationsWithKnownSections)
{
    knownSection(app);
    knownSection(customProviderApp);
    knownSection("com.example.gone");
    factory();
    device.waitUntilIdle();

    EXPECT_TRUE(bulletins().hostsSection(app));
    EXPECT_TRUE(registered(app));
    for (const char* skipped : { customProviderApp, "com.example.gone", otherApp }) {
        EXPECT_FALSE(bulletins().hostsSection(skipped)) << skipped;
        EXPECT_FALSE(registered(skipped)) << skipped;
    }
    // Hosted means registered: the user is not asked.
    registerSettings(app, NotificationSettings::TypeSound);
    EXPECT_EQ(alertsShown(), 0u);
    EXPECT_FALSE(section(app).allowsNotifications) << "update leaves the switch alone";
}

TEST_F(DataProviderFactory, EnablingTwiceMakesOneProvider)
{
    std::vector<uint64_t> types;
    std::mutex lock;
    for (uint64_t requested : { NotificationSettings::TypeBadge, NotificationSettings::TypeAlert }) {
        factory()->enableNotificationsWithSettings(NotificationSettings::settingsForTypes(requested, {}), app,
            [&](std::shared_ptr<NotificationSettings> settings) {
                std::lock_guard guard(lock);
                types.push_back(settings->types());
            });
    }
    factory()->enableNotificationsWithTypes(NotificationSettings::TypeSound, app);
    device.waitUntilIdle();

    EXPECT_EQ(device.systemLog().count("dataProviderDidLoad: com.example.app"), 1u);
    // Each answer is read back after its own write, so it can only have grown.
    EXPECT_EQ(types, (std::vector<uint64_t> { 7, 7 }));
    EXPECT_EQ(section(app).pushSettings, 63u);
    EXPECT_EQ(bulletins().gatewayWrites(app), 3u);
}

TEST_F(DataProviderFactory, UninstallRemovesProviderRecordsAndRegistration)
{
    userAnswers(SystemAlertDefaultResponse);
    registerSettings(app, NotificationSettings::allTypes);
    userAnswers(SystemAlertDefaultResponse);
    registerSettings(otherApp, NotificationSettings::allTypes);
    auto store = KTNotificationStore::sharedInstance();
    store->saveRemoteNotificationWithTitle("Title", "Hello", {}, {}, {}, {}, {}, {}, app);
    device.waitUntilIdle();
    ASSERT_EQ(bulletins().shownBulletins(app).size(), 1u);

    ASSERT_TRUE(workspace().uninstall(app));
    device.waitUntilIdle();

    EXPECT_FALSE(bulletins().hostsSection(app));
    EXPECT_FALSE(registered(app));
    EXPECT_FALSE(store->savedNotificationDataForBundleID(app));
    EXPECT_TRUE(bulletins().hostsSection(otherApp)) << "other applications keep theirs";
    EXPECT_TRUE(registered(otherApp));

    // Whatever still arrives for it changes nothing.
    factory()->updateNotificationTypes(NotificationSettings::TypeBadge, app);
    device.waitUntilIdle();
    EXPECT_FALSE(bulletins().hostsSection(app));
    EXPECT_EQ(device.systemLog().count("custom data provider: com.example.app"), 1u);
}

// The section settings of a Linux machine live in the Library's database.
TEST_F(DataProviderFactory, LinuxSectionSettingsSurviveReopeningTheDatabase)
{
    auto path = Path::appendingComponent(device.libraryDirectory(), "ApplicationDataStore.sqlite");
    auto queue = WorkQueue::create("com.tamber.KTDefaultDataProviderFactory");
    SectionInfo info { .sectionID = app,
        .pushSettings = 7 | 32,
        .alertType = SectionInfo::AlertTypeModal,
        .showsInLockScreen = false };
    SectionInfo other { .sectionID = otherApp, .allowsNotifications = false };
    {
        auto service = std::make_shared<LinuxBulletinService>(path, device.platform().systemLog);
        service->makeSettingsGateway(queue)->setSectionInfo(info, app);
        service->setSectionInfo(other);
    }
    auto reopened = std::make_shared<LinuxBulletinService>(path, device.platform().systemLog);
    auto gateway = reopened->makeSettingsGateway(queue);
    std::optional<SectionInfo> read;
    std::vector<SectionInfo> all, none;
    gateway->getSectionInfoForSectionID(app, [&](auto value) { read = value; });
    gateway->getSectionInfoWithCompletion([&](auto values) { all = values; });
    gateway->getSectionInfoForSectionIDs({ "com.example.unknown" }, [&](auto values) { none = values; });
    gateway->updateSectionInfoForSectionID(otherApp, [](SectionInfo current) {
        current.pushSettings = 1 | 8;
        return current;
    });
    device.waitUntilIdle();
    EXPECT_EQ(read, info);
    EXPECT_EQ(all, (std::vector<SectionInfo> { info, other }));
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(reopened->storedSectionInfo(otherApp)->pushSettings, 9u);

    // The data store shares the file and is unaffected.
    auto dataStore = ApplicationDataStore::storeForApplication(app);
    ASSERT_TRUE(dataStore);
    EXPECT_TRUE(dataStore->setObject(Value("kept"), "key"));
    EXPECT_EQ(reopened->storedSectionInfo(app), info);
}

} // namespace
