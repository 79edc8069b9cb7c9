#pragma once

#include "platform/bulletins/BulletinDataProvider.h"
#include "platform/bulletins/DataProviderProxy.h"

#include <memory>
#include <string>

namespace tessel {

// A data provider hosted outside the bulletin service, reached through a
// connection that hands it its proxy.
class RemoteDataProvider : public BulletinDataProvider {
public:
    virtual std::shared_ptr<DataProviderProxy> proxy() const = 0;
    virtual void setProxy(std::shared_ptr<DataProviderProxy> proxy) = 0;
    virtual std::string _sortKey() const = 0;
    virtual bool _isPushDataProvider() const = 0;
};

} // namespace tessel
