#include "core/KTApplicationProxyAdditions.h"
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/Bundle.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/linux/LinuxApplicationWorkspace.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"

#include "support/TemporaryDirectory.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

using namespace tessel;

namespace {

using Records = std::vector<std::shared_ptr<ApplicationProxy>>;
using Names = std::vector<std::string>;

class RecordingObserver : public ApplicationWorkspaceObserver {
public:
    void applicationsDidInstall(const Records& applications) override
    {
        std::lock_guard lock(_lock);
        installs.push_back(applications);
        _changed.notify_all();
    }
    void applicationsDidUninstall(const Records& applications) override
    {
        std::lock_guard lock(_lock);
        uninstalls.push_back(applications);
        _changed.notify_all();
    }
    // For notices from another thread.
    bool waitFor(size_t installCount, size_t uninstallCount)
    {
        std::unique_lock lock(_lock);
        return _changed.wait_for(lock, std::chrono::seconds(30),
            [&] { return installs.size() >= installCount && uninstalls.size() >= uninstallCount; });
    }

    std::vector<Records> installs;
    std::vector<Records> uninstalls;

private:
    std::mutex _lock;
    std::condition_variable _changed;
};

Names identifiers(const Records& records)
{
    Names result;
    for (const auto& record : records)
        result.push_back(record->bundleIdentifier());
    return result;
}

// A bundle whose manifest holds only the identifier; none: no manifest at all.
void writeBundle(const std::string& path, std::optional<Value> identifier)
{
    ASSERT_TRUE(FileManager::createDirectoryAtPath(path, true));
    if (!identifier)
        return;
    auto bytes = PropertyList::data(
        Value::Dictionary { { "Identifier", std::move(*identifier) } }, PropertyList::Format::Binary);
    ASSERT_TRUE(bytes);
    ASSERT_TRUE(FileManager::writeAtomically(
        Path::appendingComponent(path, "Manifest.plist"), *bytes, nullptr, false));
}

class ApplicationWorkspaceTest : public ::testing::Test {
protected:
    SimulatedApplicationWorkspace& workspace() { return device.applicationWorkspace(); }
    std::shared_ptr<RecordingObserver> observe()
    {
        auto observer = std::make_shared<RecordingObserver>();
        workspace().addObserver(observer);
        return observer;
    }
    std::string bundleAt(const std::string& name) const
    {
        return Path::appendingComponent(device.libraryDirectory(), "Applications/" + name);
    }
    void addBundle(const std::string& name, std::optional<Value> identifier)
    {
        writeBundle(bundleAt(name), std::move(identifier));
    }

