#include "platform/applications/ApplicationDataStore.h"
#include "platform/applications/ApplicationDataStoreDatabase.h"
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
#include <ostream>
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

    // Stores fields as a record archive and reads the record back.
    std::shared_ptr<KTRemoteNotificationClient> loadRaw(Value::Dictionary fields)
    {
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

bool isUUIDString(const std::string& text)
{
    static const std::regex pattern("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    return std::regex_match(text, pattern);
}

TEST_F(RemoteNotificationClientTest, NewRecordsAreEmptyWithTheirOwnRandomTokenIdentifier)
{
    std::set<std::string> identifiers;
    for (int i = 0; i < 64; ++i) {
        KTRemoteNotificationClient client(bundleIdentifier);
        EXPECT_TRUE(isUUIDString(client.tokenIdentifier())) << client.tokenIdentifier();
        identifiers.insert(client.tokenIdentifier());
    }
    EXPECT_EQ(identifiers.size(), 64u);
}

struct EnvironmentCase {
    const char* name;
    std::optional<std::string> given;
    const char* expected; // null: no environment
};
void PrintTo(const EnvironmentCase& test, std::ostream* out) { *out << test.name; }

class RemoteNotificationClientEnvironmentTest : public RemoteNotificationClientTest,
                                                public ::testing::WithParamInterface<EnvironmentCase> { };

TEST_P(RemoteNotificationClientEnvironmentTest, OnlyTheFourNamesInAnyCaseBecomeTheirConstant)
{
    auto& c = GetParam();
    auto expected = c.expected ? std::optional<std::string>(c.expected) : std::nullopt;
    EXPECT_EQ(KTRemoteNotificationClient::validEnvironmentFromEnvironment(c.given), expected);

    KTRemoteNotificationClient client(bundleIdentifier);
    client.setEnvironment(c.given);
    EXPECT_EQ(client.environment(), expected);

    Value::Dictionary fields { { "VYBundleId", bundleIdentifier } };
    if (c.given)
        fields["VYEnvironment"] = *c.given;
    auto loaded = loadRaw(fields);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->environment(), expected);
}

INSTANTIATE_TEST_SUITE_P(Names, RemoteNotificationClientEnvironmentTest,
    ::testing::Values(EnvironmentCase { "Production", "production", PushEnvironmentProduction },
        EnvironmentCase { "UpperCaseProduction", "PRODUCTION", PushEnvironmentProduction },
        EnvironmentCase { "MixedCaseDevelopment", "Development", PushEnvironmentDevelopment },
        EnvironmentCase { "Demo", "dEmO", PushEnvironmentDemo },
        EnvironmentCase { "UpperCaseQA2", "QA2", PushEnvironmentQA2 },
        EnvironmentCase { "Unknown", "sandbox", nullptr }, EnvironmentCase { "Empty", "", nullptr },
        EnvironmentCase { "TrailingSpace", "production ", nullptr },
        EnvironmentCase { "Prefix", "prod", nullptr }, EnvironmentCase { "NonAscii", "d\xC3\xA9mo", nullptr },
        EnvironmentCase { "Null", std::nullopt, nullptr }),
    [](const auto& info) { return info.param.name; });

struct WantsPushCase {
    const char* name;
    Value::Dictionary fields;
    bool expected;
};
void PrintTo(const WantsPushCase& test, std::ostream* out) { *out << test.name; }

class RemoteNotificationClientWantsPushTest : public RemoteNotificationClientTest,
                                              public ::testing::WithParamInterface<WantsPushCase> { };

TEST_P(RemoteNotificationClientWantsPushTest, FlagOrElseLowFourEnabledTypeBits)
{
    auto fields = GetParam().fields;
    fields["VYBundleId"] = bundleIdentifier;
    auto loaded = loadRaw(fields);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->doesWantPush(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Archives, RemoteNotificationClientWantsPushTest,
    ::testing::Values(WantsPushCase { "TypeAboveLowFour", { { "VYAppEnabledTypes", 16 } }, false },
        WantsPushCase { "AlertType", { { "VYAppEnabledTypes", 4 } }, true },
        WantsPushCase { "FourthBit", { { "VYAppEnabledTypes", 8 } }, true },
        WantsPushCase { "LowAndHighBits", { { "VYAppEnabledTypes", 0x11 } }, true },
        WantsPushCase { "Neither", {}, false },
        WantsPushCase { "FlagFalseWins", { { "VYWantsPushKey", false }, { "VYAppEnabledTypes", 7 } }, false },
        WantsPushCase { "FlagTrueWins", { { "VYWantsPushKey", true }, { "VYAppEnabledTypes", 0 } }, true },
        WantsPushCase { "FlagNotBoolean", { { "VYWantsPushKey", "YES" }, { "VYAppEnabledTypes", 4 } }, true },
        WantsPushCase { "TypesNotInteger", { { "VYAppEnabledTypes", "4" } }, false },
        WantsPushCase { "TypesBeyond32Bits", { { "VYAppEnabledTypes", int64_t(1) << 40 | 4 } }, false }),
    [](const auto& info) { return info.param.name; });

struct KeysCase {
    const char* name;
    std::function<void(KTRemoteNotificationClient&)> change;
    std::set<std::string> extraKeys;
};
void PrintTo(const KeysCase& test, std::ostream* out) { *out << test.name; }

class RemoteNotificationClientArchivedKeysTest : public RemoteNotificationClientTest,
                                                 public ::testing::WithParamInterface<KeysCase> { };

TEST_P(RemoteNotificationClientArchivedKeysTest, OptionalKeysAppearOnlyWhenSet)
{
    KTRemoteNotificationClient client(bundleIdentifier);
    GetParam().change(client);
    std::set<std::string> expected { KeyedArchive::objectMarker, "VYBundleId", "VYTokenId", "VYWantsPushKey",
        "VYLastKnownDeviceToken", "VYMissingDate" };
    expected.insert(GetParam().extraKeys.begin(), GetParam().extraKeys.end());
    std::set<std::string> keys;
    for (auto& [key, value] : archivedFields(client))
        keys.insert(key);
    EXPECT_EQ(keys, expected);
}

INSTANTIATE_TEST_SUITE_P(Fields, RemoteNotificationClientArchivedKeysTest,
    ::testing::Values(KeysCase { "Fresh", [](auto&) {}, {} },
        KeysCase { "ReasonIsNeverArchived", [](auto& c) { c.setPushDisabledReason("throttled"); }, {} },
        KeysCase {
            "Environment", [](auto& c) { c.setEnvironment(PushEnvironmentDemo); }, { "VYEnvironment" } },
        KeysCase { "BackgroundDeliveryDisabled", [](auto& c) { c.setBackgroundDeliveryDisabled(true); },
            { "VYBackgroundDeliveryDisabled" } },
        KeysCase { "DayAlone", [](auto& c) { c.setDayOfLastGazettePush(-2); },
            { "VYDayOfLastGazettePush", "VYDailyCountOfGazettePushes" } },
        KeysCase { "CountAlone", [](auto& c) { c.setDailyCountOfGazettePushes(1); },
            { "VYDayOfLastGazettePush", "VYDailyCountOfGazettePushes" } }),
    [](const auto& info) { return info.param.name; });

TEST_F(RemoteNotificationClientTest, ArchivedValuesHaveTheirOwnKinds)
{
    KTRemoteNotificationClient client(bundleIdentifier);
    client.setWantsPush(true);
    client.setLastKnownDeviceToken(Bytes { 1, 2 });
    client.setMissingDate(Date(5));
    client.setBackgroundDeliveryDisabled(true);
    client.setDayOfLastGazettePush(19000);
    auto fields = archivedFields(client);
    EXPECT_EQ(fields["VYWantsPushKey"].type(), Value::Type::Boolean);
    EXPECT_EQ(fields["VYBackgroundDeliveryDisabled"].type(), Value::Type::Boolean);
    EXPECT_EQ(fields["VYLastKnownDeviceToken"].type(), Value::Type::Data);
    EXPECT_EQ(fields["VYMissingDate"].type(), Value::Type::Date);
    EXPECT_EQ(fields["VYDayOfLastGazettePush"], Value(19000));
    EXPECT_EQ(fields["VYDailyCountOfGazettePushes"], Value(0));
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
    EXPECT_EQ(loaded->environment(), std::optional<std::string>(PushEnvironmentQA2));
    EXPECT_EQ(loaded->lastKnownDeviceToken(), (Bytes { 0, 0xff, 7 }));
    EXPECT_EQ(loaded->missingDate(), Date(700000000.125));
    EXPECT_TRUE(loaded->backgroundDeliveryDisabled());
    EXPECT_EQ(loaded->dayOfLastGazettePush(), -3);
    EXPECT_EQ(loaded->dailyCountOfGazettePushes(), int64_t(1) << 40);
    EXPECT_TRUE(loaded->doesWantPush());
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

TEST_F(RemoteNotificationClientTest, EachApplicationHasItsOwnRecord)
{
    KTRemoteNotificationClient first("com.example.first");
    KTRemoteNotificationClient second("com.example.second");
    first.setEnvironment(PushEnvironmentProduction);
    second.setEnvironment(PushEnvironmentDevelopment);
    ASSERT_TRUE(first.saveToDataStore());
    ASSERT_TRUE(second.saveToDataStore());
    EXPECT_TRUE(KTRemoteNotificationClient::loadFromDataStore("com.example.first")->isEqual(first));
    EXPECT_TRUE(KTRemoteNotificationClient::loadFromDataStore("com.example.second")->isEqual(second));
    EXPECT_FALSE(KTRemoteNotificationClient::loadFromDataStore("com.example.third"));
    EXPECT_FALSE(KTRemoteNotificationClient::loadFromDataStore(""));
    EXPECT_FALSE(KTRemoteNotificationClient("").saveToDataStore());
}

struct CountCase {
    const char* name;
    int64_t stored;
    int64_t expected;
};
void PrintTo(const CountCase& test, std::ostream* out) { *out << test.name; }

class RemoteNotificationClientDailyCountTest : public RemoteNotificationClientTest,
                                               public ::testing::WithParamInterface<CountCase> { };

TEST_P(RemoteNotificationClientDailyCountTest, NegativeStoredCountsReadAsZero)
{
    auto loaded = loadRaw({ { "VYBundleId", bundleIdentifier }, { "VYDayOfLastGazettePush", 42 },
        { "VYDailyCountOfGazettePushes", GetParam().stored } });
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->dailyCountOfGazettePushes(), GetParam().expected);
    EXPECT_EQ(loaded->dayOfLastGazettePush(), 42);
}

INSTANTIATE_TEST_SUITE_P(Counts, RemoteNotificationClientDailyCountTest,
    ::testing::Values(CountCase { "MinusOne", -1, 0 },
        CountCase { "Lowest", std::numeric_limits<int64_t>::min(), 0 }, CountCase { "Zero", 0, 0 },
        CountCase { "Three", 3, 3 },
        CountCase { "Highest", std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::max() }),
    [](const auto& info) { return info.param.name; });

struct WrongTypeCase {
    const char* name;
    const char* key;
    Value value;
};
void PrintTo(const WrongTypeCase& test, std::ostream* out) { *out << test.name; }

class RemoteNotificationClientWrongTypeTest : public RemoteNotificationClientTest,
                                              public ::testing::WithParamInterface<WrongTypeCase> { };

TEST_P(RemoteNotificationClientWrongTypeTest, ReadsAsAbsent)
{
    auto loaded = loadRaw({ { "VYBundleId", bundleIdentifier }, { GetParam().key, GetParam().value } });
    ASSERT_TRUE(loaded);
    // A record missing the token identifier gets a new one; the rest is empty.
    EXPECT_TRUE(isUUIDString(loaded->tokenIdentifier())) << loaded->tokenIdentifier();
    EXPECT_FALSE(loaded->environment());
    EXPECT_FALSE(loaded->lastKnownDeviceToken());
    EXPECT_FALSE(loaded->missingDate());
    EXPECT_FALSE(loaded->backgroundDeliveryDisabled());
    EXPECT_EQ(loaded->dayOfLastGazettePush(), 0);
    EXPECT_EQ(loaded->dailyCountOfGazettePushes(), 0);
    EXPECT_FALSE(loaded->doesWantPush());
}

INSTANTIATE_TEST_SUITE_P(Fields, RemoteNotificationClientWrongTypeTest,
    ::testing::Values(WrongTypeCase { "TokenIdentifierNumber", "VYTokenId", 5 },
        WrongTypeCase { "TokenIdentifierEmpty", "VYTokenId", "" },
        WrongTypeCase { "EnvironmentData", "VYEnvironment", Bytes { 'q', 'a', '2' } },
        WrongTypeCase { "EnvironmentArray", "VYEnvironment", Value::Array { "production" } },
        WrongTypeCase { "WantsPushString", "VYWantsPushKey", "YES" },
        WrongTypeCase { "WantsPushNumber", "VYWantsPushKey", 1 },
        WrongTypeCase { "TokenString", "VYLastKnownDeviceToken", "0a0b" },
        WrongTypeCase { "TokenNull", "VYLastKnownDeviceToken", Value() },
        WrongTypeCase { "MissingDateReal", "VYMissingDate", 5.0 },
        WrongTypeCase { "MissingDateString", "VYMissingDate", "2024-01-01" },
        WrongTypeCase { "BackgroundNumber", "VYBackgroundDeliveryDisabled", 1 },
        WrongTypeCase { "BackgroundString", "VYBackgroundDeliveryDisabled", "YES" },
        WrongTypeCase { "DayString", "VYDayOfLastGazettePush", "7" },
        WrongTypeCase { "DayReal", "VYDayOfLastGazettePush", 7.5 },
        WrongTypeCase { "DayBoolean", "VYDayOfLastGazettePush", true },
        WrongTypeCase { "CountDictionary", "VYDailyCountOfGazettePushes", Value::Dictionary { { "n", 1 } } },
        WrongTypeCase { "EnabledTypesArray", "VYAppEnabledTypes", Value::Array { 4 } }),
    [](const auto& info) { return info.param.name; });

struct BundleIdentifierCase {
    const char* name;
    Value::Dictionary fields;
};
void PrintTo(const BundleIdentifierCase& test, std::ostream* out) { *out << test.name; }

class RemoteNotificationClientMissingBundleIdentifierTest
    : public RemoteNotificationClientTest,
      public ::testing::WithParamInterface<BundleIdentifierCase> { };

TEST_P(RemoteNotificationClientMissingBundleIdentifierTest, MakesTheWholeRecordAbsent)
{
    auto fields = GetParam().fields;
    fields["VYTokenId"] = "9b2c6a1e-0000-4000-8000-000000000000";
    fields["VYEnvironment"] = PushEnvironmentProduction;
    fields["VYWantsPushKey"] = true;
    EXPECT_FALSE(loadRaw(fields));
}

INSTANTIATE_TEST_SUITE_P(Values, RemoteNotificationClientMissingBundleIdentifierTest,
    ::testing::Values(BundleIdentifierCase { "Missing", {} },
        BundleIdentifierCase { "Empty", { { "VYBundleId", "" } } },
        BundleIdentifierCase { "Number", { { "VYBundleId", 7 } } },
        BundleIdentifierCase { "Data", { { "VYBundleId", Bytes { 'a', 'p', 'p' } } } },
        BundleIdentifierCase { "Array", { { "VYBundleId", Value::Array { bundleIdentifier } } } },
        BundleIdentifierCase { "Null", { { "VYBundleId", Value() } } }),
    [](const auto& info) { return info.param.name; });

struct ForeignCase {
    const char* name;
    std::function<Value()> stored;
};
void PrintTo(const ForeignCase& test, std::ostream* out) { *out << test.name; }

class RemoteNotificationClientForeignValueTest : public RemoteNotificationClientTest,
                                                 public ::testing::WithParamInterface<ForeignCase> { };

TEST_P(RemoteNotificationClientForeignValueTest, UnderTheKeyReadsAsNoRecord)
{
    ASSERT_TRUE(store()->setArchivedObject(GetParam().stored(), KTRemoteNotificationClient::dataStoreKey));
    EXPECT_FALSE(KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier));
}

INSTANTIATE_TEST_SUITE_P(Values, RemoteNotificationClientForeignValueTest,
    ::testing::Values(ForeignCase { "OtherClass",
                          [] {
                              return Value(std::make_shared<RawRecord>(
                                  Value::Dictionary { { "VYBundleId", bundleIdentifier } }, "OtherRecord"));
                          } },
        ForeignCase { "String", [] { return Value(bundleIdentifier); } },
        ForeignCase { "FieldsAsDictionary",
            [] {
                return Value(Value::Dictionary { { "VYBundleId", bundleIdentifier } });
            } },
        ForeignCase { "RecordInsideAnArray",
            [] {
                return Value(Value::Array { std::make_shared<KTRemoteNotificationClient>(bundleIdentifier) });
            } },
        ForeignCase { "RecordHoldingAnotherClass",
            [] {
                auto inner = std::make_shared<RawRecord>(Value::Dictionary {}, "OtherRecord");
                return Value(std::make_shared<RawRecord>(Value::Dictionary {
                    { "VYBundleId", bundleIdentifier }, { "VYLastKnownDeviceToken", inner } }));
            } }),
    [](const auto& info) { return info.param.name; });

TEST_F(RemoteNotificationClientTest, PropertyListEntryUnderTheKeyReadsAsNoRecord)
{
    ASSERT_TRUE(store()->setObject(
        Value::Dictionary { { "VYBundleId", bundleIdentifier } }, KTRemoteNotificationClient::dataStoreKey));
    EXPECT_FALSE(KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier));
}

