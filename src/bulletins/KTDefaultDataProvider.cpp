#include "bulletins/KTDefaultDataProvider.h"

#include "core/KTNotificationSettingsChange.h"
#include "core/KTSectionInfoAdditions.h"
#include "platform/Platform.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/NotificationCenter.h"
#include "platform/logging/SystemLog.h"
#include "platform/processes/SystemService.h"
#include "platform/records/NotificationSettings.h"
#include "store/KTNotificationStore.h"

#include <algorithm>
#include <map>
#include <set>
#include <tessel/Tessel.h>

namespace tessel {

namespace {

    constexpr int64_t defaultSoundID = 1015;
    constexpr int64_t soundBehavior = 1;

    std::optional<std::string> optionalString(const Value& value)
    {
        if (!value.isString())
            return std::nullopt;
        return value.stringValue();
    }

    // Nil equals nil; a value of another type equals nothing.
    bool matchesString(const std::optional<std::string>& bulletinValue, const Value& recordValue)
    {
        if (recordValue.isNull())
            return !bulletinValue;
        return bulletinValue && recordValue.isString() && recordValue.stringValue() == *bulletinValue;
    }

    bool matchesDate(const std::optional<Date>& bulletinValue, const Value& recordValue)
    {
        if (recordValue.isNull())
            return !bulletinValue;
        return bulletinValue && recordValue.isDate() && recordValue.dateValue() == *bulletinValue;
    }

    std::optional<std::string> publisherBulletinID(const Value& record)
    {
        if (!record.isDictionary())
            return std::nullopt;
        return KTNotificationStore::uniqueIdentifierForNotification(record);
    }

} // namespace

// The store holds its observers strongly; this stands in for the provider so
// that the provider's lifetime stays its owner's business.
class KTDefaultDataProvider::StoreObserver final : public KTNotificationStoreObserver {
public:
    explicit StoreObserver(KTDefaultDataProvider* provider)
        : _provider(provider)
    {
    }

    void pushStoreNotificationsDidChange() override
    {
        if (auto provider = strongProvider())
            provider->pushStoreNotificationsDidChange();
    }
    void pushStoreClearedNotifications() override
    {
        if (auto provider = strongProvider())
            provider->pushStoreClearedNotifications();
    }
    void detach()
    {
        std::lock_guard lock(_lock);
        _provider = nullptr;
    }

private:
    std::shared_ptr<KTDefaultDataProvider> strongProvider()
    {
        std::lock_guard lock(_lock);
        // Expired once the provider's destruction has begun.
        return _provider ? _provider->weak_from_this().lock() : nullptr;
    }

