#include "platform/applications/ApplicationDataStore.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/archive/PropertyList.h"
#include "platform/push/PushEnvironment.h"
#include "platform/sim/SimulatedDevice.h"
#include "remote/KTRemoteNotificationClient.h"

#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <regex>
#include <set>

using namespace tessel;

namespace {

constexpr const char* bundleIdentifier = "com.example.app";

// Writes whatever fields it is given under the record's class name, as a
// damaged or foreign writer might.
class RawRecord : public Archivable {
public:
    RawRecord(Value::Dictionary fields, std::string name = KTRemoteNotificationClient::archivedClassName)
        : fields(std::move(fields))
        , name(std::move(name))
    {
    }
    std::string className() const override { return name; }
    void encodeWithCoder(KeyedArchiver& coder) const override
    {
        for (auto& [key, value] : fields)
            coder.encodeObject(value, key);
    }

    Value::Dictionary fields;
    std::string name;
};

class RemoteNotificationClientTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        KTRemoteNotificationClient::registerArchivableClasses();
        KeyedArchive::registerClass("OtherRecord", [](KeyedUnarchiver& coder) {
            return std::make_shared<RawRecord>(
                Value::Dictionary { { "VYBundleId", coder.decodeObject("VYBundleId") } }, "OtherRecord");
        });
    }

    std::shared_ptr<ApplicationDataStore> store()
    {
        return ApplicationDataStore::storeForApplication(bundleIdentifier);
    }

    // Stores fields as a record archive, with the bundle identifier unless
    // they name one, and reads the record back.
    std::shared_ptr<KTRemoteNotificationClient> loadRaw(Value::Dictionary fields)
    {
        fields.try_emplace("VYBundleId", bundleIdentifier);
        EXPECT_TRUE(store()->setArchivedObject(
            std::make_shared<RawRecord>(std::move(fields)), KTRemoteNotificationClient::dataStoreKey));
        return KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier);
    }

    // The fields of the archived record, as a property-list reader sees them.
    static Value::Dictionary archivedFields(const KTRemoteNotificationClient& client)
    {
        auto bytes = KeyedArchive::archivedData(std::make_shared<KTRemoteNotificationClient>(client));
        EXPECT_TRUE(bytes);
        auto list = PropertyList::read(bytes.value_or(Bytes {}));
        EXPECT_TRUE(list);
        return list.value_or(Value())[KeyedArchive::rootKey].dictionaryValue();
    }

    SimulatedDevice device;
};

// Everything a record keeps but its identifiers.
struct Fields {
    std::optional<std::string> environment;
    bool wantsPush = false;
    std::optional<Bytes> token;
    std::optional<Date> missingDate;
    bool backgroundDeliveryDisabled = false;
    int64_t day = 0, count = 0;
    bool operator==(const Fields&) const = default;
};

Fields fieldsOf(const KTRemoteNotificationClient& c)
{
    return { c.environment(), c.doesWantPush(), c.lastKnownDeviceToken(), c.missingDate(),
        c.backgroundDeliveryDisabled(), c.dayOfLastGazettePush(), c.dailyCountOfGazettePushes() };
}

