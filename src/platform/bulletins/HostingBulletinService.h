#pragma once

#include "platform/bulletins/BulletinService.h"
#include "platform/bulletins/SectionInfo.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tessel {

class DataProviderProxy;
class RemoteDataProvider;

// A bulletin service that hosts providers of this process and keeps section
// settings somewhere of its own. Connections and gateways are made here once;
// a service says only how it hosts and where the settings live. They hold the
// service weakly: once it is gone their calls do nothing.
class HostingBulletinService : public BulletinService,
                               public std::enable_shared_from_this<HostingBulletinService> {
public:
    std::shared_ptr<DataProviderConnection> makeDataProviderConnection(
        const std::string& serviceName, std::shared_ptr<WorkQueue> queue) override;
    std::shared_ptr<SettingsGateway> makeSettingsGateway(std::shared_ptr<WorkQueue> queue) override;

    // Starts calling the provider on queue and answers its proxy. Never called
    // from queue: hosting waits for the provider's answers there.
    virtual std::shared_ptr<DataProviderProxy> hostDataProvider(
        std::shared_ptr<RemoteDataProvider> provider, std::shared_ptr<WorkQueue> queue)
        = 0;
    virtual void unhostDataProvider(const std::string& sectionID) = 0;

    virtual std::optional<SectionInfo> storedSectionInfo(const std::string& sectionID) = 0;
    // All known sections when sectionIDs is null.
    virtual std::vector<SectionInfo> storedSectionInfos(const std::set<std::string>* sectionIDs) = 0;
    // A write from a gateway, possibly on the hosting provider's queue: the
    // provider hears of a change later, on its queue.
    virtual void storeSectionInfoFromGateway(const SectionInfo& sectionInfo) = 0;
    // The user's side: stores the section's settings and tells its provider.
    virtual void setSectionInfo(const SectionInfo& sectionInfo) = 0;
};

} // namespace tessel
