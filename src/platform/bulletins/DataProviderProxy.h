#pragma once

#include "platform/bulletins/BulletinDestinations.h"
#include "platform/bulletins/BulletinRequest.h"
#include "platform/foundation/Value.h"

#include <functional>
#include <string>

namespace tessel {

// A data provider's channel to the bulletin service, for its own section.
class DataProviderProxy {
public:
    // Receives the section's cleared info and answers its replacement.
    using ClearedInfoHandler = std::function<Value(const Value& clearedInfo)>;

    virtual ~DataProviderProxy() = default;

    virtual void addBulletin(const BulletinRequest& bulletin, bool interrupt) = 0;
    virtual void addBulletin(const BulletinRequest& bulletin, BulletinDestinations destinations) = 0;
    virtual void withdrawBulletinWithPublisherBulletinID(const std::string& publisherBulletinID) = 0;
    // Drops everything shown for the section; the service asks again.
    virtual void invalidateBulletins() = 0;
    virtual void updateClearedInfoWithHandler(ClearedInfoHandler handler) = 0;
};

} // namespace tessel