bool isUUIDString(const std::string& text)
{
    static const std::regex pattern("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    return std::regex_match(text, pattern);
}

TEST_F(RemoteNotificationClientTest, EveryRecordGetsItsOwnRandomTokenIdentifier)
{
    std::set<std::string> identifiers;
    for (int i = 0; i < 64; ++i) {
        KTRemoteNotificationClient client(bundleIdentifier);
        EXPECT_TRUE(isUUIDString(client.tokenIdentifier())) << client.tokenIdentifier();
        identifiers.insert(client.tokenIdentifier());
    }
    // A stored record without a usable one gets a new one too.
    for (Value stored : { Value(5), Value("") }) {
        auto loaded = loadRaw({ { "VYTokenId", stored } });
        ASSERT_TRUE(loaded);
        EXPECT_TRUE(isUUIDString(loaded->tokenIdentifier())) << loaded->tokenIdentifier();
        identifiers.insert(loaded->tokenIdentifier());
    }
    EXPECT_EQ(identifiers.size(), 66u);
}

TEST_F(RemoteNotificationClientTest, OnlyTheFourEnvironmentNamesInAnyCaseBecomeTheirConstant)
{
    const std::pair<std::optional<std::string>, const char*> cases[]
        = { { "production", PushEnvironmentProduction }, { "Development", PushEnvironmentDevelopment },
              { "dEmO", PushEnvironmentDemo }, { "QA2", PushEnvironmentQA2 }, { "sandbox", nullptr },
              { "", nullptr }, { "production ", nullptr }, { "prod", nullptr }, { "d\xC3\xA9mo", nullptr },
              { std::nullopt, nullptr } };
    for (auto& [given, name] : cases) {
        auto expected = name ? std::optional<std::string>(name) : std::nullopt;
        EXPECT_EQ(KTRemoteNotificationClient::validEnvironmentFromEnvironment(given), expected);
        KTRemoteNotificationClient client(bundleIdentifier);
        client.setEnvironment(given);
        EXPECT_EQ(client.environment(), expected) << given.value_or("(null)");
    }
}

// Each stored field is read on its own; one of the wrong kind reads as absent.
// The wants-push flag wins when it is a boolean; older records have only the
// enabled types, of which the low four bits count.
TEST_F(RemoteNotificationClientTest, StoredFieldsDecodeByKind)
{
    constexpr auto lowest = std::numeric_limits<int64_t>::min();
    const std::pair<Value::Dictionary, Fields> cases[] = {
        { {}, {} },
        { { { "VYEnvironment", "PRODUCTION" } }, { .environment = PushEnvironmentProduction } },
        { { { "VYEnvironment", Bytes { 'q', 'a', '2' } } }, {} },
        { { { "VYWantsPushKey", true } }, { .wantsPush = true } },
        { { { "VYWantsPushKey", 1 } }, {} },
        { { { "VYAppEnabledTypes", 4 } }, { .wantsPush = true } },
        { { { "VYAppEnabledTypes", 8 } }, { .wantsPush = true } },
        { { { "VYAppEnabledTypes", 16 } }, {} },
        { { { "VYAppEnabledTypes", "4" } }, {} },
        { { { "VYAppEnabledTypes", int64_t(1) << 40 | 4 } }, {} },
        { { { "VYWantsPushKey", false }, { "VYAppEnabledTypes", 7 } }, {} },
        { { { "VYWantsPushKey", true }, { "VYAppEnabledTypes", 0 } }, { .wantsPush = true } },
        { { { "VYWantsPushKey", "YES" }, { "VYAppEnabledTypes", 4 } }, { .wantsPush = true } },
        { { { "VYLastKnownDeviceToken", Bytes { 0, 0xff } } }, { .token = Bytes { 0, 0xff } } },
        { { { "VYLastKnownDeviceToken", "0a0b" } }, {} },
        { { { "VYMissingDate", Date(12.5) } }, { .missingDate = Date(12.5) } },
        { { { "VYMissingDate", 5.0 } }, {} },
        { { { "VYBackgroundDeliveryDisabled", true } }, { .backgroundDeliveryDisabled = true } },
        { { { "VYBackgroundDeliveryDisabled", "YES" } }, {} },
        { { { "VYDayOfLastGazettePush", -3 } }, { .day = -3 } },
        { { { "VYDayOfLastGazettePush", "7" } }, {} },
        { { { "VYDailyCountOfGazettePushes", 3 } }, { .count = 3 } },
        // Negative counts read as zero.
        { { { "VYDailyCountOfGazettePushes", -1 } }, {} },
        { { { "VYDailyCountOfGazettePushes", lowest } }, {} },
        { { { "VYDailyCountOfGazettePushes", Value::Dictionary { { "n", 1 } } } }, {} },
    };
    for (auto& [fields, expected] : cases) {
        auto loaded = loadRaw(fields);
        ASSERT_TRUE(loaded) << Value(fields).description();
        EXPECT_TRUE(fieldsOf(*loaded) == expected)
            << Value(fields).description() << " read as " << loaded->description();
    }
}

TEST_F(RemoteNotificationClientTest, OnlySetOptionalFieldsAreArchivedEachInItsOwnKind)
{
    KTRemoteNotificationClient fresh(bundleIdentifier);
    fresh.setPushDisabledReason("never archived");
    std::set<std::string> keys;
    for (auto& [key, value] : archivedFields(fresh))
        keys.insert(key);
    EXPECT_EQ(keys,
        (std::set<std::string> { KeyedArchive::objectMarker, "VYBundleId", "VYTokenId", "VYWantsPushKey",
            "VYLastKnownDeviceToken", "VYMissingDate" }));

    KTRemoteNotificationClient client(bundleIdentifier);
    client.setEnvironment(PushEnvironmentDemo);
    client.setWantsPush(true);
    client.setLastKnownDeviceToken(Bytes { 1, 2 });
    client.setMissingDate(Date(5));
    client.setBackgroundDeliveryDisabled(true);
    client.setDailyCountOfGazettePushes(1);
    auto fields = archivedFields(client);
    EXPECT_EQ(fields["VYEnvironment"], Value(PushEnvironmentDemo));
    EXPECT_EQ(fields["VYDayOfLastGazettePush"], Value(0)) << "the day and the count go together";
    EXPECT_EQ(fields["VYDailyCountOfGazettePushes"], Value(1));
    EXPECT_EQ(fields["VYWantsPushKey"].type(), Value::Type::Boolean);
    EXPECT_EQ(fields["VYBackgroundDeliveryDisabled"].type(), Value::Type::Boolean);
    EXPECT_EQ(fields["VYLastKnownDeviceToken"].type(), Value::Type::Data);
    EXPECT_EQ(fields["VYMissingDate"].type(), Value::Type::Date);
}

TEST_F(RemoteNotificationClientTest, StoreRoundTripKeepsEveryFieldButTheDisabledReason)
{
    KTRemoteNotificationClient client(bundleIdentifier);
    client.setEnvironment(PushEnvironmentQA2);
    client.setLastKnownDeviceToken(Bytes { 0, 0xff, 7 });
    client.setMissingDate(Date(700000000.125));
    client.setBackgroundDeliveryDisabled(true);
    client.setDayOfLastGazettePush(-3);
    client.setDailyCountOfGazettePushes(int64_t(1) << 40);
    client.setWantsPush(true);
    client.setPushDisabledReason("over the daily limit");
    ASSERT_TRUE(client.saveToDataStore());

    auto loaded = KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->bundleIdentifier(), client.bundleIdentifier());
    EXPECT_EQ(loaded->tokenIdentifier(), client.tokenIdentifier());
    EXPECT_EQ(fieldsOf(*loaded), fieldsOf(client));
    EXPECT_FALSE(loaded->pushDisabledReason());

    // Flushing the token and the counters reaches the store too.
    loaded->setLastKnownDeviceToken(std::nullopt);
    loaded->setBackgroundDeliveryDisabled(false);
    loaded->setDayOfLastGazettePush(0);
    loaded->setDailyCountOfGazettePushes(0);
    ASSERT_TRUE(loaded->saveToDataStore());
    auto reloaded = KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier);
    ASSERT_TRUE(reloaded);
    EXPECT_TRUE(reloaded->isEqual(*loaded));
    EXPECT_FALSE(reloaded->lastKnownDeviceToken());
}

