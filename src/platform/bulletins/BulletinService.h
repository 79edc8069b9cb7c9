#pragma once

#include <memory>
#include <string>

namespace tessel {

class DataProviderConnection;
class SettingsGateway;
class WorkQueue;

// The platform's bulletin service, as far as the server talks to it: it hosts
// data providers and keeps each section's settings. A change the user makes to
// a section's settings reaches the owning provider's noteSectionInfoDidChange.
class BulletinService {
public:
    virtual ~BulletinService() = default;

    virtual std::shared_ptr<DataProviderConnection> makeDataProviderConnection(
        const std::string& serviceName, std::shared_ptr<WorkQueue> queue)
        = 0;
    virtual std::shared_ptr<SettingsGateway> makeSettingsGateway(std::shared_ptr<WorkQueue> queue) = 0;
};

} // namespace tessel
