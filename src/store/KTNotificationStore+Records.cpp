// Building stored notification records from the arguments of a save.
#include "store/KTNotificationStore.h"

#include "core/KTApplicationProxyAdditions.h"
#include "core/KTInternalInconsistencyException.h"
#include "core/KTNotificationLocalizedString.h"
#include "platform/Platform.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/concurrency/Clock.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/records/LocalNotification.h"

#include <tessel/Tessel.h>

namespace tessel {

namespace {

    void require(bool condition, const char* text)
    {
        if (!condition)
            throw KTInternalInconsistencyException(text);
    }

    bool hasText(const Value& value) { return value.isString() && value.length() > 0; }

    // FNV-1a: stable across runs and machines, which identifiers only need within one.
    uint64_t stringHash(const Value& value)
    {
        if (!value.isString())
            return 0;
        uint64_t hash = 14695981039346656037ULL;
        for (unsigned char c : value.stringValue()) {
            hash ^= c;
            hash *= 1099511628211ULL;
        }
        return hash;
    }

} // namespace

void KTNotificationStore::saveRemoteNotificationWithTitle(const Value& title, const Value& message,
    const Value& soundName, const Value& actionText, const Value& badge, const Value& userInfo,
    const Value& launchImage, const Value& category, const std::string& bundleID)
{
    _saveNotificationWithTitle(title, message, soundName, actionText, badge, userInfo, launchImage, {}, false,
        true, category, bundleID);
}

void KTNotificationStore::saveLocalNotification(
    const std::shared_ptr<LocalNotification>& notification, const std::string& bundleID)
{
    if (!notification)
        return;
    auto bundle = kt_bundleForBundleIdentifier(bundleID);
    auto localized = [&bundle](const std::string& key) {
        auto text = KTNotificationLocalizedString(Value(key), Value(), bundle, Value());
        return text ? Value(*text) : Value();
    };
    auto text = [](const std::string& value) { return value.empty() ? Value() : Value(value); };
    Value sound = notification->soundName() == LocalNotificationDefaultSoundName
        ? Value(kKTNotificationStoreSoundDefault)
        : text(notification->soundName());
    Value action = notification->hasAction() ? localized(notification->alertAction()) : Value();
    Value badge = notification->applicationIconBadgeNumber() != 0
        ? Value(static_cast<int32_t>(notification->applicationIconBadgeNumber()))
        : Value();
    Value userInfo = notification->userInfo().empty() ? Value() : Value(notification->userInfo());
    _saveNotificationWithTitle(localized(notification->alertTitle()), localized(notification->alertBody()),
        sound, action, badge, userInfo, text(notification->alertLaunchImage()), Value(notification), false,
        false, text(notification->category()), bundleID);
}

void KTNotificationStore::_saveNotificationWithTitle(const Value& title, const Value& message,
    const Value& soundName, const Value& actionText, const Value& badge, const Value& userInfo,
    const Value& launchImage, const Value& fullDetails, bool soundIsRingtone, bool isRemoteNotification,
    const Value& category, const std::string& bundleID)
{
    if (bundleID.empty()) {
        log("Ignoring notification because bundleID is nil.");
        return;
    }
    require(message.isNull() || message.isString(), "message is null or a string");
    require(soundName.isNull() || soundName.isString(), "soundName is null or a string");
    require(actionText.isNull() || actionText.isString(), "actionText is null or a string");
    require(badge.isNull() || badge.isNumber(), "badge is null or a number");
    require(launchImage.isNull() || launchImage.isString(), "launchImage is null or a string");

    Value::Dictionary record { { KTNotificationStoreCreationDateKey,
        Value(Platform::current().clock->now()) } };
    if (message.length() == 0 && soundName.length() == 0 && actionText.length() == 0 && badge.isNull()) {
        log("Ignoring notification with no content.");
        return;
    }

    Value sound = soundName;
    if (!soundName.isNull() && soundName.stringValue() != kKTNotificationStoreSoundDefault
        && !soundIsRingtone) {
        auto path = pathForSoundName(soundName.stringValue(), bundleID);
        sound = path.empty() ? Value(kKTNotificationStoreSoundDefault) : Value(path);
    }

    if (hasText(message))
        record[KTNotificationStoreMessageKey] = message;
    if (hasText(actionText))
        record[KTNotificationStoreActionTextKey] = actionText;
    if (hasText(sound)) {
        record[KTNotificationStoreSoundKey] = sound;
        record[KTNotificationStoreSoundIsRingtoneKey] = Value(soundIsRingtone);
    }
    if (hasText(title))
        record[KTNotificationStoreTitleKey] = title;
    if (!badge.isNull())
        record[KTNotificationStoreBadgeNumberKey] = badge;

    if (isRemoteNotification) {
        record[KTNotificationStoreNotificationTypeKey] = Value(kKTNotificationStoreNotificationTypeRemote);
    } else {
        record[KTNotificationStoreNotificationTypeKey] = Value(kKTNotificationStoreNotificationTypeLocal);
        if (!fullDetails.isNull()) {
            auto details = KeyedArchive::archivedData(fullDetails);
            if (details && !details->empty())
                record[KTNotificationStoreLocalNotificationDataKey] = Value(std::move(*details));
        }
    }

    if (!userInfo.isNull())
        record[KTNotificationStoreUserInfoKey] = userInfo;
    if (!launchImage.isNull())
        record[KTNotificationStoreLaunchImageKey] = launchImage;
    if (!category.isNull())
        record[KTNotificationStoreCategoryKey] = category;

    Value built(std::move(record));
    _notificationsQueue->sync([&] { _queue_insertNotification(built, bundleID); });
}

std::optional<std::string> KTNotificationStore::uniqueIdentifierForNotification(const Value& record)
{
    const Value& created = record[KTNotificationStoreCreationDateKey];
    if (!created.isDate())
        return std::nullopt;
    return format("%lx:%lx:%f", stringHash(record[KTNotificationStoreTitleKey]),
        stringHash(record[KTNotificationStoreMessageKey]),
        created.dateValue().timeIntervalSinceReferenceDate());
}

} // namespace tessel
