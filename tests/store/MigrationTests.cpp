#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <gtest/gtest.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

const std::string prefix = "+[KTNotificationStore migratePushStore] ";

class PushStoreMigration : public testing::Test {
protected:
    void SetUp() override
    {
        device.platform().preferences->setValue(
            true, "VYPushStoreLogging", device.platform().hostPreferencesDomain);
        directory = KTNotificationStore::storeDirectory();
        FileManager::createDirectoryAtPath(directory, true);
    }

    std::string path(const std::string& name) { return Path::appendingComponent(directory, name); }

    void writePlist(const std::string& name, const Value& root, PropertyList::Format format)
    {
        auto bytes = PropertyList::data(root, format);
        ASSERT_TRUE(bytes);
        ASSERT_TRUE(FileManager::writeAtomically(path(name), *bytes));
    }

    std::vector<std::string> files(const std::string& in)
    {
        return FileManager::contentsOfDirectoryAtPath(in).value_or(std::vector<std::string> {});
    }

    Value archivedList(const std::string& name)
    {
        auto data = FileManager::contentsAtPath(path(name));
        if (!data)
            return {};
        return KeyedArchive::unarchive(*data).value_or(Value());
    }

    SimulatedDevice device;
    std::string directory;
};

Value record(const char* message)
{
    return Value(Value::Dictionary { { KTNotificationStoreMessageKey, message },
        { KTNotificationStoreCreationDateKey, Date(100) }, { "AppNotificationBadgeNumber", -2 } });
}

TEST_F(PushStoreMigration, AMissingDirectoryNeedsNothing)
{
    FileManager::removeItemAtPath(directory);
    KTNotificationStore::migratePushStore();
    EXPECT_EQ(device.systemLog().lines(),
        (std::vector<std::string> { prefix + "Migrating push store: " + directory,
            prefix + "Push store does not exist; no migration needed." }));
}

TEST_F(PushStoreMigration, ADirectoryWithoutOldFilesLogsOnlyTheFirstLine)
{
    ASSERT_TRUE(FileManager::writeAtomically(path("com.a.pushstore"), Bytes { 1, 2 }));
    ASSERT_TRUE(FileManager::writeAtomically(path("com.b.VYSNOTE"), Bytes { 1, 2 }));
    KTNotificationStore::migratePushStore();
    EXPECT_EQ(device.systemLog().lines(),
        std::vector<std::string> { prefix + "Migrating push store: " + directory });
}

TEST_F(PushStoreMigration, ConvertsListsAndReplacesExistingNewFiles)
{
    Value list(Value::Array { record("new"), record("old") });
    writePlist("com.xml.vysnote", list, PropertyList::Format::Xml);
    writePlist("com.both.vysnote", list, PropertyList::Format::Binary);
    ASSERT_TRUE(FileManager::writeAtomically(path("com.both.pushstore"), Bytes { 'x' }));

    KTNotificationStore::migratePushStore();

    EXPECT_EQ(files(directory), (std::vector<std::string> { "com.both.pushstore", "com.xml.pushstore" }));
    EXPECT_EQ(archivedList("com.xml.pushstore"), list);
    EXPECT_EQ(archivedList("com.both.pushstore"), list);
    EXPECT_EQ(device.systemLog().count(":: Successfully migrated file!"), 2u);
    EXPECT_TRUE(device.systemLog().contains(prefix + "Migrating \"com.xml.vysnote\"..."));
    EXPECT_EQ(KTNotificationStore::sharedInstance()->savedNotificationsForBundleID("com.xml"), list);
}

TEST_F(PushStoreMigration, AnEmptyListIsDeletedWithoutANewFile)
{
    writePlist("com.empty.vysnote", Value(Value::Array {}), PropertyList::Format::Binary);
    KTNotificationStore::migratePushStore();
    EXPECT_TRUE(files(directory).empty());
    EXPECT_TRUE(device.systemLog().contains(prefix + ":: Successfully migrated file!"));
}

TEST_F(PushStoreMigration, FilesThatCannotBeConvertedAreMovedAside)
{
    writePlist("com.dict.vysnote", Value(Value::Dictionary { { "a", 1 } }), PropertyList::Format::Xml);
    ASSERT_TRUE(FileManager::writeAtomically(path("com.garbage.vysnote"), Bytes { 'n', 'o', 'p', 'e' }));
    FileManager::createDirectoryAtPath(path("com.unreadable.vysnote"), false);

    KTNotificationStore::migratePushStore();

    auto failures = path("VYSNoteMigrationFailures");
    EXPECT_EQ(files(directory), std::vector<std::string> { "VYSNoteMigrationFailures" });
    EXPECT_EQ(files(failures),
        (std::vector<std::string> { "com.dict.vysnote", "com.garbage.vysnote", "com.unreadable.vysnote" }));
    auto& log = device.systemLog();
    EXPECT_TRUE(log.contains(prefix + ":: Push store is not of the correct type; ignoring."));
    EXPECT_TRUE(log.contains(prefix + ":: Error de-serializing push store: "));
    EXPECT_TRUE(log.contains(prefix + ":: Unable to read file."));
    EXPECT_TRUE(log.contains(prefix + "3 files(s) did not migrate properly and will be moved aside."));
    EXPECT_TRUE(log.contains(prefix + "Please file a bug and attach the contents of: " + failures));
    EXPECT_TRUE(log.contains(prefix + "\"com.dict.vysnote\" moved aside"));

    // Nothing is left to do on the next start.
    log.clear();
    KTNotificationStore::migratePushStore();
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(PushStoreMigration, FailuresStayWhenTheSideDirectoryCannotBeMade)
{
    writePlist("com.dict.vysnote", Value(Value::Dictionary { { "a", 1 } }), PropertyList::Format::Binary);
    ASSERT_TRUE(FileManager::writeAtomically(path("VYSNoteMigrationFailures"), Bytes { 'f' }));
    KTNotificationStore::migratePushStore();
    EXPECT_TRUE(FileManager::fileExistsAtPath(path("com.dict.vysnote")));
    EXPECT_TRUE(
        device.systemLog().contains(prefix + "Unable to create new directory for failed migrations ("));
    EXPECT_TRUE(device.systemLog().contains("Please file a bug and attach the contents of: " + directory));
}

} // namespace
