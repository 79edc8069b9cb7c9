#pragma once

#include "platform/files/FileManager.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Value.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

class LocalNotification;
class WorkQueue;

// Told when an application's list of delivered notifications changed or was
// cleared; always called on a global queue.
class KTNotificationStoreObserver {
public:
    virtual ~KTNotificationStoreObserver() = default;
    virtual void pushStoreNotificationsDidChange() = 0;
    virtual void pushStoreClearedNotifications() = 0;
};

// The per-application lists of delivered notifications ("push stores"), one
// archived file per application, newest first. File operations wait for the
// store's notifications queue and return their result; they must not be called
// from that queue. An empty bundle identifier stands for an absent one.
class KTNotificationStore : public std::enable_shared_from_this<KTNotificationStore> {
public:
    // Newest record plus this many older ones that carry a message.
    static constexpr size_t maximumOlderNotifications = 100;

    static std::shared_ptr<KTNotificationStore> sharedInstance();
    KTNotificationStore();
    ~KTNotificationStore();

    void addObserver(std::shared_ptr<KTNotificationStoreObserver> observer, const std::string& bundleID);
    void removeObserver(
        const std::shared_ptr<KTNotificationStoreObserver>& observer, const std::string& bundleID);

    void registerAppForNotificationsWithBundleID(const std::string& bundleID);
    void unregisterAppForNotificationsWithBundleID(const std::string& bundleID);
    void clearNotificationsForBundleID(const std::string& bundleID);

    void saveRemoteNotificationWithTitle(const Value& title, const Value& message, const Value& soundName,
        const Value& actionText, const Value& badge, const Value& userInfo, const Value& launchImage,
        const Value& category, const std::string& bundleID);
    // Builds a record from the arguments and inserts it. Wrongly typed arguments
    // are a programming error and throw KTInternalInconsistencyException.
    void _saveNotificationWithTitle(const Value& title, const Value& message, const Value& soundName,
        const Value& actionText, const Value& badge, const Value& userInfo, const Value& launchImage,
        const Value& fullDetails, bool soundIsRingtone, bool isRemoteNotification, const Value& category,
        const std::string& bundleID);

    // Localizes the fired notification's texts in its application's bundle and
    // saves it with the whole notification archived alongside.
    void saveLocalNotification(
        const std::shared_ptr<LocalNotification>& notification, const std::string& bundleID);
    // Drops the records that carry a notification equal to this one.
    void removeLocalNotification(
        const std::shared_ptr<LocalNotification>& notification, const std::string& bundleID);
    void removeAllLocalNotificationsForBundleID(const std::string& bundleID);
    void removeAllNotificationsForBundleID(const std::string& bundleID);
    // Drops the records passing the test; answers their unique identifiers.
    std::vector<std::string> removeNotificationsPassingTest(
        const std::function<bool(const Value& record)>& test, const std::string& bundleID);

    std::optional<Bytes> savedNotificationDataForBundleID(const std::string& bundleID);
    // The array of records, or null.
    Value savedNotificationsForBundleID(const std::string& bundleID);
    std::optional<std::vector<std::string>> bundleIDsWithUpdatesSince(std::optional<Date> date);
    std::optional<Date> lastUpdateDateForBundleID(const std::string& bundleID);
    // Empty when no playable file was found.
    std::string pathForSoundName(const std::string& soundName, const std::string& bundleID);
    void makeTestNotificationStores();

    // Converts the old property-list stores; run once at start.
    static void migratePushStore();
    static std::optional<std::string> uniqueIdentifierForNotification(const Value& record);
    static std::string storeDirectory();
    // Whether "VYPushStoreLogging" was on when the store was first used.
    static bool isLoggingEnabled();

private:
    template <typename... Arguments> static void log(std::string_view text, const Arguments&... arguments)
    {
        if (isLoggingEnabled())
            logAlways(format(text, arguments...));
    }
    static void logAlways(const std::string& line);

    std::string _queue_fileNameForBundleID(const std::string& bundleID) const;
    bool _queue_dataExistsAtPath(const std::string& path) const;
    std::optional<Bytes> _queue_readAllDataFromPath(const std::string& path) const;
    Value _queue_loadAllNotificationsFromPath(const std::string& path) const;
    bool _queue_writeNotifications(const Value::Array& notifications, const std::string& path) const;
    void _queue_insertNotification(const Value& record, const std::string& bundleID);
    bool _queue_removeFileForBundleID(const std::string& bundleID);
    bool _queue_rewriteNotifications(
        const std::string& bundleID, const std::function<bool(const Value& record)>& keep);

    bool _removeFileForBundleID(const std::string& bundleID);
    void _notifyObservers(const std::string& bundleID, bool cleared);

    void _queue_rememberList(const std::string& path, const Value& list) const;

    // The last list read or written per file, with the identity the file had
    // then; a save reuses it instead of reading and decoding the file again.
    struct CachedList {
        FileManager::FileIdentity identity;
        Value list;
    };

    std::shared_ptr<WorkQueue> _notificationsQueue;
    std::shared_ptr<WorkQueue> _settingsQueue;
    std::map<std::string, std::vector<std::shared_ptr<KTNotificationStoreObserver>>> _observersByBundleID;
    mutable std::map<std::string, CachedList> _cachedLists;
};

} // namespace tessel
