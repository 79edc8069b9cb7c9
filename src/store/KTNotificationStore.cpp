#include "store/KTNotificationStore.h"

#include "core/KTApplicationProxyAdditions.h"
#include "platform/Platform.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/concurrency/Clock.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/logging/SystemLog.h"
#include "platform/records/LocalNotification.h"
#include "services/KTSLocalNotificationWhitelistedUnarchive.h"

#include <algorithm>
#include <mutex>
#include <tessel/Tessel.h>

namespace tessel {

namespace {

    constexpr const char* storeExtension = "pushstore";

} // namespace

std::shared_ptr<KTNotificationStore> KTNotificationStore::sharedInstance()
{
    static std::once_flag once;
    static std::shared_ptr<KTNotificationStore> shared;
    std::call_once(once, [] { shared = std::make_shared<KTNotificationStore>(); });
    return shared;
}

KTNotificationStore::KTNotificationStore()
    : _notificationsQueue(WorkQueue::create("com.tamber.VYPushStore.notifications"))
    , _settingsQueue(WorkQueue::create("com.tamber.VYPushStore.settings"))
{
    auto directory = storeDirectory();
    FileManager::createDirectoryAtPath(directory, true);
    // A save killed midway leaves its temporary file; it would read as an application.
    if (auto removed = FileManager::removeAbandonedTemporaryFiles(directory))
        log("Removed %lu abandoned temporary files from %@", removed, directory);
}

KTNotificationStore::~KTNotificationStore() = default;

std::string KTNotificationStore::storeDirectory()
{
    return Path::appendingComponent(Platform::current().libraryDirectory, "Vantry/PushStore");
}

bool KTNotificationStore::isLoggingEnabled()
{
    static const bool enabled = [] {
        auto& platform = Platform::current();
        return platform.preferences->boolForKey("VYPushStoreLogging", platform.hostPreferencesDomain);
    }();
    return enabled;
}

void KTNotificationStore::logAlways(const std::string& line)
{
    Platform::current().systemLog->log(LogPriority::Notice, line);
}

void KTNotificationStore::addObserver(
    std::shared_ptr<KTNotificationStoreObserver> observer, const std::string& bundleID)
{
    if (!observer || bundleID.empty())
        return;
    _settingsQueue->sync([&] {
        auto& observers = _observersByBundleID[bundleID];
        std::erase(observers, observer);
        observers.push_back(std::move(observer));
    });
}

void KTNotificationStore::removeObserver(
    const std::shared_ptr<KTNotificationStoreObserver>& observer, const std::string& bundleID)
{
    _settingsQueue->sync([&] {
        auto found = _observersByBundleID.find(bundleID);
        if (found != _observersByBundleID.end())
            std::erase(found->second, observer);
    });
}

void KTNotificationStore::_notifyObservers(const std::string& bundleID, bool cleared)
{
    std::weak_ptr<KTNotificationStore> weakStore = weak_from_this();
    WorkQueue::global().async([weakStore, bundleID, cleared] {
        auto store = weakStore.lock();
        if (!store)
            return;
        // A copy, so observers may add or remove themselves while being told.
        auto observers = store->_settingsQueue->sync([&] {
            auto found = store->_observersByBundleID.find(bundleID);
            return found == store->_observersByBundleID.end()
                ? std::vector<std::shared_ptr<KTNotificationStoreObserver>>()
                : found->second;
        });
        for (const auto& observer : observers) {
            if (cleared)
                observer->pushStoreClearedNotifications();
            else
                observer->pushStoreNotificationsDidChange();
        }
    });
}

std::string KTNotificationStore::_queue_fileNameForBundleID(const std::string& bundleID) const
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    // Slashes (and NULs, which the file system would cut at) never reach the path,
    // so every identifier names a file directly inside the store directory.
    std::string name = bundleID;
    std::erase(name, '/');
    std::erase(name, '\0');
    return Path::appendingComponent(storeDirectory(), Path::appendingExtension(name, storeExtension));
}

bool KTNotificationStore::_queue_dataExistsAtPath(const std::string& path) const
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    return FileManager::fileExistsAtPath(path);
}

std::optional<Bytes> KTNotificationStore::_queue_readAllDataFromPath(const std::string& path) const
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    auto data = FileManager::contentsAtPath(path);
    if (!data)
        log("No notification data store found at %@", path);
    return data;
}

void KTNotificationStore::_queue_rememberList(const std::string& path, const Value& list) const
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    auto identity = FileManager::identityOfItemAtPath(path);
    if (identity)
        _cachedLists[path] = CachedList { *identity, list };
    else
        _cachedLists.erase(path);
}