    std::mutex _lock;
    KTDefaultDataProvider* _provider;
};

KTDefaultDataProvider::KTDefaultDataProvider(
    std::string sectionID, std::string displayName, std::shared_ptr<WorkQueue> queue)
    : _sectionID(std::move(sectionID))
    , _displayName(std::move(displayName))
    , _queue(std::move(queue))
    , _storeObserver(std::make_shared<StoreObserver>(this))
{
    auto store = KTNotificationStore::sharedInstance();
    store->registerAppForNotificationsWithBundleID(_sectionID);
    store->addObserver(_storeObserver, _sectionID);
    // Whatever is stored already is already on screen.
    auto saved = store->savedNotificationsForBundleID(_sectionID);
    for (const auto& record : saved.arrayValue()) {
        if (auto identifier = publisherBulletinID(record))
            _publisherBulletinIDs.push_back(std::move(*identifier));
    }
}

KTDefaultDataProvider::~KTDefaultDataProvider() { invalidate(); }

void KTDefaultDataProvider::invalidate()
{
    std::shared_ptr<StoreObserver> observer;
    std::shared_ptr<DataProviderProxy> proxy;
    {
        std::lock_guard lock(_lock);
        observer = std::move(_storeObserver);
        proxy = std::move(_proxy);
    }
    if (observer) {
        observer->detach();
        KTNotificationStore::sharedInstance()->removeObserver(observer, _sectionID);
    }
    if (Platform::isInstalled() && Platform::current().notificationCenter)
        Platform::current().notificationCenter->removeObserver(this);
}

void KTDefaultDataProvider::uninstall()
{
    invalidate();
    KTNotificationStore::sharedInstance()->unregisterAppForNotificationsWithBundleID(_sectionID);
}

std::shared_ptr<DataProviderProxy> KTDefaultDataProvider::proxy() const
{
    std::lock_guard lock(_lock);
    return _proxy;
}

void KTDefaultDataProvider::setProxy(std::shared_ptr<DataProviderProxy> proxy)
{
    std::lock_guard lock(_lock);
    _proxy = std::move(proxy);
}

NotificationCategories KTDefaultDataProvider::categories() const
{
    std::lock_guard lock(_categoriesLock);
    if (_categories)
        return *_categories;
    auto dataStore = ApplicationDataStore::storeForApplication(_sectionID);
    if (!dataStore)
        return {};
    NotificationSettings::registerArchivableClasses();
    UnarchiveOptions options;
    options.allowedClasses
        = { NotificationCategory::archivedClassName, NotificationAction::archivedClassName };
    auto archived = dataStore->archivedObjectForKey(categoriesKey, options, Value::Type::Array);
    NotificationCategories categories;
    for (const auto& element : archived.arrayValue()) {
        if (auto category = element.objectAs<NotificationCategory>())
            categories.push_back(std::move(category));
    }
    _categories = NotificationCategory::uniqued(categories);
    return *_categories;
}

void KTDefaultDataProvider::setCategories(const NotificationCategories& categories)
{
    std::lock_guard lock(_categoriesLock);
    auto dataStore = ApplicationDataStore::storeForApplication(_sectionID);
    if (!dataStore)
        return;
    auto uniqued = NotificationCategory::uniqued(categories);
    Value::Array set(uniqued.begin(), uniqued.end());
    // A failed write leaves the next read to say what the store holds.
    if (dataStore->setArchivedObject(Value(std::move(set)), categoriesKey))
        _categories = std::move(uniqued);
    else
        _categories.reset();
}

std::vector<SortDescriptor> KTDefaultDataProvider::sortDescriptors() const { return { { "date", false } }; }

SectionParameters KTDefaultDataProvider::sectionParameters() const
{
    SectionParameters parameters;
    parameters.usesVariableLayout = true;
    parameters.messageNumberOfLines = 4;
    parameters.defaultSubtypeParameters.suppressesAlertsWhenAppIsActive = true;
    parameters.defaultSubtypeParameters.suppressesTitle = true;
    return parameters;
}

SectionInfo KTDefaultDataProvider::defaultSectionInfo() const
{
    auto info = SectionInfo::defaultSectionInfoForType(0);
    info.sectionID = _sectionID;
    // Off until the user authorizes the application.
    info.allowsNotifications = false;
    info.pushSettings = 0;
    return info;
}

void KTDefaultDataProvider::dataProviderDidLoad()
{
    Platform::log(LogPriority::Info, format("dataProviderDidLoad: %@", _sectionID));
}

// Building bulletins

int64_t KTDefaultDataProvider::_maximumActionsForContext(int64_t context)
{
    return context == NotificationAction::ContextMinimal ? 2 : 4;
}

BulletinAction KTDefaultDataProvider::_defaultActionWithTitle(const std::optional<std::string>& title) const
{
    auto action = BulletinAction::launchActionForBundleID(_sectionID);
    action.activationMode = BulletinAction::ActivationModeForeground;
    if (title)
        action.appearance = ActionAppearance { .title = *title };
    return action;
}

std::optional<NotificationActions> KTDefaultDataProvider::_actionsForCategoryIdentifier(
    const Value& identifier, int64_t context, const NotificationCategories& categories) const
{
    if (!identifier.isString())
        return std::nullopt;
    for (const auto& category : categories) {
        if (category->identifier() != identifier.stringValue())
            continue;
        const auto& actions = category->actionsForContext(context);
        auto count = std::min<size_t>(actions.size(), _maximumActionsForContext(context));
        return NotificationActions(actions.begin(), actions.begin() + count);
    }
    return std::nullopt;
}

std::optional<std::vector<BulletinAction>>
KTDefaultDataProvider::_supplementaryActionsForPushStoreNotification(
    const Value& notification, int64_t context, const NotificationCategories& categories) const
{
    auto actions
        = _actionsForCategoryIdentifier(notification[KTNotificationStoreCategoryKey], context, categories);
    if (!actions || actions->empty())
        return std::nullopt;
    std::vector<BulletinAction> bulletinActions;
    for (const auto& action : *actions) {
        auto bulletinAction = _bulletinActionFromNotificationAction(*action);
        if (action->isDestructive())
            bulletinAction.appearance->style = ActionAppearance::StyleDestructive;
        bulletinActions.push_back(std::move(bulletinAction));
    }
    return bulletinActions;
}

BulletinAction KTDefaultDataProvider::_bulletinActionFromNotificationAction(
    const NotificationAction& action) const
{
    BulletinAction bulletinAction;
    bulletinAction.identifier = action.identifier();
    bulletinAction.appearance = ActionAppearance { .title = action.title() };
    bulletinAction.launchBundleID = _sectionID;
    bulletinAction.activationMode = action.activationMode() == NotificationAction::ActivationModeBackground
        ? BulletinAction::ActivationModeBackground
        : BulletinAction::ActivationModeForeground;
    bulletinAction.behavior = action.behavior() == NotificationAction::BehaviorTextInput
        ? BulletinAction::BehaviorTextInput
        : BulletinAction::BehaviorDefault;
    bulletinAction.behaviorParameters = action.parameters();
    bulletinAction.authenticationRequired = action.isAuthenticationRequired();
    return bulletinAction;
}

std::optional<BulletinRequest> KTDefaultDataProvider::_bulletinForNotification(
    const Value& notification) const
{
    std::optional<NotificationCategories> categories;
    return _bulletinForNotification(notification, categories);
}

std::optional<BulletinRequest> KTDefaultDataProvider::_bulletinForNotification(
    const Value& notification, std::optional<NotificationCategories>& categories) const
{
    if (!notification.isDictionary())
        return std::nullopt;
    const Value& created = notification[KTNotificationStoreCreationDateKey];
    if (!created.isDate())
        return std::nullopt;
    auto identifier = KTNotificationStore::uniqueIdentifierForNotification(notification);
    if (!identifier)
        return std::nullopt;

    auto message = optionalString(notification[KTNotificationStoreMessageKey]);
    auto actionText = optionalString(notification[KTNotificationStoreActionTextKey]);
    auto title = optionalString(notification[KTNotificationStoreTitleKey]);
    const Value& type = notification[KTNotificationStoreNotificationTypeKey];
    bool isRemote = type.isString() && type.stringValue() == kKTNotificationStoreNotificationTypeRemote;
    const Value& userInfo = notification[KTNotificationStoreUserInfoKey];
    const Value& launchImage = notification[KTNotificationStoreLaunchImageKey];
    const Value& localNotificationData = notification[KTNotificationStoreLocalNotificationDataKey];

    std::optional<BulletinSound> sound;
    if (auto soundName = optionalString(notification[KTNotificationStoreSoundKey])) {
        const Value& isRingtone = notification[KTNotificationStoreSoundIsRingtoneKey];
        if (isRingtone.isNumber() && isRingtone.boolValue())
            sound = BulletinSound::ringtone(*soundName, {}, false);
        else if (*soundName == kKTNotificationStoreSoundDefault)
            sound = BulletinSound::systemSound(defaultSoundID, soundBehavior);
        else
            sound = BulletinSound::systemSoundPath(*soundName, soundBehavior);
    }

    BulletinRequest bulletin;
    bulletin.defaultAction = _defaultActionWithTitle(actionText);
    bulletin.date = created.dateValue();
    bulletin.message = std::move(message);
    bulletin.section = _sectionID;
    bulletin.title = std::move(title);
    bulletin.sound = std::move(sound);
    bulletin.unlockActionLabel = actionText;
    bulletin.publisherBulletinID = *identifier;
    bulletin.recordID = *identifier;
    bulletin.dateFormatStyle = 1;

    // The store is only read for records that name a category.
    std::optional<std::vector<BulletinAction>> normalActions;
    std::optional<std::vector<BulletinAction>> compactActions;
    if (notification[KTNotificationStoreCategoryKey].isString()) {
        if (!categories)
            categories = this->categories();
        normalActions = _supplementaryActionsForPushStoreNotification(
            notification, NotificationAction::ContextDefault, *categories);
        compactActions = _supplementaryActionsForPushStoreNotification(
            notification, NotificationAction::ContextMinimal, *categories);
        // An application that defines only default actions still shows the first few compactly.
        if (!compactActions && normalActions) {
            auto count = std::min<size_t>(
                normalActions->size(), _maximumActionsForContext(NotificationAction::ContextMinimal));
            compactActions.emplace(normalActions->begin(), normalActions->begin() + count);
        }
    }
    bulletin.setSupplementaryActions(std::move(normalActions), BulletinRequest::LayoutNormal);
    bulletin.setSupplementaryActions(std::move(compactActions), BulletinRequest::LayoutCompact);

    bulletin.setContextValue(type.isString() ? type : Value(), BulletinContextNotificationTypeKey);
    bulletin.setContextValue(
        isRemote && userInfo.isDictionary() ? userInfo : Value(), BulletinContextRemoteNotificationKey);
    bulletin.setContextValue(launchImage.isString() ? launchImage : Value(), BulletinContextLaunchImageKey);
    bulletin.setContextValue(localNotificationData.isData() ? localNotificationData : Value(),
        BulletinContextLocalNotificationKey);

    if (!notification[KTNotificationStoreImageURLKey].isNull())
        bulletin.primaryAttachmentType = BulletinRequest::AttachmentTypeImage;
    return bulletin;
}

// Presenting changes

Value KTDefaultDataProvider::_savedNotifications() const
{
    return KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(_sectionID);
}

void KTDefaultDataProvider::pushStoreNotificationsDidChange()
{
    KT_ASSERT_NOT_ON_QUEUE(_queue);
    _queue->async([self = shared_from_this()] { self->_queue_notificationsDidChange(); });
}

void KTDefaultDataProvider::pushStoreClearedNotifications()
{
    _queue->async([self = shared_from_this()] { self->_queue_clearedNotifications(); });
}

void KTDefaultDataProvider::_queue_notificationsDidChange()
{
    KT_ASSERT_ON_QUEUE(_queue);
    // Counted: two records with one identifier are matched one each.
    std::map<std::string, size_t> presented;
    for (const auto& identifier : _publisherBulletinIDs)
        ++presented[identifier];

    auto proxy = this->proxy();
    std::shared_ptr<SystemService> systemService
        = Platform::isInstalled() ? Platform::current().systemService : nullptr;
    auto saved = _savedNotifications();
    const auto& records = saved.arrayValue();
    std::optional<NotificationCategories> categories;
    std::vector<std::string> identifiers;
    identifiers.reserve(records.size());
    // The store keeps the newest first; present the oldest first.
    for (auto record = records.rbegin(); record != records.rend(); ++record) {
        auto identifier = publisherBulletinID(*record);
        if (!identifier)
            continue;
        auto found = presented.find(*identifier);
        if (found != presented.end() && found->second > 0) {
            --found->second;
        } else if (auto bulletin = _bulletinForNotification(*record, categories)) {
            if (proxy) {
                if (bulletin->message)
                    proxy->addBulletin(*bulletin, true);
                else if (bulletin->sound)
                    proxy->addBulletin(*bulletin, BulletinDestinations::Default);
            }
            const Value& badge = (*record)[KTNotificationStoreBadgeNumberKey];
            if (badge.isNumber() && systemService)
                systemService->setBadgeValue(badge, _sectionID);
        }
        identifiers.push_back(std::move(*identifier));
    }
    if (proxy) {
        for (const auto& [identifier, count] : presented) {
            if (count > 0)
                proxy->withdrawBulletinWithPublisherBulletinID(identifier);
        }
    }
    _publisherBulletinIDs = std::move(identifiers);
}

void KTDefaultDataProvider::_queue_clearedNotifications()
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto proxy = this->proxy();
    if (proxy) {
        for (const auto& identifier : _publisherBulletinIDs)
            proxy->withdrawBulletinWithPublisherBulletinID(identifier);
    }
    _publisherBulletinIDs.clear();
    if (proxy)
        proxy->invalidateBulletins();
}

