#pragma once

#include "platform/bulletins/RemoteDataProvider.h"
#include "platform/foundation/Geometry.h"
#include "platform/foundation/Value.h"
#include "platform/records/NotificationCategory.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

class Image;
class WorkQueue;

// Presents one application's delivered notifications as bulletins: new records
// in the notification store are added, records that left it are withdrawn, and
// the bulletin service's clears delete the matching records. Also keeps the
// application's action categories, from which the buttons are built.
//
// The bulletin service calls the provider on its queue, which is shared with
// the factory and every other provider; the store's callbacks hop onto it.
class KTDefaultDataProvider final : public RemoteDataProvider,
                                    public std::enable_shared_from_this<KTDefaultDataProvider> {
public:
    // Where the categories live in the application's data store.
    static constexpr const char* categoriesKey = "VYSPushStoreRemoteNotificationCategories";

    using ImageLookup = std::function<std::shared_ptr<Image>(const std::string& recordID)>;

    // initWithSectionID:displayName:queue: registers the application with the
    // store, observes it, and takes every record already there as presented.
    // Must be owned by a shared_ptr from the start (std::make_shared).
    KTDefaultDataProvider(std::string sectionID, std::string displayName, std::shared_ptr<WorkQueue> queue);
    ~KTDefaultDataProvider() override;

    // Stops hearing from the store and drops the proxy.
    void invalidate();
    // invalidate(), and the application's stored records are given up.
    void uninstall();

    std::shared_ptr<DataProviderProxy> proxy() const override;
    void setProxy(std::shared_ptr<DataProviderProxy> proxy) override;

    // Persisted in the application's data store; anything unreadable reads as none.
    NotificationCategories categories() const;
    void setCategories(const NotificationCategories& categories);

    // BulletinDataProvider
    std::string sectionIdentifier() const override { return _sectionID; }
    std::string sectionDisplayName() const override { return _displayName; }
    std::vector<SortDescriptor> sortDescriptors() const override;
    bool syncsBulletinDismissal() const override { return true; }
    SectionParameters sectionParameters() const override;
    SectionInfo defaultSectionInfo() const override;
    std::optional<BulletinSet> bulletinsWithRequestParameters(
        const BulletinRequestParameters& parameters, const Value& lastCleared) override;
    DataProviderClearedInfo clearedInfoAndBulletinsForClearingAllBulletinsWithLimit(
        uint64_t limit, const Value& lastClearedInfo) override;
    Value clearedInfoForBulletins(const BulletinSet& bulletins, const Value& lastClearedInfo) override;
    void noteSectionInfoDidChange(const SectionInfo& sectionInfo) override;
    void dataProviderDidLoad() override;
    std::optional<Bytes> attachmentPNGDataForRecordID(
        const std::string& recordID, const ThumbnailSizeConstraints& constraints) override;
    float attachmentAspectRatioForRecordID(const std::string& recordID) override;

    // RemoteDataProvider
    std::string _sortKey() const override { return sectionDisplayName(); }
    bool _isPushDataProvider() const override { return true; }

    // Store callbacks: called off the queue, they post their work to it.
    void pushStoreNotificationsDidChange();
    void pushStoreClearedNotifications();

    // The size an attachment is drawn at for the constraints. Unusable
    // constraints, an unknown type or a result that is not a drawable size
    // answer the original size.
    static Size _sizeFromSizeConstraint(const ThumbnailSizeConstraints& constraints, Size originalSize);

    // The bulletin for a stored record; none for a record without a creation date.
    std::optional<BulletinRequest> _bulletinForNotification(const Value& notification) const;
    // Newest first, unique, only bulletins with a message; limit 0 for all.
    BulletinSet _allBulletinsWithMaxCount(uint64_t maxCount, std::optional<Date> sinceDate) const;
    std::optional<BulletinRequest> _latestBulletinInSet(const BulletinSet& bulletins) const;

    // There is no image source of our own; a lookup set here stands in for one.
    std::shared_ptr<Image> _imageForRecordID(const std::string& recordID) const;
    void setImageLookup(ImageLookup lookup);

private:
    class StoreObserver;

    static int64_t _maximumActionsForContext(int64_t context);
    // categories is read from the data store on first need and reused.
    std::optional<BulletinRequest> _bulletinForNotification(
        const Value& notification, std::optional<NotificationCategories>& categories) const;
    BulletinAction _defaultActionWithTitle(const std::optional<std::string>& title) const;
    std::optional<NotificationActions> _actionsForCategoryIdentifier(
        const Value& identifier, int64_t context, const NotificationCategories& categories) const;
    std::optional<std::vector<BulletinAction>> _supplementaryActionsForPushStoreNotification(
        const Value& notification, int64_t context, const NotificationCategories& categories) const;
    BulletinAction _bulletinActionFromNotificationAction(const NotificationAction& action) const;

    void _queue_notificationsDidChange();
    void _queue_clearedNotifications();
    void _cleanupMigrationFromCalderaWithLastClearedDate(Date lastClearedDate);

    Value _savedNotifications() const;

    const std::string _sectionID;
    std::vector<std::string> _publisherBulletinIDs;
    const std::string _displayName;
    std::shared_ptr<DataProviderProxy> _proxy;
    const std::shared_ptr<WorkQueue> _queue;

    std::shared_ptr<StoreObserver> _storeObserver;
    mutable std::mutex _lock; // the proxy and the image lookup, set from the hosting side
    ImageLookup _imageLookup;
    // The provider is the categories' only writer, so what it last read or
    // wrote stays true; an application registers on every launch.
    mutable std::mutex _categoriesLock;
    mutable std::optional<NotificationCategories> _categories;
};

} // namespace tessel