    SimulatedDevice device;
};

TEST_F(ApplicationWorkspaceTest, InstallBuildsTheRecordAndTellsObservers)
{
    auto observer = observe();
    device.platform().preferredLocalizations = { "de" };
    ASSERT_TRUE(workspace().install({
        .identifier = "com.example.chat",
        .displayName = "Chat",
        .info = { { "KTRequiresLocalNotifications", true } },
        .strings = { { "de", { { "Manifest", { { "DisplayName", "Plaudern" } } } } } },
        .containerFiles = { { "Library/state", Bytes { 9 } } },
    }));
    ASSERT_EQ(observer->installs.size(), 1u);
    ASSERT_EQ(identifiers(observer->installs[0]), Names { "com.example.chat" });
    auto record = observer->installs[0][0];
    // The name comes from the preferred localization's table, not the manifest.
    EXPECT_EQ(record->localizedName(), "Plaudern");
    EXPECT_TRUE(FileManager::fileExistsAtPath(
        Path::appendingComponent(record->dataContainerPath(), "Library/state")));
    EXPECT_EQ(ApplicationProxy::applicationProxyForIdentifier("com.example.chat"), record);
    EXPECT_TRUE(workspace()
                    .bundleForIdentifier("com.example.chat")
                    ->infoDictionary()["KTRequiresLocalNotifications"]
                    .boolValue());

    // Nothing changed, nothing told.
    workspace().rescan();
    EXPECT_EQ(observer->installs.size(), 1u);
    EXPECT_TRUE(observer->uninstalls.empty());

    const struct {
        const char* type;
        const char* displayName;
        const char* expectedType;
        const char* expectedName;
    } defaults[] = {
        { "System", "", "System", "com.example.app" },
        { "system", "X", "User", "X" },
        { "", "X", "User", "X" },
    };
    for (const auto& c : defaults) {
        ASSERT_TRUE(workspace().install(
            { .identifier = "com.example.app", .type = c.type, .displayName = c.displayName }));
        auto record = workspace().applicationProxyForIdentifier("com.example.app");
        ASSERT_TRUE(record) << c.type;
        EXPECT_EQ(record->applicationType(), c.expectedType) << c.type;
        EXPECT_EQ(record->localizedName(), c.expectedName) << c.type;
    }
}

TEST_F(ApplicationWorkspaceTest, UninstallAndChangeNotices)
{
    ASSERT_TRUE(workspace().install({ .identifier = "com.example.a", .displayName = "A" }));
    ASSERT_TRUE(workspace().install({ .identifier = "com.example.b", .displayName = "B" }));
    auto observer = observe();
    auto removed = observe();
    workspace().removeObserver(removed);
    std::weak_ptr<RecordingObserver> expired = observe();
    ASSERT_TRUE(expired.expired()) << "the workspace must hold observers weakly";

    // A changed manifest is an install notice with the new record, no uninstall.
    ASSERT_TRUE(
        workspace().install({ .identifier = "com.example.a", .displayName = "A2", .info = { { "k", 1 } } }));
    ASSERT_EQ(observer->installs.size(), 1u);
    EXPECT_EQ(observer->installs[0][0]->localizedName(), "A2");
    EXPECT_TRUE(observer->uninstalls.empty());
    EXPECT_EQ(workspace().bundleForIdentifier("com.example.a")->infoDictionary()["k"], Value(1));

    auto container = workspace().applicationProxyForIdentifier("com.example.b")->dataContainerPath();
    ASSERT_TRUE(workspace().uninstall("com.example.b"));
    ASSERT_EQ(observer->uninstalls.size(), 1u);
    ASSERT_EQ(identifiers(observer->uninstalls[0]), Names { "com.example.b" });
    EXPECT_FALSE(observer->uninstalls[0][0]->isInstalled());
    EXPECT_FALSE(workspace().applicationProxyForIdentifier("com.example.b"));
    EXPECT_FALSE(workspace().bundleForIdentifier("com.example.b"));
    EXPECT_FALSE(FileManager::fileExistsAtPath(container));
    EXPECT_EQ(identifiers(workspace().allInstalledApplications()), Names { "com.example.a" });

    // Several changes in one scan come as one notice each way.
    FileManager::removeItemAtPath(bundleAt("com.example.a.tapp"));
    addBundle("c.tapp", "com.example.c");
    addBundle("d.tapp", "com.example.d");
    workspace().rescan();
    ASSERT_EQ(observer->installs.size(), 2u);
    EXPECT_EQ(identifiers(observer->installs[1]), (Names { "com.example.c", "com.example.d" }));
    ASSERT_EQ(observer->uninstalls.size(), 2u);
    EXPECT_EQ(identifiers(observer->uninstalls[1]), Names { "com.example.a" });
    EXPECT_TRUE(removed->installs.empty() && removed->uninstalls.empty());
}

TEST_F(ApplicationWorkspaceTest, UnusableBundlesAreSkippedAndLoggedOnce)
{
    auto containers = Path::appendingComponent(device.libraryDirectory(), "Containers");
    // Bundle name, its identifier (none: no manifest), why it is skipped.
    const std::tuple<const char*, std::optional<Value>, const char*> cases[] = {
        { "parent.tapp", "../evil", "unusable identifier" },
        { "dots.tapp", "..", "unusable identifier" },
        { "dot.tapp", ".", "unusable identifier" },
        { "slash.tapp", "com/example", "unusable identifier" },
        { "long.tapp", std::string(256, 'a'), "unusable identifier" },
        { "empty.tapp", "", "no identifier" },
        { "number.tapp", 5, "no identifier" },
        { "missing.tapp", std::nullopt, "no identifier" },
    };
    for (const auto& [name, identifier, logged] : cases)
        addBundle(name, identifier);
    // Neither bundles nor hidden entries: ignored without a word.
    addBundle(".hidden.tapp", "com.example.hidden");
    addBundle("other.app", "com.example.other");
    // The simulated installer reaches the same checks.
    ASSERT_TRUE(workspace().install({ .identifier = "../../outside" }));

    auto observer = observe();
    workspace().rescan();
    workspace().rescan();
    EXPECT_TRUE(observer->installs.empty());
    EXPECT_TRUE(workspace().allInstalledApplications().empty());
    for (const auto& [name, identifier, logged] : cases)
        EXPECT_EQ(
            device.systemLog().count("Skipping application bundle " + bundleAt(name) + ": " + logged), 1u)
            << name;
    EXPECT_EQ(device.systemLog().count("../../outside"), 1u);
    EXPECT_FALSE(
        FileManager::fileExistsAtPath(Path::appendingComponent(device.libraryDirectory(), "outside")));
    EXPECT_FALSE(FileManager::contentsOfDirectoryAtPath(containers).value_or(Names {}).size());
}

TEST_F(ApplicationWorkspaceTest, DuplicateIdentifiers)
{
    addBundle("b.tapp", "com.example.twin");
    workspace().rescan();
    EXPECT_EQ(
        workspace().applicationProxyForIdentifier("com.example.twin")->bundlePath(), bundleAt("b.tapp"));

    // The bundle that had the identifier keeps it, even against an earlier name.
    auto observer = observe();
    addBundle("a.tapp", "com.example.twin");
    workspace().rescan();
    EXPECT_EQ(
        workspace().applicationProxyForIdentifier("com.example.twin")->bundlePath(), bundleAt("b.tapp"));
    EXPECT_TRUE(observer->installs.empty());
    EXPECT_EQ(device.systemLog().count("Skipping application bundle " + bundleAt("a.tapp")), 1u);

    // Once it is gone, the other one takes over: a change, not an uninstall.
    FileManager::removeItemAtPath(bundleAt("b.tapp"));
    workspace().rescan();
    EXPECT_EQ(
        workspace().applicationProxyForIdentifier("com.example.twin")->bundlePath(), bundleAt("a.tapp"));
    EXPECT_EQ(observer->installs.size(), 1u);
    EXPECT_TRUE(observer->uninstalls.empty());
}

// Meant for the ThreadSanitizer build: lookups race rescans and first table reads.
TEST_F(ApplicationWorkspaceTest, ConcurrentLookupsWhileRescanning)
{
    ASSERT_TRUE(workspace().install({ .identifier = "com.example.busy",
        .strings = { { "en", { { "Localizable", { { "k", "v" } } } } } } }));
    std::vector<std::thread> readers;
    std::atomic<int> wrong { 0 };
    for (int t = 0; t < 4; ++t) {
        readers.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                auto bundle = workspace().bundleForIdentifier("com.example.busy");
                if (!bundle || bundle->localizedStringForKey("k", "", "") != "v"
                    || !workspace().applicationProxyForIdentifier("com.example.busy"))
                    ++wrong;
            }
        });
    }
    auto observer = observe();
    for (int i = 0; i < 20; ++i) {
        addBundle("extra.tapp", "com.example.extra");
        workspace().rescan();
        FileManager::removeItemAtPath(bundleAt("extra.tapp"));
        workspace().rescan();
    }
    for (auto& reader : readers)
        reader.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(observer->installs.size(), 20u);
    EXPECT_EQ(observer->uninstalls.size(), 20u);
}

