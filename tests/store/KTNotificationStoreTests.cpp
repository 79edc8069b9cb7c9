#include "core/KTInternalInconsistencyException.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PropertyList.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/ManualClock.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <gtest/gtest.h>
#include <mutex>
#include <regex>
#include <tessel/Tessel.h>
#include <thread>

using namespace tessel;

namespace {

class RecordingObserver : public KTNotificationStoreObserver {
public:
    void pushStoreNotificationsDidChange() override { note("changed"); }
    void pushStoreClearedNotifications() override { note("cleared"); }

    std::vector<std::string> events() const
    {
        std::lock_guard lock(_lock);
        return _events;
    }
    bool calledOnTestThread() const { return _calledOnTestThread; }

private:
    void note(const char* event)
    {
        std::lock_guard lock(_lock);
        _events.push_back(event);
        if (std::this_thread::get_id() == _testThread)
            _calledOnTestThread = true;
    }

    mutable std::mutex _lock;
    std::vector<std::string> _events;
    std::thread::id _testThread = std::this_thread::get_id();
    bool _calledOnTestThread = false;
};

class NotificationStore : public testing::Test {
protected:
    void SetUp() override
    {
        // The switch is read once per process, which here is once per test.
        device.platform().preferences->setValue(
            true, "VYPushStoreLogging", device.platform().hostPreferencesDomain);
    }

    std::shared_ptr<KTNotificationStore> store() { return KTNotificationStore::sharedInstance(); }

    void saveMessage(const std::string& message, const std::string& bundleID = "com.example.app")
    {
        store()->saveRemoteNotificationWithTitle({}, message, {}, {}, {}, {}, {}, {}, bundleID);
    }

    Value::Array records(const std::string& bundleID = "com.example.app")
    {
        return store()->savedNotificationsForBundleID(bundleID).arrayValue();
    }

    std::string storePath(const std::string& fileName)
    {
        return Path::appendingComponent(KTNotificationStore::storeDirectory(), fileName);
    }

