#pragma once

#include "platform/bulletins/BulletinDestinations.h"
#include "platform/bulletins/BulletinRequest.h"
#include "platform/bulletins/BulletinRequestParameters.h"
#include "platform/bulletins/DataProviderClearedInfo.h"
#include "platform/bulletins/HostingBulletinService.h"
#include "platform/bulletins/SectionInfo.h"
#include "platform/bulletins/ThumbnailSizeConstraints.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tessel {

class RemoteDataProvider;
class WorkQueue;

// The bulletin service of the simulated device: hosts data providers, records
// what they send per section and keeps each section's settings and cleared
// info. Tests play the user through it; every such call runs on the
// provider's queue, as the real service does, and waits for the answer.
// Section settings live in memory.
class SimulatedBulletinService final : public HostingBulletinService {
public:
    struct Event {
        enum class Kind { Add, Withdraw, Invalidate };
        Kind kind = Kind::Add;
        // Add: the bulletin, and how it was added: with an interrupt flag or for destinations.
        std::optional<BulletinRequest> bulletin;
        std::optional<bool> interrupt;
        std::optional<BulletinDestinations> destinations;
        // Add and Withdraw.
        std::string publisherBulletinID;
    };

    SimulatedBulletinService();
    ~SimulatedBulletinService();
    SimulatedBulletinService(const SimulatedBulletinService&) = delete;
    SimulatedBulletinService& operator=(const SimulatedBulletinService&) = delete;

    // Calls the provider on queue from now on: hands it its proxy, tells it it
    // loaded, and gives a section the service does not know yet the provider's
    // default settings. Must not be called from queue. Answers the provider's proxy.
    std::shared_ptr<DataProviderProxy> addDataProvider(
        std::shared_ptr<RemoteDataProvider> provider, std::shared_ptr<WorkQueue> queue);
    // Its proxy goes dead; what it had on show stays recorded.
    void removeDataProviderWithSectionID(const std::string& sectionID);
    bool hostsSection(const std::string& sectionID) const;

    std::vector<Event> events(const std::string& sectionID) const;
    void clearEvents(const std::string& sectionID);
    // Added and not since withdrawn or invalidated, in the order they came.
    BulletinSet shownBulletins(const std::string& sectionID) const;

    Value clearedInfo(const std::string& sectionID) const;
    void setClearedInfo(const Value& clearedInfo, const std::string& sectionID);

    // Section settings. The user setting them tells the section's provider,
    // and waits until it has heard.
    std::optional<SectionInfo> sectionInfo(const std::string& sectionID) const;
    void setSectionInfo(const SectionInfo& sectionInfo) override;
    // How many times a settings gateway wrote a section.
    size_t gatewayWrites(const std::string& sectionID) const;

    // HostingBulletinService
    std::shared_ptr<DataProviderProxy> hostDataProvider(
        std::shared_ptr<RemoteDataProvider> provider, std::shared_ptr<WorkQueue> queue) override;
    void unhostDataProvider(const std::string& sectionID) override;
    std::optional<SectionInfo> storedSectionInfo(const std::string& sectionID) override;
    std::vector<SectionInfo> storedSectionInfos(const std::set<std::string>* sectionIDs) override;
    void storeSectionInfoFromGateway(const SectionInfo& sectionInfo) override;

    // The user's side, answered by the provider. Clears take the cleared
    // bulletins off show and keep the provider's cleared info.
    std::optional<BulletinSet> requestBulletins(
        const std::string& sectionID, const BulletinRequestParameters& parameters);
    DataProviderClearedInfo clearAllBulletins(const std::string& sectionID, uint64_t limit);
    void clearBulletins(const std::string& sectionID, const BulletinSet& bulletins);
    std::optional<Bytes> attachmentPNGData(const std::string& sectionID, const std::string& recordID,
        const ThumbnailSizeConstraints& constraints);
    std::optional<float> attachmentAspectRatio(const std::string& sectionID, const std::string& recordID);

private:
    struct State;
    class Proxy;
    struct Host;

    std::optional<Host> host(const std::string& sectionID) const;

    std::shared_ptr<State> _state;
};

} // namespace tessel