void writeDesktopEntry(const std::string& path, const std::string& keys)
{
    auto text = "[Desktop Entry]\nType=Application\n" + keys + "\n";
    ASSERT_TRUE(FileManager::createDirectoryAtPath(Path::deletingLastComponent(path), true));
    ASSERT_TRUE(FileManager::writeAtomically(path, text.data(), text.size(), nullptr, false));
}

TEST(LinuxApplicationWorkspace, DesktopEntriesAreApplicationsWithoutBundles)
{
    SimulatedDevice device;
    TemporaryDirectory directory;
    auto user = directory / "user", system = directory / "system";
    writeDesktopEntry(user + "/org.example.Mail.desktop",
        "Name=User Mail\nIcon=mail\nX-Tessel-Entitlements=push\nX-Tessel-VYAppUsesLocalNotifications=true");
    writeDesktopEntry(system + "/org.example.Mail.desktop", "Name=System Mail");
    writeDesktopEntry(user + "/org.example.Gone.desktop", "Hidden=true");
    writeDesktopEntry(system + "/org.example.Gone.desktop", "Name=Gone");
    writeDesktopEntry(system + "/kde/org.example.Edit.desktop", "Name=Edit");
    writeDesktopEntry(system + "/org.example.Bundled.desktop", "Name=Entry");
    writeDesktopEntry(system + "/Broken.desktop", "Name=Broken\n[Desktop Entry]");
    writeBundle(directory / "apps/Bundled.tapp", "org.example.Bundled");
    LinuxApplicationWorkspace workspace(directory / "apps", directory / "containers", { user, system });

    // The first directory decides an id, hidden or not; a bundle beats an entry.
    EXPECT_EQ(identifiers(workspace.allInstalledApplications()),
        (Names { "kde-org.example.Edit", "org.example.Bundled", "org.example.Mail" }));
    EXPECT_EQ(workspace.applicationProxyForIdentifier("org.example.Bundled")->bundlePath(),
        directory / "apps/Bundled.tapp");
    auto mail = workspace.applicationProxyForIdentifier("org.example.Mail");
    EXPECT_EQ(mail->localizedName(), "User Mail");
    EXPECT_EQ(mail->iconName(), "mail");
    EXPECT_TRUE(mail->bundlePath().empty());
    EXPECT_EQ(mail->dataContainerPath(), directory / "containers/org.example.Mail");
    EXPECT_TRUE(FileManager::fileExistsAtPath(mail->dataContainerPath()));
    EXPECT_EQ(mail->entitlements(), Value(Value::Dictionary { { "push", true } }));
    EXPECT_TRUE(kt_usesLocalNotification(*mail));

    auto observer = std::make_shared<RecordingObserver>();
    workspace.addObserver(observer);
    ASSERT_TRUE(FileManager::removeItemAtPath(system + "/kde"));
    writeDesktopEntry(user + "/org.example.New.desktop", "Name=New");
    workspace.rescan();
    workspace.rescan();
    ASSERT_EQ(observer->installs.size(), 1u);
    EXPECT_EQ(identifiers(observer->installs[0]), Names { "org.example.New" });
    ASSERT_EQ(observer->uninstalls.size(), 1u);
    EXPECT_EQ(identifiers(observer->uninstalls[0]), Names { "kde-org.example.Edit" });
    EXPECT_EQ(workspace.applicationProxyForIdentifier("org.example.Mail"), mail);
    EXPECT_EQ(device.systemLog().count("Skipping desktop entry " + system + "/Broken.desktop"), 1u);
}