TEST_F(RemoteNotificationClientTest, DamagedBytesInTheStoreReadAsNoRecord)
{
    KTRemoteNotificationClient client(bundleIdentifier);
    client.setEnvironment(PushEnvironmentDevelopment);
    client.setLastKnownDeviceToken(Bytes(32, 0xab));
    client.setMissingDate(Date(12.5));
    client.setBackgroundDeliveryDisabled(true);
    client.setDayOfLastGazettePush(19000);
    client.setDailyCountOfGazettePushes(2);
    client.setWantsPush(true);
    Bytes bytes = *KeyedArchive::archivedData(std::make_shared<KTRemoteNotificationClient>(client));

    auto& database = *device.platform().dataStores;
    auto stored = [&](const Bytes& entry) {
        EXPECT_TRUE(database.setEntry(bundleIdentifier, KTRemoteNotificationClient::dataStoreKey,
            ApplicationDataStoreDatabase::Kind::KeyedArchive, entry));
        return KTRemoteNotificationClient::loadFromDataStore(bundleIdentifier);
    };
    ASSERT_TRUE(stored(bytes));
    EXPECT_FALSE(stored(Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(bytes.size() / 2))));
    EXPECT_FALSE(stored(Bytes {}));
    // Arbitrary damage is the fuzzer's: it checks the same rules on every input.
}

} // namespace
