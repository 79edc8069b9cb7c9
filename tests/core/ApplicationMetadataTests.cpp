#include "core/KTApplicationProxyAdditions.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/Bundle.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <cstring>
#include <gtest/gtest.h>
#include <tessel/Tessel.h>
#include <unistd.h>

using namespace tessel;

namespace {

Bytes sound(const char* text) { return Bytes(text, text + std::strlen(text)); }

class ApplicationMetadata : public testing::Test {
protected:
    std::shared_ptr<ApplicationProxy> install(SimulatedApplication application)
    {
        std::string error;
        EXPECT_TRUE(device.applicationWorkspace().install(application, &error)) << error;
        return kt_applicationProxyForBundleIdentifier(application.identifier);
    }

    SimulatedDevice device;
};

TEST_F(ApplicationMetadata, AnswersFromTheRecordAndTheInfoDictionary)
{
    struct Case {
        const char* identifier;
        const char* type;
        Value::Dictionary info;
        bool system, required, uses, defaultProvider;
    } cases[] = {
        { "com.example.user", "User", {}, false, false, false, true },
        { "com.example.user.declares", "User",
            { { "KTRequiresLocalNotifications", true }, { "VYAppUsesLocalNotifications", "YES" } }, false,
            false, true, true },
        { "com.tamber.system", "System", {}, true, false, false, false },
        { "com.tamber.system.uses", "System", { { "VYAppUsesLocalNotifications", 1 } }, true, false, true,
            true },
        { "com.tamber.system.requires", "System", { { "KTRequiresLocalNotifications", "true" } }, true, true,
            false, false },
    };
    for (const auto& c : cases) {
        auto application = install({ .identifier = c.identifier, .type = c.type, .info = c.info });
        ASSERT_TRUE(application) << c.identifier;
        EXPECT_EQ(kt_isSystemApplication(*application), c.system) << c.identifier;
        EXPECT_EQ(kt_requiresLocalNotification(*application), c.required) << c.identifier;
        EXPECT_EQ(kt_usesLocalNotification(*application), c.uses) << c.identifier;
        EXPECT_EQ(kt_shouldUseDefaultDataProvider(*application), c.defaultProvider) << c.identifier;
        EXPECT_EQ(kt_infoDictionary(*application)["Identifier"], Value(c.identifier));
        auto bundle = kt_bundleForBundleIdentifier(c.identifier);
        ASSERT_TRUE(bundle);
        EXPECT_EQ(bundle->bundlePath(), application->bundlePath());
    }
}

TEST_F(ApplicationMetadata, UninstalledApplicationsHaveNoRecordOrBundle)
{
    install({ .identifier = "com.example.gone" });
    auto record = ApplicationProxy::applicationProxyForIdentifier("com.example.gone");
    ASSERT_TRUE(device.applicationWorkspace().uninstall("com.example.gone"));
    EXPECT_EQ(kt_applicationProxyForBundleIdentifier("com.example.gone"), nullptr);
    EXPECT_EQ(kt_bundleForBundleIdentifier("com.example.gone"), nullptr);
    EXPECT_EQ(kt_applicationProxyForBundleIdentifier("com.example.never"), nullptr);
    ApplicationProxy uninstalled({ .bundleIdentifier = "com.example.gone", .installed = false });
    EXPECT_FALSE(kt_shouldUseDefaultDataProvider(uninstalled));
    EXPECT_EQ(kt_bundle(uninstalled), nullptr) << "no bundle location";
    EXPECT_TRUE(kt_infoDictionary(uninstalled).isNull());
}

TEST_F(ApplicationMetadata, SoundsResolveOnlyInsideTheContainerSoundsOrTheBundle)
{
    auto application = install({ .identifier = "com.example.sounds",
        .resources = { { "ding.caf", sound("bundle ding") }, { "bell.caf", sound("bundle bell") },
            { "Sounds/deep.caf", sound("deep") } },
        .containerFiles = { { "Library/Sounds/ding.caf", sound("container ding") },
            { "Library/secret.caf", sound("outside the sounds directory") } } });
    ASSERT_TRUE(application);
    auto sounds = Path::appendingComponent(application->dataContainerPath(), "Library/Sounds");
    ASSERT_EQ(symlink("/etc/hostname", Path::appendingComponent(sounds, "link.caf").c_str()), 0);
    ASSERT_EQ(
        symlink("/etc/hostname", Path::appendingComponent(application->bundlePath(), "blink.caf").c_str()),
        0);
    auto bundle = Path::standardizing(application->bundlePath());

    struct Case {
        std::string name;
        std::string expected;
    } cases[] = {
        { "ding.caf", Path::appendingComponent(sounds, "ding.caf") },
        { "bell.caf", Path::appendingComponent(bundle, "bell.caf") },
        { "Sounds/deep.caf", Path::appendingComponent(bundle, "Sounds/deep.caf") },
        { "./ding.caf", Path::appendingComponent(sounds, "ding.caf") },
        { "../secret.caf", "" },
        { "../../../../../../../../etc/hostname", "" },
        { "/etc/hostname", "" },
        { "link.caf", "" },
        { "blink.caf", "" },
        { "missing.caf", "" },
        { "", "" },
        { std::string("ding.caf\0/../../secret.caf", 26), "" },
        { std::string(5000, 'a'), "" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(kt_pathForSoundName(*application, c.name), c.expected) << c.name.substr(0, 60);

    auto base = device.libraryDirectory();
    FileManager::createDirectoryAtPath(Path::appendingComponent(base, "Soundsville"), true);
    EXPECT_TRUE(_kt_isResourceValidForPath(Path::appendingComponent(base, "Soundsville"), base + "/Sounds"))
        << "containment is a plain prefix test: no separator is required after the container path";
}

TEST_F(ApplicationMetadata, StoredSoundsUseTheResolvedPath)
{
    auto application = install({ .identifier = "com.example.store",
        .containerFiles = { { "Library/Sounds/chime.caf", sound("chime") } } });
    ASSERT_TRUE(application);
    auto store = KTNotificationStore::sharedInstance();
    store->saveRemoteNotificationWithTitle({}, "m", "chime.caf", {}, {}, {}, {}, {}, "com.example.store");
    store->saveRemoteNotificationWithTitle({}, "m", "../chime.caf", {}, {}, {}, {}, {}, "com.example.store");
    auto saved = store->savedNotificationsForBundleID("com.example.store");
    ASSERT_EQ(saved.length(), 2u);
    EXPECT_EQ(saved.at(0)[KTNotificationStoreSoundKey], Value(kKTNotificationStoreSoundDefault));
    EXPECT_EQ(saved.at(1)[KTNotificationStoreSoundKey].stringValue(),
        Path::appendingComponent(application->dataContainerPath(), "Library/Sounds/chime.caf"));
}

} // namespace