TEST(LinuxApplicationWorkspace, WatcherNoticesBundlesCopiedInAndRemoved)
{
    SimulatedDevice device;
    TemporaryDirectory applications;
    TemporaryDirectory entries;
    ASSERT_EQ(setenv("TESSEL_APPS_DIR", applications.path().c_str(), 1), 0);
    auto workspace = LinuxApplicationWorkspace::make(device.libraryDirectory(), { entries.path() });
    unsetenv("TESSEL_APPS_DIR");
    ASSERT_EQ(workspace->applicationsDirectory(), applications.path());
    ASSERT_TRUE(workspace->isWatching());
    auto observer = std::make_shared<RecordingObserver>();
    workspace->addObserver(observer);

    // Written in place piece by piece, as a plain copy would.
    auto bundle = applications / "Copied.tapp";
    writeBundle(bundle, "com.example.copied");
    ASSERT_TRUE(observer->waitFor(1, 0));
    EXPECT_EQ(identifiers(observer->installs.back()), Names { "com.example.copied" });
    EXPECT_TRUE(workspace->applicationProxyForIdentifier("com.example.copied"));

    ASSERT_TRUE(FileManager::removeItemAtPath(bundle));
    ASSERT_TRUE(observer->waitFor(1, 1));
    EXPECT_EQ(identifiers(observer->uninstalls.back()), Names { "com.example.copied" });
    EXPECT_FALSE(workspace->applicationProxyForIdentifier("com.example.copied"));

    writeDesktopEntry(entries / "com.example.entry.desktop", "Name=Entry");
    ASSERT_TRUE(observer->waitFor(2, 1));
    EXPECT_EQ(identifiers(observer->installs.back()), Names { "com.example.entry" });
}

} // namespace