// Requests and clears from the bulletin service

std::optional<BulletinSet> KTDefaultDataProvider::bulletinsWithRequestParameters(
    const BulletinRequestParameters& parameters, const Value& lastCleared)
{
    KT_ASSERT_ON_QUEUE(_queue);
    if (parameters.publisherDestination == BulletinDestinations::Relay
        || parameters.publisherDestination == BulletinDestinations::Mirror)
        return std::nullopt;
    if (lastCleared.isDate())
        _cleanupMigrationFromCalderaWithLastClearedDate(lastCleared.dateValue());
    return _allBulletinsWithMaxCount(parameters.maximumCount, parameters.sinceDate);
}

BulletinSet KTDefaultDataProvider::_allBulletinsWithMaxCount(
    uint64_t maxCount, std::optional<Date> sinceDate) const
{
    BulletinSet bulletins;
    std::set<std::string> taken;
    std::optional<NotificationCategories> categories;
    auto saved = _savedNotifications();
    for (const auto& record : saved.arrayValue()) {
        auto bulletin = _bulletinForNotification(record, categories);
        if (!bulletin)
            continue;
        if (sinceDate && *sinceDate > *bulletin->date)
            break;
        if (bulletin->message && !bulletin->message->empty()
            && taken.insert(bulletin->publisherBulletinID).second)
            bulletins.push_back(std::move(*bulletin));
        if (maxCount && bulletins.size() >= maxCount)
            break;
    }
    return bulletins;
}