// Without a usable bundle identifier, or with anything but a record under the
// key, there is no record at all.
TEST_F(RemoteNotificationClientTest, ForeignValuesUnderTheKeyReadAsNoRecord)
{
    auto record = [](Value bundle) {
        Value::Dictionary fields { { "VYTokenId", "9b2c6a1e-0000-4000-8000-000000000000" },
            { "VYEnvironment", PushEnvironmentProduction }, { "VYWantsPushKey", true } };
        if (!bundle.isNull())
            fields["VYBundleId"] = bundle;
        return Value(std::make_shared<RawRecord>(fields));
    };
    const std::pair<const char*, Value> cases[] = {
        { "NoBundleIdentifier", record(Value()) },
        { "EmptyBundleIdentifier", record("") },
        { "NumberBundleIdentifier", record(7) },
        { "OtherClass",
            std::make_shared<RawRecord>(
                Value::Dictionary { { "VYBundleId", bundleIdentifier } }, "OtherRecord") },
        { "String", bundleIdentifier },
        { "RecordInsideAnArray",
            Value::Array { std::make_shared<KTRemoteNotificationClient>(bundleIdentifier) } },
        { "RecordHoldingAnotherClass",
            std::make_shared<RawRecord>(Value::Dictionary { { "VYBundleId", bundleIdentifier },
                { "VYLastKnownDeviceToken",
                    std::make_shared<RawRecord>(Value::Dictionary {}, "OtherRecord") } }) },
    };
    for (auto& [name, stored] : cases) {
        ASSERT_TRUE(store()->setArchivedObject(stored, KTRemoteNotificationClient::dataStoreKey)) << name;
        EXPECT_FALSE(KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier)) << name;
    }
    ASSERT_TRUE(store()->setObject(
        Value::Dictionary { { "VYBundleId", bundleIdentifier } }, KTRemoteNotificationClient::dataStoreKey));
    EXPECT_FALSE(KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier)) << "a plain property list";
}

} // namespace
