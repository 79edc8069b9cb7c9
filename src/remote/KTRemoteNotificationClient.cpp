#include "remote/KTRemoteNotificationClient.h"

#include "platform/applications/ApplicationDataStore.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Utf8.h"
#include "platform/push/PushEnvironment.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <random>
#include <string_view>

namespace tessel {

namespace {

    constexpr const char* bundleIdentifierKey = "VYBundleId";
    constexpr const char* tokenIdentifierKey = "VYTokenId";
    constexpr const char* environmentKey = "VYEnvironment";
    constexpr const char* wantsPushKey = "VYWantsPushKey";
    constexpr const char* lastKnownDeviceTokenKey = "VYLastKnownDeviceToken";
    constexpr const char* missingDateKey = "VYMissingDate";
    constexpr const char* backgroundDeliveryDisabledKey = "VYBackgroundDeliveryDisabled";
    constexpr const char* dayOfLastGazettePushKey = "VYDayOfLastGazettePush";
    constexpr const char* dailyCountOfGazettePushesKey = "VYDailyCountOfGazettePushes";
    // Written by releases that kept the enabled notification types instead of a flag.
    constexpr const char* legacyEnabledTypesKey = "VYAppEnabledTypes";
    constexpr int32_t legacyPushTypesMask = 0xF;

    // Random version 4 UUID, lower-case.
    std::string newUUIDString()
    {
        thread_local std::random_device device;
        std::array<uint8_t, 16> bytes;
        for (size_t i = 0; i < bytes.size(); i += 4) {
            uint32_t word = device();
            for (size_t j = 0; j < 4; ++j)
                bytes[i + j] = static_cast<uint8_t>(word >> (8 * j));
        }
        bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);
        bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
        static const char digits[] = "0123456789abcdef";
        std::string text;
        text.reserve(36);
        for (size_t i = 0; i < bytes.size(); ++i) {
            if (i == 4 || i == 6 || i == 8 || i == 10)
                text += '-';
            text += digits[bytes[i] >> 4];
            text += digits[bytes[i] & 15];
        }
        return text;
    }

    template <typename T> Value optionalValue(const std::optional<T>& value)
    {
        return value ? Value(*value) : Value();
    }

} // namespace

KTRemoteNotificationClient::KTRemoteNotificationClient(std::string bundleIdentifier)
    : KTRemoteNotificationClient(std::move(bundleIdentifier), newUUIDString())
{
}

KTRemoteNotificationClient::KTRemoteNotificationClient(
    std::string bundleIdentifier, std::string tokenIdentifier)
    : _bundleIdentifier(std::move(bundleIdentifier))
    , _tokenIdentifier(std::move(tokenIdentifier))
{
    registerArchivableClasses();
}

void KTRemoteNotificationClient::registerArchivableClasses()
{
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedArchive::registerClass(archivedClassName, [](KeyedUnarchiver& coder) { return decode(coder); });
    });
}

std::optional<std::string> KTRemoteNotificationClient::validEnvironmentFromEnvironment(
    const std::optional<std::string>& environment)
{
    if (!environment)
        return std::nullopt;
    for (const char* valid :
        { PushEnvironmentProduction, PushEnvironmentDevelopment, PushEnvironmentDemo, PushEnvironmentQA2 }) {
        if (Utf8::equalsIgnoringASCIICase(*environment, valid))
            return std::string(valid);
    }
    return std::nullopt;
}

bool KTRemoteNotificationClient::wantsPushWithCoder(const KeyedUnarchiver& coder)
{
    if (coder.decodeObject(wantsPushKey).isBoolean())
        return coder.decodeBool(wantsPushKey);
    return (coder.decodeInt32(legacyEnabledTypesKey) & legacyPushTypesMask) != 0;
}

void KTRemoteNotificationClient::setEnvironment(const std::optional<std::string>& environment)
{
    _environment = validEnvironmentFromEnvironment(environment);
}

bool KTRemoteNotificationClient::saveToDataStore() const
{
    auto dataStore = ApplicationDataStore::storeForApplication(_bundleIdentifier);
    return dataStore
        && dataStore->setArchivedObject(std::make_shared<KTRemoteNotificationClient>(*this), dataStoreKey);
}