Value KTNotificationStore::_queue_loadAllNotificationsFromPath(const std::string& path) const
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    auto cached = _cachedLists.find(path);
    if (cached != _cachedLists.end()) {
        if (FileManager::identityOfItemAtPath(path) == cached->second.identity)
            return cached->second.list;
        _cachedLists.erase(cached);
    }
    auto data = _queue_readAllDataFromPath(path);
    if (!data)
        return {};
    std::string error;
    auto root = KeyedArchive::unarchive(*data, &error);
    if (!root) {
        log("Error: exception caught loading notification data store at %@; exception: %@", path, error);
        return {};
    }
    if (!root->isArray()) {
        log("Error: could not load notification data store at %@", path);
        return {};
    }
    _queue_rememberList(path, *root);
    return *root;
}

bool KTNotificationStore::_queue_writeNotifications(
    const Value::Array& notifications, const std::string& path) const
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    std::string error;
    Value list(notifications);
    auto data = KeyedArchive::archivedData(list, &error);
    if (!data) {
        log("Error: unable to archive notifications list: %@", error);
        return false;
    }
    if (data->empty()) {
        log("Error: could not encode notification list data");
        return false;
    }
    bool durable = Platform::current().durableWrites;
    bool written = FileManager::writeAtomically(path, *data, &error, durable);
    if (!written && !FileManager::fileExistsAtPath(storeDirectory())) {
        // Someone removed the whole store directory while we ran: make it again.
        FileManager::createDirectoryAtPath(storeDirectory(), true);
        written = FileManager::writeAtomically(path, *data, &error, durable);
    }
    if (!written) {
        log("Error: could not write new list to %@; error: %@", path, error);
        return false;
    }
    _queue_rememberList(path, list);
    return true;
}

void KTNotificationStore::_queue_insertNotification(const Value& record, const std::string& bundleID)
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    auto path = _queue_fileNameForBundleID(bundleID);
    auto old = _queue_loadAllNotificationsFromPath(path);
    Value::Array notifications { record };
    size_t kept = 0;
    for (const auto& entry : old.arrayValue()) {
        if (kept >= maximumOlderNotifications)
            break;
        if (entry.isDictionary() && !entry[KTNotificationStoreMessageKey].isNull()) {
            notifications.push_back(entry);
            ++kept;
        }
    }
    log("Saving notification list for %@ with %lu items", bundleID, notifications.size());
    if (_queue_writeNotifications(notifications, path))
        _notifyObservers(bundleID, false);
}

bool KTNotificationStore::_queue_removeFileForBundleID(const std::string& bundleID)
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    auto path = _queue_fileNameForBundleID(bundleID);
    if (!_queue_dataExistsAtPath(path))
        return false;
    std::string error;
    if (!FileManager::removeItemAtPath(path, &error)) {
        log("Could not delete %@: %@", path, error);
        return false;
    }
    return true;
}

bool KTNotificationStore::_queue_rewriteNotifications(
    const std::string& bundleID, const std::function<bool(const Value& record)>& keep)
{
    KT_ASSERT_ON_QUEUE(_notificationsQueue);
    auto path = _queue_fileNameForBundleID(bundleID);
    Value::Array kept;
    Value old = _queue_loadAllNotificationsFromPath(path);
    for (const auto& record : old.arrayValue()) {
        if (keep(record))
            kept.push_back(record);
    }
    if (!_queue_writeNotifications(kept, path))
        return false;
    _notifyObservers(bundleID, false);
    return true;
}

bool KTNotificationStore::_removeFileForBundleID(const std::string& bundleID)
{
    return _notificationsQueue->sync([&] { return _queue_removeFileForBundleID(bundleID); });
}

void KTNotificationStore::registerAppForNotificationsWithBundleID(const std::string& bundleID)
{
    _notificationsQueue->sync([&] {
        auto path = _queue_fileNameForBundleID(bundleID);
        if (_queue_dataExistsAtPath(path))
            return;
        log("Saving empty store for bundleID: %@", bundleID);
        _queue_writeNotifications({}, path);
    });
}

void KTNotificationStore::unregisterAppForNotificationsWithBundleID(const std::string& bundleID)
{
    _removeFileForBundleID(bundleID);
}

void KTNotificationStore::clearNotificationsForBundleID(const std::string& bundleID)
{
    if (_removeFileForBundleID(bundleID))
        _notifyObservers(bundleID, true);
}

