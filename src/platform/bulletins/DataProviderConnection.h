#pragma once

#include <functional>
#include <memory>
#include <string>

namespace tessel {

class DataProviderProxy;
class RemoteDataProvider;

// How data providers living in this process are offered to the bulletin
// service. Completions run on the queue the connection was made for.
class DataProviderConnection {
public:
    using AddCompletion = std::function<void(std::shared_ptr<DataProviderProxy> proxy)>;

    virtual ~DataProviderConnection() = default;

    // The service calls the provider on the connection's queue from then on;
    // the completion hands over the provider's proxy.
    virtual void addDataProvider(std::shared_ptr<RemoteDataProvider> provider, AddCompletion completion) = 0;
    virtual void removeDataProviderWithSectionID(const std::string& sectionID) = 0;
    // Every provider offered through the connection is dropped; later calls do nothing.
    virtual void invalidate() = 0;
};

} // namespace tessel