void KTDefaultDataProvider::_cleanupMigrationFromCalderaWithLastClearedDate(Date lastClearedDate)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto removed = KTNotificationStore::sharedInstance()->removeNotificationsPassingTest(
        [&](const Value& record) {
            // A record has a bulletin exactly when it is a dictionary with a creation date.
            const Value& created = record[KTNotificationStoreCreationDateKey];
            return record.isDictionary() && created.isDate() && created.dateValue() <= lastClearedDate;
        },
        _sectionID);
    std::erase_if(_publisherBulletinIDs, [&](const std::string& identifier) {
        return std::find(removed.begin(), removed.end(), identifier) != removed.end();
    });
    // The older release kept a date as cleared info; clearing is by record now.
    if (auto proxy = this->proxy())
        proxy->updateClearedInfoWithHandler([](const Value&) { return Value(); });
}

DataProviderClearedInfo KTDefaultDataProvider::clearedInfoAndBulletinsForClearingAllBulletinsWithLimit(
    uint64_t limit, const Value&)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto bulletins = _allBulletinsWithMaxCount(limit, std::nullopt);
    KTNotificationStore::sharedInstance()->removeAllNotificationsForBundleID(_sectionID);
    _publisherBulletinIDs.clear();
    return { .clearedInfo = Value(), .clearedBulletins = std::move(bulletins) };
}