    SimulatedDevice device;
};

TEST_F(NotificationStore, KeepsTheNewestAndAHundredOlderRecordsNewestFirst)
{
    for (int i = 0; i < 150; ++i) {
        saveMessage("m" + std::to_string(i));
        device.clock().advance(1);
    }
    auto saved = records();
    ASSERT_EQ(saved.size(), 101u);
    EXPECT_EQ(saved.front()[KTNotificationStoreMessageKey].stringValue(), "m149");
    EXPECT_EQ(saved.back()[KTNotificationStoreMessageKey].stringValue(), "m49");
    for (size_t i = 1; i < saved.size(); ++i)
        EXPECT_GT(saved[i - 1][KTNotificationStoreCreationDateKey].dateValue(),
            saved[i][KTNotificationStoreCreationDateKey].dateValue());
    EXPECT_TRUE(device.systemLog().contains("Saving notification list for com.example.app with 101 items"));
}

TEST_F(NotificationStore, RecordsWithoutMessageSurviveOnlyUntilTheNextSave)
{
    store()->saveRemoteNotificationWithTitle({}, {}, {}, {}, Value(3), {}, {}, {}, "com.example.app");
    auto saved = records();
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_FALSE(saved[0].contains(KTNotificationStoreMessageKey));
    EXPECT_EQ(saved[0][KTNotificationStoreBadgeNumberKey], Value(3));

    saveMessage("hello");
    saved = records();
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(saved[0][KTNotificationStoreMessageKey].stringValue(), "hello");
}

struct SaveCase {
    const char* name;
    Value title, message, sound, action, badge;
    bool ringtone;
    // Expected keys of the stored record; empty when nothing is stored.
    Value::Dictionary expected;
};

class NotificationStoreSaves : public NotificationStore, public testing::WithParamInterface<SaveCase> { };

TEST_P(NotificationStoreSaves, BuildRecordsFromTheirArguments)
{
    const auto& c = GetParam();
    store()->_saveNotificationWithTitle(
        c.title, c.message, c.sound, c.action, c.badge, {}, {}, {}, c.ringtone, true, {}, "com.example.app");
    auto saved = records();
    if (c.expected.empty()) {
        EXPECT_TRUE(saved.empty());
        EXPECT_TRUE(device.systemLog().contains("Ignoring notification with no content."));
        return;
    }
    ASSERT_EQ(saved.size(), 1u);
    Value::Dictionary got = saved[0].dictionaryValue();
    EXPECT_TRUE(got[KTNotificationStoreCreationDateKey].isDate());
    EXPECT_EQ(got[KTNotificationStoreNotificationTypeKey], Value(kKTNotificationStoreNotificationTypeRemote));
    got.erase(KTNotificationStoreCreationDateKey);
    got.erase(KTNotificationStoreNotificationTypeKey);
    EXPECT_EQ(Value(got), Value(c.expected)) << Value(got).description();
}

INSTANTIATE_TEST_SUITE_P(Cases, NotificationStoreSaves,
    testing::Values(SaveCase { "TitleOnly", "Title", {}, {}, {}, {}, false, {} },
        SaveCase { "EmptyStrings", "", "", "", "", {}, false, {} },
        SaveCase { "BadgeOnly", {}, {}, {}, {}, 0, false, { { KTNotificationStoreBadgeNumberKey, 0 } } },
        SaveCase {
            "ActionOnly", {}, {}, {}, "Open", {}, false, { { KTNotificationStoreActionTextKey, "Open" } } },
        SaveCase { "Everything", "T", "M", {}, "A", 2, false,
            { { KTNotificationStoreTitleKey, "T" }, { KTNotificationStoreMessageKey, "M" },
                { KTNotificationStoreActionTextKey, "A" }, { KTNotificationStoreBadgeNumberKey, 2 } } },
        SaveCase { "DefaultSoundKeptAsIs", {}, {}, kKTNotificationStoreSoundDefault, {}, {}, false,
            { { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault },
                { KTNotificationStoreSoundIsRingtoneKey, false } } },
        SaveCase { "RingtoneKeptAsIs", {}, {}, "ringtone:Marimba", {}, {}, true,
            { { KTNotificationStoreSoundKey, "ringtone:Marimba" },
                { KTNotificationStoreSoundIsRingtoneKey, true } } },
        SaveCase { "UnknownSoundFallsBackToDefault", {}, {}, "../../missing.caf", {}, {}, false,
            { { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault },
                { KTNotificationStoreSoundIsRingtoneKey, false } } }),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(NotificationStore, WronglyTypedArgumentsRaiseAndStoreNothing)
{
    struct {
        Value message, sound, action, badge, launchImage;
        const char* condition;
    } cases[] = {
        { 5, {}, {}, {}, {}, "message is null or a string" },
        { "m", Value(Value::Array {}), {}, {}, {}, "soundName is null or a string" },
        { "m", {}, true, {}, {}, "actionText is null or a string" },
        { "m", {}, {}, "3", {}, "badge is null or a number" },
        { "m", {}, {}, {}, 1.5, "launchImage is null or a string" },
    };
    for (const auto& c : cases) {
        try {
            store()->_saveNotificationWithTitle({}, c.message, c.sound, c.action, c.badge, {}, c.launchImage,
                {}, false, true, {}, "com.example.app");
            ADD_FAILURE() << "no exception for " << c.condition;
        } catch (const KTInternalInconsistencyException& exception) {
            EXPECT_EQ(std::string(exception.what()),
                std::string("Invalid parameter not satisfying: ") + c.condition);
        }
    }
    EXPECT_TRUE(store()->savedNotificationsForBundleID("com.example.app").isNull());
}

TEST_F(NotificationStore, IgnoresSavesWithoutBundleIdentifier)
{
    saveMessage("hello", "");
    EXPECT_TRUE(device.systemLog().contains("Ignoring notification because bundleID is nil."));
    auto files = FileManager::contentsOfDirectoryAtPath(KTNotificationStore::storeDirectory());
    ASSERT_TRUE(files);
    EXPECT_TRUE(files->empty());
}

TEST_F(NotificationStore, OptionalFieldsAreKeptAndLocalRecordsCarryTheirType)
{
    Value userInfo(Value::Dictionary { { "k", Value(Value::Array { Value(1), Value() }) } });
    store()->_saveNotificationWithTitle(
        {}, "m", {}, {}, {}, userInfo, "Launch", {}, false, false, "REPLY", "com.example.app");
    auto saved = records();
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(
        saved[0][KTNotificationStoreNotificationTypeKey], Value(kKTNotificationStoreNotificationTypeLocal));
    EXPECT_EQ(saved[0][KTNotificationStoreUserInfoKey], userInfo);
    EXPECT_EQ(saved[0][KTNotificationStoreLaunchImageKey], Value("Launch"));
    EXPECT_EQ(saved[0][KTNotificationStoreCategoryKey], Value("REPLY"));
    EXPECT_FALSE(saved[0].contains(KTNotificationStoreLocalNotificationDataKey));
}

TEST_F(NotificationStore, ObserversHearOfSuccessfulWritesOnAnotherThread)
{
    auto observer = std::make_shared<RecordingObserver>();
    auto other = std::make_shared<RecordingObserver>();
    store()->addObserver(observer, "com.example.app");
    store()->addObserver(observer, "com.example.app");
    store()->addObserver(other, "com.example.other");
    store()->addObserver(observer, "");

    saveMessage("one");
    // Notices travel on a concurrent queue: only separate steps arrive in order.
    device.waitUntilIdle();
    store()->clearNotificationsForBundleID("com.example.app");
    store()->clearNotificationsForBundleID("com.example.app");
    device.waitUntilIdle();
    EXPECT_EQ(observer->events(), (std::vector<std::string> { "changed", "cleared" }));
    EXPECT_TRUE(other->events().empty());
    EXPECT_FALSE(observer->calledOnTestThread());

    // A directory where the file should be makes every write fail: nobody is told.
    FileManager::createDirectoryAtPath(storePath("com.example.app.pushstore/blocker"), true);
    saveMessage("two");
    store()->removeAllNotificationsForBundleID("com.example.app");
    device.waitUntilIdle();
    EXPECT_EQ(observer->events().size(), 2u);
    EXPECT_TRUE(device.systemLog().contains("Error: could not write new list to"));

    store()->removeObserver(observer, "com.example.app");
    FileManager::removeItemAtPath(storePath("com.example.app.pushstore"));
    saveMessage("three");
    device.waitUntilIdle();
    EXPECT_EQ(observer->events().size(), 2u);
}

TEST_F(NotificationStore, RegisteringCreatesAnEmptyStoreOnlyWhenThereIsNone)
{
    store()->registerAppForNotificationsWithBundleID("com.example.app");
    auto empty = store()->savedNotificationsForBundleID("com.example.app");
    ASSERT_TRUE(empty.isArray());
    EXPECT_EQ(empty.length(), 0u);
    EXPECT_TRUE(device.systemLog().contains("Saving empty store for bundleID: com.example.app"));

    saveMessage("kept");
    auto before = store()->savedNotificationDataForBundleID("com.example.app");
    store()->registerAppForNotificationsWithBundleID("com.example.app");
    EXPECT_EQ(store()->savedNotificationDataForBundleID("com.example.app"), before);

    store()->unregisterAppForNotificationsWithBundleID("com.example.app");
    EXPECT_FALSE(store()->savedNotificationDataForBundleID("com.example.app"));
    EXPECT_TRUE(device.systemLog().contains("No notification data store found at"));
}

TEST_F(NotificationStore, RemovalsKeepTheRestInOrder)
{
    store()->_saveNotificationWithTitle(
        {}, "local", {}, {}, {}, {}, {}, {}, false, false, {}, "com.example.app");
    device.clock().advance(1);
    saveMessage("remote");
    device.clock().advance(1);
    saveMessage("second remote");

    auto identifiers = store()->removeNotificationsPassingTest(
        [](const Value& record) { return record[KTNotificationStoreMessageKey].stringValue() == "remote"; },
        "com.example.app");
    ASSERT_EQ(identifiers.size(), 1u);
    EXPECT_EQ(records().size(), 2u);
    EXPECT_TRUE(store()
                    ->removeNotificationsPassingTest([](const Value&) { return false; }, "com.example.app")
                    .empty());
    EXPECT_TRUE(
        store()->removeNotificationsPassingTest([](const Value&) { return true; }, "com.missing").empty());

    store()->removeAllLocalNotificationsForBundleID("com.example.app");
    auto saved = records();
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(saved[0][KTNotificationStoreMessageKey].stringValue(), "second remote");

    store()->removeAllNotificationsForBundleID("com.example.app");
    EXPECT_EQ(store()->savedNotificationsForBundleID("com.example.app"), Value(Value::Array {}));
    EXPECT_TRUE(store()->lastUpdateDateForBundleID("com.example.app"));
}

TEST_F(NotificationStore, UniqueIdentifiersFollowTitleMessageAndDate)
{
    Value::Dictionary base { { KTNotificationStoreTitleKey, "T" }, { KTNotificationStoreMessageKey, "M" },
        { KTNotificationStoreCreationDateKey, Date(12.5) } };
    auto first = KTNotificationStore::uniqueIdentifierForNotification(Value(base));
    ASSERT_TRUE(first);
    EXPECT_TRUE(std::regex_match(*first, std::regex("[0-9a-f]+:[0-9a-f]+:12\\.500000"))) << *first;
    EXPECT_EQ(KTNotificationStore::uniqueIdentifierForNotification(Value(base)), first);

    auto noTitle = base;
    noTitle.erase(KTNotificationStoreTitleKey);
    auto untitled = KTNotificationStore::uniqueIdentifierForNotification(Value(noTitle));
    ASSERT_TRUE(untitled);
    EXPECT_EQ(untitled->substr(0, 2), "0:");

    auto otherMessage = base;
    otherMessage[KTNotificationStoreMessageKey] = "N";
    EXPECT_NE(KTNotificationStore::uniqueIdentifierForNotification(Value(otherMessage)), first);

    auto undated = base;
    undated.erase(KTNotificationStoreCreationDateKey);
    EXPECT_FALSE(KTNotificationStore::uniqueIdentifierForNotification(Value(undated)));
}

TEST_F(NotificationStore, UnreadableStoresAreReplacedByTheNewRecord)
{
    auto archivedDictionary = KeyedArchive::archivedData(Value(Value::Dictionary { { "a", 1 } }));
    auto valid = KeyedArchive::archivedData(Value(Value::Array { Value(Value::Dictionary { { "m", 1 } }) }));
    ASSERT_TRUE(archivedDictionary && valid);
    Bytes truncated(valid->begin(), valid->begin() + static_cast<long>(valid->size() / 2));
    store(); // creates the store directory
    struct {
        Bytes contents;
        const char* log;
    } cases[] = {
        { Bytes { 'n', 'o', 't', ' ', 'a', 'n', ' ', 'a', 'r', 'c', 'h', 'i', 'v', 'e' },
            "Error: exception caught loading notification data store at" },
        { truncated, "Error: exception caught loading notification data store at" },
        { *archivedDictionary, "Error: could not load notification data store at" },
    };
    for (const auto& c : cases) {
        device.systemLog().clear();
        std::string error;
        ASSERT_TRUE(FileManager::writeAtomically(storePath("com.example.app.pushstore"), c.contents, &error))
            << error;
        bool isArchive = c.contents == *archivedDictionary;
        EXPECT_TRUE(store()->savedNotificationsForBundleID("com.example.app").isNull());
        EXPECT_EQ(device.systemLog().contains(
                      "Caught exception while unarchiving notifications for \"com.example.app\""),
            !isArchive);
        saveMessage("fresh");
        EXPECT_TRUE(device.systemLog().contains(c.log)) << c.log;
        auto saved = records();
        ASSERT_EQ(saved.size(), 1u);
        EXPECT_EQ(saved[0][KTNotificationStoreMessageKey].stringValue(), "fresh");
    }
}

TEST_F(NotificationStore, BundleIdentifiersNeverLeaveTheStoreDirectory)
{
    saveMessage("slashed", "a/b");
    EXPECT_EQ(records("ab").size(), 1u) << "a/b and ab share one file";
    for (const char* hostile : { "..", "../../outside", "/etc/passwd", "x/../../../y" }) {
        saveMessage("hostile", hostile);
        EXPECT_EQ(records(hostile).size(), 1u) << hostile;
    }
    auto files = FileManager::contentsOfDirectoryAtPath(KTNotificationStore::storeDirectory());
    ASSERT_TRUE(files);
    EXPECT_EQ(*files,
        (std::vector<std::string> { "....outside.pushstore", "...pushstore", "ab.pushstore",
            "etcpasswd.pushstore", "x......y.pushstore" }));
    EXPECT_FALSE(FileManager::fileExistsAtPath(
        Path::appendingComponent(device.libraryDirectory(), "Vantry/y.pushstore")));
}

TEST_F(NotificationStore, UpdatesSinceIncludeTheSameSecond)
{
    EXPECT_FALSE(store()->bundleIDsWithUpdatesSince(std::nullopt));
    saveMessage("a", "com.example.a");
    auto updated = store()->lastUpdateDateForBundleID("com.example.a");
    ASSERT_TRUE(updated);
    auto same = store()->bundleIDsWithUpdatesSince(updated->addingTimeInterval(0.9));
    ASSERT_TRUE(same);
    EXPECT_EQ(*same, std::vector<std::string> { "com.example.a" });
    auto later = store()->bundleIDsWithUpdatesSince(updated->addingTimeInterval(1));
    ASSERT_TRUE(later);
    EXPECT_TRUE(later->empty());

    EXPECT_FALSE(store()->lastUpdateDateForBundleID("com.example.none"));
    EXPECT_TRUE(device.systemLog().contains("Could not stat push store for bundle ID: com.example.none"));
}

TEST_F(NotificationStore, MakesTheDiagnosticStores)
{
    auto observer = std::make_shared<RecordingObserver>();
    store()->addObserver(observer, "section7");
    store()->makeTestNotificationStores();
    device.waitUntilIdle();
    EXPECT_TRUE(observer->events().empty());
    auto files = FileManager::contentsOfDirectoryAtPath(KTNotificationStore::storeDirectory());
    ASSERT_TRUE(files);
    EXPECT_EQ(files->size(), 100u);
    auto saved = records("section99");
    ASSERT_EQ(saved.size(), 199u);
    EXPECT_EQ(saved[198][KTNotificationStoreMessageKey].stringValue(), "MESSAGE");
}

TEST_F(NotificationStore, StoreFilesAreBinaryPropertyLists)
{
    saveMessage("inspectable");
    auto data = store()->savedNotificationDataForBundleID("com.example.app");
    ASSERT_TRUE(data);
    EXPECT_TRUE(PropertyList::read(*data));
    EXPECT_EQ(std::string(data->begin(), data->begin() + 6), "bplist");

    std::string command = "plistutil -i '" + storePath("com.example.app.pushstore") + "' 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string printed;
    char chunk[4096];
    while (size_t n = fread(chunk, 1, sizeof chunk, pipe))
        printed.append(chunk, n);
    EXPECT_EQ(pclose(pipe), 0) << printed;
    EXPECT_NE(printed.find("<string>inspectable</string>"), std::string::npos) << printed;
}

} // namespace

namespace {

TEST_F(NotificationStore, ASaveSeesAFileReplacedBehindItsBack)
{
    saveMessage("first");
    auto replacement = KeyedArchive::archivedData(Value(
        Value::Array { Value(Value::Dictionary { { KTNotificationStoreMessageKey, "from elsewhere" } }) }));
    ASSERT_TRUE(replacement);
    ASSERT_TRUE(FileManager::writeAtomically(storePath("com.example.app.pushstore"), *replacement));
    saveMessage("second");
    auto saved = records();
    ASSERT_EQ(saved.size(), 2u);
    EXPECT_EQ(saved[1][KTNotificationStoreMessageKey].stringValue(), "from elsewhere");

    FileManager::removeItemAtPath(storePath("com.example.app.pushstore"));
    saveMessage("third");
    EXPECT_EQ(records().size(), 1u);

    FileManager::removeItemAtPath(KTNotificationStore::storeDirectory());
    saveMessage("fourth");
    EXPECT_EQ(records().size(), 1u) << "a removed store directory is made again";
}

} // namespace
