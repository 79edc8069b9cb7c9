#include "platform/records/LocalNotification.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"
#include "store/KTNotificationStore.h"

#include <gtest/gtest.h>
#include <tessel/Tessel.h>

using namespace tessel;

namespace {

class LocalNotificationRecords : public testing::Test {
protected:
    void SetUp() override
    {
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

    Value records() { return store->savedNotificationsForBundleID("com.example.alarm"); }

    SimulatedDevice device;
    std::shared_ptr<KTNotificationStore> store = KTNotificationStore::sharedInstance();
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
    store->saveLocalNotification(alarm, "com.example.alarm");

    auto saved = records();
    ASSERT_EQ(saved.length(), 1u);
    const Value& record = saved.at(0);
    EXPECT_EQ(record[KTNotificationStoreMessageKey], Value("Time to wake up"));
    EXPECT_EQ(record[KTNotificationStoreTitleKey], Value("UNTRANSLATED_TITLE"))
        << "a missing key reads as itself";
    EXPECT_EQ(record[KTNotificationStoreActionTextKey], Value("Snooze"));
    EXPECT_EQ(record[KTNotificationStoreSoundKey], Value(kKTNotificationStoreSoundDefault));
    EXPECT_EQ(record[KTNotificationStoreBadgeNumberKey], Value(4));
    EXPECT_EQ(record[KTNotificationStoreUserInfoKey], Value(Value::Dictionary { { "alarm", 7 } }));
    EXPECT_EQ(record[KTNotificationStoreCategoryKey], Value("ALARM"));
    EXPECT_EQ(
        record[KTNotificationStoreNotificationTypeKey], Value(kKTNotificationStoreNotificationTypeLocal));
    auto details = KTSLocalNotificationWhitelistedUnarchiveFromData(
        record[KTNotificationStoreLocalNotificationDataKey].dataValue());
    ASSERT_TRUE(details);
    EXPECT_TRUE(details->isEqual(*alarm));
}

TEST_F(LocalNotificationRecords, OptionalPartsStayOut)
{
    auto quiet = notification("WAKE_UP");
    quiet->setAlertAction("SNOOZE");
    quiet->setHasAction(false);
    store->saveLocalNotification(quiet, "com.example.alarm");
    auto saved = records();
    ASSERT_EQ(saved.length(), 1u);
    for (const char* key : { KTNotificationStoreActionTextKey, KTNotificationStoreBadgeNumberKey,
             KTNotificationStoreSoundKey, KTNotificationStoreUserInfoKey, KTNotificationStoreCategoryKey,
             KTNotificationStoreLaunchImageKey })
        EXPECT_FALSE(saved.at(0).contains(key)) << key;

    // Nothing to show: dropped like any contentless notification.
    store->saveLocalNotification(notification(""), "com.example.alarm");
    EXPECT_EQ(records().length(), 1u);
    store->saveLocalNotification(nullptr, "com.example.alarm");
    EXPECT_EQ(records().length(), 1u);
}

TEST_F(LocalNotificationRecords, RemovingOneLeavesTheOthers)
{
    auto first = notification("first");
    auto second = notification("second");
    store->saveLocalNotification(first, "com.example.alarm");
    store->saveLocalNotification(second, "com.example.alarm");
    store->saveRemoteNotificationWithTitle({}, "remote", {}, {}, {}, {}, {}, {}, "com.example.alarm");

    auto equalToFirst = first->copy();
    store->removeLocalNotification(equalToFirst, "com.example.alarm");
    auto saved = records();
    ASSERT_EQ(saved.length(), 2u);
    EXPECT_EQ(saved.at(0)[KTNotificationStoreMessageKey], Value("remote"));
    EXPECT_EQ(saved.at(1)[KTNotificationStoreMessageKey], Value("second"));

    store->removeLocalNotification(nullptr, "com.example.alarm");
    EXPECT_EQ(records().length(), 2u);
}

} // namespace