Value KTDefaultDataProvider::clearedInfoForBulletins(const BulletinSet& bulletins, const Value&)
{
    KT_ASSERT_ON_QUEUE(_queue);
    auto removed = KTNotificationStore::sharedInstance()->removeNotificationsPassingTest(
        [&](const Value& record) {
            if (!record.isDictionary())
                return false;
            return std::any_of(bulletins.begin(), bulletins.end(), [&](const BulletinRequest& bulletin) {
                return matchesDate(bulletin.date, record[KTNotificationStoreCreationDateKey])
                    && matchesString(bulletin.title, record[KTNotificationStoreTitleKey])
                    && matchesString(bulletin.message, record[KTNotificationStoreMessageKey]);
            });
        },
        _sectionID);
    std::erase_if(_publisherBulletinIDs, [&](const std::string& identifier) {
        return std::find(removed.begin(), removed.end(), identifier) != removed.end();
    });
    return {};
}

std::optional<BulletinRequest> KTDefaultDataProvider::_latestBulletinInSet(const BulletinSet& bulletins) const
{
    if (bulletins.empty())
        return std::nullopt;
    auto latest = std::max_element(bulletins.begin(), bulletins.end(),
        [](const BulletinRequest& a, const BulletinRequest& b) { return a.date < b.date; });
    return *latest;
}

void KTDefaultDataProvider::noteSectionInfoDidChange(const SectionInfo& sectionInfo)
{
    KT_ASSERT_ON_QUEUE(_queue);
    KTNotificationSettingsChange change { _sectionID, kt_isEnabled(sectionInfo) };
    Platform::current().notificationCenter->postNotification(
        KTNotificationSettingsDidChangeNotification, this, change.userInfo());
}

} // namespace tessel