std::shared_ptr<KTRemoteNotificationClient> KTRemoteNotificationClient::loadFromDataStore(
    const std::string& bundleIdentifier)
{
    auto dataStore = ApplicationDataStore::storeForApplication(bundleIdentifier);
    if (!dataStore)
        return nullptr;
    registerArchivableClasses();
    // A record holds no objects; anything else in the archive is not ours.
    UnarchiveOptions options { .expectedClass = archivedClassName, .allowedClasses = { archivedClassName } };
    return dataStore->archivedObjectForKey(dataStoreKey, options).objectAs<KTRemoteNotificationClient>();
}

void KTRemoteNotificationClient::encodeWithCoder(KeyedArchiver& coder) const
{
    coder.encodeObject(_bundleIdentifier, bundleIdentifierKey);
    coder.encodeObject(_tokenIdentifier, tokenIdentifierKey);
    if (_environment)
        coder.encodeObject(*_environment, environmentKey);
    coder.encodeBool(_wantsPush, wantsPushKey);
    coder.encodeObject(optionalValue(_lastKnownDeviceToken), lastKnownDeviceTokenKey);
    coder.encodeObject(optionalValue(_missingDate), missingDateKey);
    if (_backgroundDeliveryDisabled)
        coder.encodeBool(true, backgroundDeliveryDisabledKey);
    if (_dayOfLastGazettePush || _dailyCountOfGazettePushes) {
        coder.encodeInt64(_dayOfLastGazettePush, dayOfLastGazettePushKey);
        coder.encodeInt64(_dailyCountOfGazettePushes, dailyCountOfGazettePushesKey);
    }
}

std::shared_ptr<KTRemoteNotificationClient> KTRemoteNotificationClient::decode(KeyedUnarchiver& coder)
{
    std::string bundleIdentifier = coder.decodeObject(bundleIdentifierKey).stringValue();
    if (bundleIdentifier.empty())
        return nullptr;
    std::string tokenIdentifier = coder.decodeObject(tokenIdentifierKey).stringValue();
    if (tokenIdentifier.empty())
        tokenIdentifier = newUUIDString();
    std::shared_ptr<KTRemoteNotificationClient> client(
        new KTRemoteNotificationClient(std::move(bundleIdentifier), std::move(tokenIdentifier)));
    auto& c = *client;
    if (auto environment = coder.decodeObject(environmentKey); environment.isString())
        c._environment = validEnvironmentFromEnvironment(environment.stringValue());
    c._wantsPush = wantsPushWithCoder(coder);
    if (auto token = coder.decodeObject(lastKnownDeviceTokenKey); token.isData())
        c._lastKnownDeviceToken = token.dataValue();
    if (auto date = coder.decodeObject(missingDateKey); date.isDate())
        c._missingDate = date.dateValue();
    c._backgroundDeliveryDisabled = coder.decodeBool(backgroundDeliveryDisabledKey);
    c._dayOfLastGazettePush = coder.decodeInt64(dayOfLastGazettePushKey);
    c._dailyCountOfGazettePushes = std::max<int64_t>(coder.decodeInt64(dailyCountOfGazettePushesKey), 0);
    return client;
}

std::string KTRemoteNotificationClient::description() const
{
    return format("<KTRemoteNotificationClient %@ tokenIdentifier %@ environment %@ wantsPush %d "
                  "lastKnownDeviceToken %@ missingDate %@ backgroundDeliveryDisabled %d "
                  "dayOfLastGazettePush %ld dailyCountOfGazettePushes %ld pushDisabledReason %@>",
        _bundleIdentifier, _tokenIdentifier, optionalValue(_environment), _wantsPush,
        optionalValue(_lastKnownDeviceToken), optionalValue(_missingDate), _backgroundDeliveryDisabled,
        _dayOfLastGazettePush, _dailyCountOfGazettePushes, optionalValue(_pushDisabledReason));
}

bool KTRemoteNotificationClient::isEqual(const Archivable& other) const
{
    auto c = dynamic_cast<const KTRemoteNotificationClient*>(&other);
    // Dates compare as values, so that a NaN date equals its copy.
    return c && _bundleIdentifier == c->_bundleIdentifier && _tokenIdentifier == c->_tokenIdentifier
        && _environment == c->_environment && _lastKnownDeviceToken == c->_lastKnownDeviceToken
        && optionalValue(_missingDate) == optionalValue(c->_missingDate)
        && _backgroundDeliveryDisabled == c->_backgroundDeliveryDisabled
        && _dayOfLastGazettePush == c->_dayOfLastGazettePush
        && _dailyCountOfGazettePushes == c->_dailyCountOfGazettePushes && _wantsPush == c->_wantsPush
        && _pushDisabledReason == c->_pushDisabledReason;
}

} // namespace tessel
