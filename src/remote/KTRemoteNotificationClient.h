#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tessel {

class KeyedUnarchiver;

// One application's push registration: its environment, the identifier its
// per-application token is requested under, the last token it was given and
// the content-push throttle's counters. Lives in the application's data store;
// the archive keys are described in docs/formats.md. Touched only on the push
// server's queue, so it holds no lock.
//
// Archives come from disk and are not trusted: a field of the wrong type reads
// as absent. A record without a bundle identifier (missing, not a string or
// empty) decodes to null, since nothing could be done with it; one without a
// token identifier gets a fresh one.
class KTRemoteNotificationClient : public Archivable {
public:
    static constexpr const char* archivedClassName = "VYRemoteNotificationClient";
    // The key of the record in its application's data store.
    static constexpr const char* dataStoreKey = "VYRemoteNotificationClient";

    // A new registration with a fresh token identifier; everything else empty.
    explicit KTRemoteNotificationClient(std::string bundleIdentifier);

    // Registers the archived class name with KeyedArchive; idempotent. Anything
    // that unarchives records calls it first (creating a record does).
    static void registerArchivableClasses();

    // The matching environment constant, compared without regard to case;
    // null for null or any other name.
    static std::optional<std::string> validEnvironmentFromEnvironment(
        const std::optional<std::string>& environment);
    // Archives from before the explicit flag count any of the low four
    // enabled-type bits as a registration. A flag that is not a boolean counts
    // as missing.
    static bool wantsPushWithCoder(const KeyedUnarchiver& coder);

    // Also the application's push topic.
    const std::string& bundleIdentifier() const { return _bundleIdentifier; }
    const std::string& tokenIdentifier() const { return _tokenIdentifier; }

    const std::optional<std::string>& environment() const { return _environment; }
    // Stores the matching constant, so a record never holds another name.
    void setEnvironment(const std::optional<std::string>& environment);
    const std::optional<Bytes>& lastKnownDeviceToken() const { return _lastKnownDeviceToken; }
    void setLastKnownDeviceToken(std::optional<Bytes> token) { _lastKnownDeviceToken = std::move(token); }
    const std::optional<Date>& missingDate() const { return _missingDate; }
    void setMissingDate(std::optional<Date> date) { _missingDate = date; }
    bool backgroundDeliveryDisabled() const { return _backgroundDeliveryDisabled; }
    void setBackgroundDeliveryDisabled(bool disabled) { _backgroundDeliveryDisabled = disabled; }
    int64_t dayOfLastGazettePush() const { return _dayOfLastGazettePush; }
    void setDayOfLastGazettePush(int64_t day) { _dayOfLastGazettePush = day; }
    int64_t dailyCountOfGazettePushes() const { return _dailyCountOfGazettePushes; }
    void setDailyCountOfGazettePushes(int64_t count) { _dailyCountOfGazettePushes = count; }
    bool doesWantPush() const { return _wantsPush; }
    void setWantsPush(bool wantsPush) { _wantsPush = wantsPush; }
    // For the log only; never archived.
    const std::optional<std::string>& pushDisabledReason() const { return _pushDisabledReason; }
    void setPushDisabledReason(std::optional<std::string> reason) { _pushDisabledReason = std::move(reason); }

    // Archives a copy into the application's data store; false when that fails.
    bool saveToDataStore() const;
    // The application's stored record; null when there is none, it does not
    // decode, or the key holds anything but a record without objects inside.
    static std::shared_ptr<KTRemoteNotificationClient> loadFromDataStore(const std::string& bundleIdentifier);

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    static std::shared_ptr<KTRemoteNotificationClient> decode(KeyedUnarchiver& coder);

private:
    KTRemoteNotificationClient(std::string bundleIdentifier, std::string tokenIdentifier);

    std::string _bundleIdentifier;
    std::string _tokenIdentifier;
    std::optional<std::string> _environment;
    std::optional<Bytes> _lastKnownDeviceToken;
    std::optional<Date> _missingDate;
    bool _backgroundDeliveryDisabled = false;
    int64_t _dayOfLastGazettePush = 0;
    int64_t _dailyCountOfGazettePushes = 0;
    bool _wantsPush = false;
    std::optional<std::string> _pushDisabledReason;
};

} // namespace tessel
