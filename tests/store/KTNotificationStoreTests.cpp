#include "core/KTInternalInconsistencyException.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/records/LocalNotification.h"
#include "platform/sim/CapturedSystemLog.h"
#include "platform/sim/ManualClock.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "store/KTNotificationStore.h"

#include <csignal>
#include <gmock/gmock.h>
#include <random>
#include <regex>
#include <sys/wait.h>
#include <tessel/Tessel.h>
#include <thread>
#include <unistd.h>

using namespace tessel;

namespace {

class MockObserver : public KTNotificationStoreObserver {
public:
    MOCK_METHOD(void, pushStoreNotificationsDidChange, (), (override));
    MOCK_METHOD(void, pushStoreClearedNotifications, (), (override));
};
using StrictObserver = testing::StrictMock<MockObserver>;

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

    std::string storePath(const std::string& fileName = "com.example.app.pushstore")
    {
        return Path::appendingComponent(KTNotificationStore::storeDirectory(), fileName);
    }

    std::vector<std::string> storeFiles()
    {
        return FileManager::contentsOfDirectoryAtPath(KTNotificationStore::storeDirectory())
            .value_or(std::vector<std::string> { "(unreadable)" });
    }

    SimulatedDevice device;
};

TEST_F(NotificationStore, KeepsTheNewestAndAHundredOlderRecordsWithAMessage)
{
    store()->saveRemoteNotificationWithTitle({}, {}, {}, {}, Value(3), {}, {}, {}, "com.example.app");
    saveMessage("first");
    ASSERT_EQ(records().size(), 1u) << "a record without a message survives only until the next save";

    for (int i = 0; i < 150; ++i) {
        device.clock().advance(1);
        saveMessage("m" + std::to_string(i));
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

struct SaveCase {
    const char* name;
    Value title, message, sound, action, badge;
    bool ringtone;
    // The stored record without its date and type; empty when nothing is stored.
    Value::Dictionary expected;
    bool remote = true;
    Value userInfo = {}, launchImage = {}, category = {};
};

class NotificationStoreSaves : public NotificationStore, public testing::WithParamInterface<SaveCase> { };

TEST_P(NotificationStoreSaves, BuildRecordsFromTheirArguments)
{
    const auto& c = GetParam();
    store()->_saveNotificationWithTitle(c.title, c.message, c.sound, c.action, c.badge, c.userInfo,
        c.launchImage, {}, c.ringtone, c.remote, c.category, "com.example.app");
    auto saved = records();
    EXPECT_EQ(device.systemLog().contains("Ignoring notification with no content."), c.expected.empty());
    if (c.expected.empty()) {
        EXPECT_TRUE(saved.empty());
        return;
    }
    ASSERT_EQ(saved.size(), 1u);
    Value::Dictionary got = saved[0].dictionaryValue();
    EXPECT_TRUE(got[KTNotificationStoreCreationDateKey].isDate());
    EXPECT_EQ(got[KTNotificationStoreNotificationTypeKey],
        Value(c.remote ? kKTNotificationStoreNotificationTypeRemote
                       : kKTNotificationStoreNotificationTypeLocal));
    got.erase(KTNotificationStoreCreationDateKey);
    got.erase(KTNotificationStoreNotificationTypeKey);
    EXPECT_EQ(Value(got), Value(c.expected)) << Value(got).description();
}

Value::Dictionary storedSound(const char* name, bool ringtone)
{
    return { { KTNotificationStoreSoundKey, name }, { KTNotificationStoreSoundIsRingtoneKey, ringtone } };
}

const Value nestedUserInfo(Value::Dictionary { { "k", Value(Value::Array { Value(1), Value() }) } });

const SaveCase saveCases[] = {
    { "TitleOnly", "Title", {}, {}, {}, {}, false, {} },
    { "EmptyStrings", "", "", "", "", {}, false, {} },
    { "BadgeOnly", {}, {}, {}, {}, 0, false, { { KTNotificationStoreBadgeNumberKey, 0 } } },
    { "ActionOnly", {}, {}, {}, "Open", {}, false, { { KTNotificationStoreActionTextKey, "Open" } } },
    { "Everything", "T", "M", {}, "A", 2, false,
        { { KTNotificationStoreTitleKey, "T" }, { KTNotificationStoreMessageKey, "M" },
            { KTNotificationStoreActionTextKey, "A" }, { KTNotificationStoreBadgeNumberKey, 2 } } },
    { "DefaultSoundKeptAsIs", {}, {}, kKTNotificationStoreSoundDefault, {}, {}, false,
        storedSound(kKTNotificationStoreSoundDefault, false) },
    { "RingtoneKeptAsIs", {}, {}, "ringtone:Marimba", {}, {}, true, storedSound("ringtone:Marimba", true) },
    { "UnknownSoundFallsBackToDefault", {}, {}, "../../missing.caf", {}, {}, false,
        storedSound(kKTNotificationStoreSoundDefault, false) },
    // Without its details a local record has no details key.
    { "LocalWithOptionalFields", {}, "m", {}, {}, {}, false,
        { { KTNotificationStoreMessageKey, "m" }, { KTNotificationStoreUserInfoKey, nestedUserInfo },
            { KTNotificationStoreLaunchImageKey, "Launch" }, { KTNotificationStoreCategoryKey, "REPLY" } },
        false, nestedUserInfo, "Launch", "REPLY" },
};

INSTANTIATE_TEST_SUITE_P(Cases, NotificationStoreSaves, testing::ValuesIn(saveCases),
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

    saveMessage("hello", "");
    EXPECT_TRUE(device.systemLog().contains("Ignoring notification because bundleID is nil."));
    EXPECT_TRUE(storeFiles().empty());
}

TEST_F(NotificationStore, ObserversHearOfSuccessfulWritesOnAnotherThread)
{
    auto observer = std::make_shared<StrictObserver>();
    auto other = std::make_shared<StrictObserver>();
    auto offTheTestThread
        = [testThread = std::this_thread::get_id()] { EXPECT_NE(std::this_thread::get_id(), testThread); };
    {
        testing::InSequence inOrder;
        EXPECT_CALL(*observer, pushStoreNotificationsDidChange()).WillOnce(offTheTestThread);
        EXPECT_CALL(*observer, pushStoreClearedNotifications()).WillOnce(offTheTestThread);
    }
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

    // A directory where the file should be makes every write fail: nobody is told.
    FileManager::createDirectoryAtPath(storePath() + "/blocker", true);
    saveMessage("two");
    store()->removeAllNotificationsForBundleID("com.example.app");
    device.waitUntilIdle();
    EXPECT_TRUE(device.systemLog().contains("Error: could not write new list to"));

    store()->removeObserver(observer, "com.example.app");
    FileManager::removeItemAtPath(storePath());
    saveMessage("three");
    device.waitUntilIdle();
    // The store keeps its observers for the process.
    testing::Mock::AllowLeak(other.get());
}

TEST_F(NotificationStore, UniqueIdentifiersFollowTitleMessageAndDate)
{
    auto identifier = [](const Value::Dictionary& record) {
        return KTNotificationStore::uniqueIdentifierForNotification(Value(record));
    };
    Value::Dictionary record { { KTNotificationStoreTitleKey, "T" }, { KTNotificationStoreMessageKey, "M" },
        { KTNotificationStoreCreationDateKey, Date(12.5) } };
    auto first = identifier(record);
    ASSERT_TRUE(first);
    EXPECT_TRUE(std::regex_match(*first, std::regex("[0-9a-f]+:[0-9a-f]+:12\\.500000"))) << *first;
    EXPECT_EQ(identifier(record), first);
    record[KTNotificationStoreMessageKey] = "N";
    EXPECT_NE(identifier(record), first);
    record.erase(KTNotificationStoreTitleKey);
    EXPECT_EQ(identifier(record).value_or("").substr(0, 2), "0:");
    record.erase(KTNotificationStoreCreationDateKey);
    EXPECT_FALSE(identifier(record));
}

TEST_F(NotificationStore, UnreadableStoresAreReplacedByTheNewRecord)
{
    auto archivedDictionary = KeyedArchive::archivedData(Value(Value::Dictionary { { "a", 1 } }));
    auto valid = KeyedArchive::archivedData(Value(Value::Array { Value(Value::Dictionary { { "m", 1 } }) }));
    ASSERT_TRUE(archivedDictionary && valid);
    Bytes truncated(valid->begin(), valid->begin() + static_cast<long>(valid->size() / 2));
    store(); // creates the store directory
    for (bool isArchive : { false, true }) {
        device.systemLog().clear();
        ASSERT_TRUE(FileManager::writeAtomically(storePath(), isArchive ? *archivedDictionary : truncated));
        EXPECT_TRUE(store()->savedNotificationsForBundleID("com.example.app").isNull());
        EXPECT_EQ(device.systemLog().contains(
                      "Caught exception while unarchiving notifications for \"com.example.app\""),
            !isArchive);
        saveMessage("fresh");
        EXPECT_TRUE(device.systemLog().contains(isArchive
                ? "Error: could not load notification data store at"
                : "Error: exception caught loading notification data store at"));
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
    EXPECT_EQ(storeFiles(),
        (std::vector<std::string> { "....outside.pushstore", "...pushstore", "ab.pushstore",
            "etcpasswd.pushstore", "x......y.pushstore" }));
    EXPECT_FALSE(FileManager::fileExistsAtPath(
        Path::appendingComponent(device.libraryDirectory(), "Vantry/y.pushstore")));
}

TEST_F(NotificationStore, ASaveSeesAFileReplacedBehindItsBack)
{
    saveMessage("first");
    auto replacement = KeyedArchive::archivedData(Value(
        Value::Array { Value(Value::Dictionary { { KTNotificationStoreMessageKey, "from elsewhere" } }) }));
    ASSERT_TRUE(replacement && FileManager::writeAtomically(storePath(), *replacement));
    saveMessage("second");
    auto saved = records();
    ASSERT_EQ(saved.size(), 2u);
    EXPECT_EQ(saved[1][KTNotificationStoreMessageKey].stringValue(), "from elsewhere");

    FileManager::removeItemAtPath(storePath());
    saveMessage("third");
    EXPECT_EQ(records().size(), 1u);

    FileManager::removeItemAtPath(KTNotificationStore::storeDirectory());
    saveMessage("fourth");
    EXPECT_EQ(records().size(), 1u) << "a removed store directory is made again";
}

// Local notifications

class LocalNotificationRecords : public NotificationStore {
protected:
    void SetUp() override
    {
        NotificationStore::SetUp();
        ASSERT_TRUE(device.applicationWorkspace().install({ .identifier = "com.example.alarm",
            .strings = { { "en",
                { { "Localizable", { { "WAKE_UP", "Time to wake up" }, { "SNOOZE", "Snooze" } } } } } } }));
    }

    std::shared_ptr<LocalNotification> notification(const std::string& body)
    {
        auto made = std::make_shared<LocalNotification>();
        made->setFireDate(Date(1000));
        made->setAlertBody(body);
        return made;
    }

    Value alarms() { return store()->savedNotificationsForBundleID("com.example.alarm"); }
};

TEST_F(LocalNotificationRecords, FiredNotificationsAreLocalizedAndCarryThemselves)
{
    auto alarm = notification("WAKE_UP");
    alarm->setAlertTitle("UNTRANSLATED_TITLE");
    alarm->setAlertAction("SNOOZE");
    alarm->setSoundName(LocalNotificationDefaultSoundName);
    alarm->setApplicationIconBadgeNumber(4);
    alarm->setUserInfo({ { "alarm", 7 } });
    alarm->setCategory("ALARM");
    store()->saveLocalNotification(alarm, "com.example.alarm");
    // Nothing to show: dropped like any contentless notification.
    store()->saveLocalNotification(notification(""), "com.example.alarm");
    store()->saveLocalNotification(nullptr, "com.example.alarm");

    auto saved = alarms();
    ASSERT_EQ(saved.length(), 1u);
    auto details = KTSLocalNotificationWhitelistedUnarchiveFromData(
        saved.at(0)[KTNotificationStoreLocalNotificationDataKey].dataValue());
    ASSERT_TRUE(details);
    EXPECT_TRUE(details->isEqual(*alarm));
    // Shown as any record, apart from its date and the notification it came from.
    auto shown = saved.at(0).dictionaryValue();
    shown.erase(KTNotificationStoreCreationDateKey);
    shown.erase(KTNotificationStoreLocalNotificationDataKey);
    EXPECT_EQ(Value(shown),
        Value(Value::Dictionary { { KTNotificationStoreMessageKey, "Time to wake up" },
            // A missing key reads as itself.
            { KTNotificationStoreTitleKey, "UNTRANSLATED_TITLE" },
            { KTNotificationStoreActionTextKey, "Snooze" },
            { KTNotificationStoreSoundKey, kKTNotificationStoreSoundDefault },
            { KTNotificationStoreSoundIsRingtoneKey, false }, { KTNotificationStoreBadgeNumberKey, 4 },
            { KTNotificationStoreUserInfoKey, Value::Dictionary { { "alarm", 7 } } },
            { KTNotificationStoreCategoryKey, "ALARM" },
            { KTNotificationStoreNotificationTypeKey, kKTNotificationStoreNotificationTypeLocal } }));
}

TEST_F(LocalNotificationRecords, RemovingLocalRecordsLeavesTheOthers)
{
    auto first = notification("first");
    auto second = notification("second");
    store()->saveLocalNotification(first, "com.example.alarm");
    store()->saveLocalNotification(second, "com.example.alarm");
    saveMessage("remote", "com.example.alarm");

    store()->removeLocalNotification(first->copy(), "com.example.alarm");
    auto saved = alarms();
    ASSERT_EQ(saved.length(), 2u);
    EXPECT_EQ(saved.at(0)[KTNotificationStoreMessageKey], Value("remote"));
    EXPECT_EQ(saved.at(1)[KTNotificationStoreMessageKey], Value("second"));

    store()->removeLocalNotification(nullptr, "com.example.alarm");
    EXPECT_EQ(alarms().length(), 2u);
    store()->removeAllLocalNotificationsForBundleID("com.example.alarm");
    EXPECT_EQ(alarms(), Value(Value::Array { saved.at(0) }));
}

// Migration of the old property-list stores

const std::string prefix = "+[KTNotificationStore migratePushStore] ";

class PushStoreMigration : public NotificationStore {
protected:
    void SetUp() override
    {
        NotificationStore::SetUp();
        FileManager::createDirectoryAtPath(directory, true);
    }

    void writePlist(const std::string& name, const Value& root, PropertyList::Format format)
    {
        auto bytes = PropertyList::data(root, format);
        ASSERT_TRUE(bytes && FileManager::writeAtomically(storePath(name), *bytes));
    }

    std::string directory = KTNotificationStore::storeDirectory();
};

Value record(const char* message)
{
    return Value(Value::Dictionary { { KTNotificationStoreMessageKey, message },
        { KTNotificationStoreCreationDateKey, Date(100) }, { "AppNotificationBadgeNumber", -2 } });
}

TEST_F(PushStoreMigration, ConvertsListsReplacingNewFilesAndDeletesEmptyOnes)
{
    Value list(Value::Array { record("new"), record("old") });
    writePlist("com.xml.vysnote", list, PropertyList::Format::Xml);
    writePlist("com.both.vysnote", list, PropertyList::Format::Binary);
    ASSERT_TRUE(FileManager::writeAtomically(storePath("com.both.pushstore"), Bytes { 'x' }));
    writePlist("com.empty.vysnote", Value(Value::Array {}), PropertyList::Format::Binary);

    KTNotificationStore::migratePushStore();

    EXPECT_EQ(storeFiles(), (std::vector<std::string> { "com.both.pushstore", "com.xml.pushstore" }));
    EXPECT_EQ(store()->savedNotificationsForBundleID("com.both"), list);
    EXPECT_EQ(device.systemLog().count(prefix + ":: Successfully migrated file!"), 3u);
    EXPECT_TRUE(device.systemLog().contains(prefix + "Migrating \"com.xml.vysnote\"..."));
    EXPECT_EQ(store()->savedNotificationsForBundleID("com.xml"), list);
}

TEST_F(PushStoreMigration, FilesThatCannotBeConvertedAreMovedAside)
{
    writePlist("com.dict.vysnote", Value(Value::Dictionary { { "a", 1 } }), PropertyList::Format::Xml);
    ASSERT_TRUE(FileManager::writeAtomically(storePath("com.garbage.vysnote"), Bytes { 'n', 'o', 'p', 'e' }));
    FileManager::createDirectoryAtPath(storePath("com.unreadable.vysnote"), false);

    KTNotificationStore::migratePushStore();

    auto failures = storePath("VYSNoteMigrationFailures");
    EXPECT_EQ(storeFiles(), std::vector<std::string> { "VYSNoteMigrationFailures" });
    EXPECT_EQ(FileManager::contentsOfDirectoryAtPath(failures),
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
    ASSERT_TRUE(FileManager::writeAtomically(storePath("VYSNoteMigrationFailures"), Bytes { 'f' }));
    KTNotificationStore::migratePushStore();
    EXPECT_TRUE(FileManager::fileExistsAtPath(storePath("com.dict.vysnote")));
    EXPECT_TRUE(
        device.systemLog().contains(prefix + "Unable to create new directory for failed migrations ("));
    EXPECT_TRUE(device.systemLog().contains("Please file a bug and attach the contents of: " + directory));
}

// Crash safety

// Starts the saver and returns once its first save is on disk.
pid_t startSaver(const std::string& library)
{
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    pid_t child = fork();
    if (child == 0) {
        dup2(ready[1], STDOUT_FILENO);
        close(ready[0]);
        setenv("TESSEL_LIBRARY_DIR", library.c_str(), 1);
        std::string program = std::string(TESSEL_HELPER_DIR) + "/tessel_store_saver";
        execl(program.c_str(), program.c_str(), nullptr);
        _exit(127);
    }
    close(ready[1]);
    char byte;
    bool started = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    return started ? child : -1;
}

TEST_F(NotificationStore, AKilledSaveLeavesAWholeStore)
{
    auto path = storePath("com.example.crash.pushstore");
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> delay(0, 20000);
    for (int round = 0; round < 12; ++round) {
        pid_t child = startSaver(device.libraryDirectory());
        ASSERT_GT(child, 0);
        // A random moment inside the save loop: killing it there is the point.
        usleep(static_cast<useconds_t>(delay(random)));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));

        SCOPED_TRACE("round " + std::to_string(round));
        auto data = FileManager::contentsAtPath(path);
        ASSERT_TRUE(data);
        std::string error;
        auto list = KeyedArchive::unarchive(*data, &error);
        ASSERT_TRUE(list && list->isArray()) << error;
        ASSERT_GE(list->length(), 1u);
        ASSERT_LE(list->length(), 101u);
        // Every round starts again at 0, so the newest badge only tells the file is whole.
        EXPECT_GE(list->at(0)[KTNotificationStoreBadgeNumberKey].integerValue(), 0);
    }
    // Whatever temporary files the kills left are gone once a store starts.
    FileManager::writeAtomically(path + ".leftover", Bytes { 1 });
    ASSERT_TRUE(FileManager::writeAtomically(
        storePath(".com.example.crash.pushstore.0123456789abcdef.tmp"), Bytes { 1 }));
    store();
    EXPECT_EQ(storeFiles(),
        (std::vector<std::string> { "com.example.crash.pushstore", "com.example.crash.pushstore.leftover" }));
}

} // namespace