void KTNotificationStore::removeLocalNotification(
    const std::shared_ptr<LocalNotification>& notification, const std::string& bundleID)
{
    if (!notification)
        return;
    _notificationsQueue->sync([&] {
        _queue_rewriteNotifications(bundleID, [&](const Value& record) {
            auto stored = KTSLocalNotificationWhitelistedUnarchiveFromData(
                record[KTNotificationStoreLocalNotificationDataKey].dataValue());
            return !stored || !stored->isEqual(*notification);
        });
    });
}

void KTNotificationStore::removeAllLocalNotificationsForBundleID(const std::string& bundleID)
{
    _notificationsQueue->sync([&] {
        _queue_rewriteNotifications(bundleID, [](const Value& record) {
            return record[KTNotificationStoreNotificationTypeKey].stringValue()
                != kKTNotificationStoreNotificationTypeLocal;
        });
    });
}

void KTNotificationStore::removeAllNotificationsForBundleID(const std::string& bundleID)
{
    _notificationsQueue->sync(
        [&] { _queue_rewriteNotifications(bundleID, [](const Value&) { return false; }); });
}

std::vector<std::string> KTNotificationStore::removeNotificationsPassingTest(
    const std::function<bool(const Value& record)>& test, const std::string& bundleID)
{
    return _notificationsQueue->sync([&] {
        std::vector<std::string> removed;
        _queue_rewriteNotifications(bundleID, [&](const Value& record) {
            if (!test(record))
                return true;
            if (auto identifier = uniqueIdentifierForNotification(record))
                removed.push_back(*identifier);
            return false;
        });
        return removed;
    });
}

std::optional<Bytes> KTNotificationStore::savedNotificationDataForBundleID(const std::string& bundleID)
{
    return _notificationsQueue->sync(
        [&] { return _queue_readAllDataFromPath(_queue_fileNameForBundleID(bundleID)); });
}

Value KTNotificationStore::savedNotificationsForBundleID(const std::string& bundleID)
{
    auto data = savedNotificationDataForBundleID(bundleID);
    if (!data)
        return {};
    std::string error;
    auto root = KeyedArchive::unarchive(*data, &error);
    if (!root) {
        logAlways(format("%s Caught exception while unarchiving notifications for \"%@\": %@",
            "-[KTNotificationStore savedNotificationsForBundleID:]", bundleID, error));
        return {};
    }
    return root->isArray() ? *root : Value();
}

std::optional<std::vector<std::string>> KTNotificationStore::bundleIDsWithUpdatesSince(
    std::optional<Date> date)
{
    if (!date)
        return std::nullopt;
    auto since = static_cast<int64_t>(date->timeIntervalSince1970());
    return _notificationsQueue->sync([&] {
        std::vector<std::string> bundleIDs;
        auto directory = storeDirectory();
        std::string error;
        auto entries = FileManager::contentsOfDirectoryAtPath(directory, &error);
        if (!entries) {
            log("%s %@", "-[KTNotificationStore bundleIDsWithUpdatesSince:]", error);
            return bundleIDs;
        }
        for (const auto& entry : *entries) {
            auto path = Path::appendingComponent(directory, entry);
            auto modified = FileManager::modificationTime(path);
            if (!modified) {
                log("Error trying to stat %@", path);
                continue;
            }
            if (*modified >= since)
                bundleIDs.push_back(Path::deletingExtension(entry));
        }
        return bundleIDs;
    });
}

std::optional<Date> KTNotificationStore::lastUpdateDateForBundleID(const std::string& bundleID)
{
    return _notificationsQueue->sync([&]() -> std::optional<Date> {
        auto modified = FileManager::modificationTime(_queue_fileNameForBundleID(bundleID));
        if (!modified) {
            log("Could not stat push store for bundle ID: %@", bundleID);
            return std::nullopt;
        }
        return Date::fromTimeIntervalSince1970(static_cast<double>(*modified));
    });
}

std::string KTNotificationStore::pathForSoundName(const std::string& soundName, const std::string& bundleID)
{
    auto application = kt_applicationProxyForBundleIdentifier(bundleID);
    return application ? kt_pathForSoundName(*application, soundName) : std::string();
}

void KTNotificationStore::makeTestNotificationStores()
{
    _notificationsQueue->sync([&] {
        Value::Dictionary record { { KTNotificationStoreMessageKey, Value("MESSAGE") },
            { KTNotificationStoreCreationDateKey, Value(Platform::current().clock->now()) } };
        Value::Array notifications(199, Value(record));
        for (int i = 0; i < 100; ++i)
            _queue_writeNotifications(notifications, _queue_fileNameForBundleID(format("section%d", i)));
    });
}

} // namespace tessel
