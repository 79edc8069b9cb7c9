#include "platform/sim/SimulatedBulletinService.h"

#include "platform/bulletins/DataProviderProxy.h"
#include "platform/bulletins/RemoteDataProvider.h"
#include "platform/concurrency/WorkQueue.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace tessel {

struct SimulatedBulletinService::Host {
    std::shared_ptr<RemoteDataProvider> provider;
    std::shared_ptr<WorkQueue> queue;
    std::shared_ptr<Proxy> proxy;
};

struct SimulatedBulletinService::State {
    struct Section {
        std::vector<Event> events;
        BulletinSet shown;
        Value clearedInfo;
        std::optional<SectionInfo> info;
        size_t gatewayWrites = 0;
    };

    void removeShown(const std::string& sectionID, const BulletinSet& bulletins)
    {
        std::lock_guard guard(lock);
        std::erase_if(sections[sectionID].shown, [&](const BulletinRequest& shown) {
            return std::any_of(bulletins.begin(), bulletins.end(), [&](const auto& bulletin) {
                return bulletin.publisherBulletinID == shown.publisherBulletinID;
            });
        });
    }

    std::mutex lock;
    std::map<std::string, Section> sections;
    std::map<std::string, Host> hosts;
};

class SimulatedBulletinService::Proxy final : public DataProviderProxy {
public:
    Proxy(std::weak_ptr<State> state, std::string sectionID)
        : _state(std::move(state))
        , _sectionID(std::move(sectionID))
    {
    }

    void addBulletin(const BulletinRequest& bulletin, bool interrupt) override
    {
        add({ .kind = Event::Kind::Add,
            .bulletin = bulletin,
            .interrupt = interrupt,
            .publisherBulletinID = bulletin.publisherBulletinID });
    }
    void addBulletin(const BulletinRequest& bulletin, BulletinDestinations destinations) override
    {
        add({ .kind = Event::Kind::Add,
            .bulletin = bulletin,
            .destinations = destinations,
            .publisherBulletinID = bulletin.publisherBulletinID });
    }
    void withdrawBulletinWithPublisherBulletinID(const std::string& publisherBulletinID) override
    {
        withSection([&](State::Section& section) {
            section.events.push_back(
                { .kind = Event::Kind::Withdraw, .publisherBulletinID = publisherBulletinID });
            std::erase_if(section.shown, [&](const BulletinRequest& shown) {
                return shown.publisherBulletinID == publisherBulletinID;
            });
        });
    }
    void invalidateBulletins() override
    {
        withSection([&](State::Section& section) {
            section.events.push_back({ .kind = Event::Kind::Invalidate });
            section.shown.clear();
        });
    }
    void updateClearedInfoWithHandler(ClearedInfoHandler handler) override
    {
        Value current;
        if (!withSection([&](State::Section& section) { current = section.clearedInfo; }))
            return;
        // The handler runs unlocked; it may be anything.
        Value replacement = handler ? handler(current) : current;
        withSection([&](State::Section& section) { section.clearedInfo = replacement; });
    }

    void invalidate()
    {
        std::lock_guard guard(_lock);
        _valid = false;
    }

private:
    template <typename F> bool withSection(F&& body)
    {
        auto state = _state.lock();
        if (!state)
            return false;
        {
            std::lock_guard guard(_lock);
            if (!_valid)
                return false;
        }
        std::lock_guard guard(state->lock);
        body(state->sections[_sectionID]);
        return true;
    }

    void add(Event event)
    {
        withSection([&](State::Section& section) {
            std::erase_if(section.shown, [&](const BulletinRequest& shown) {
                return shown.publisherBulletinID == event.publisherBulletinID;
            });
            section.shown.push_back(*event.bulletin);
            section.events.push_back(std::move(event));
        });
    }

    std::weak_ptr<State> _state;
    const std::string _sectionID;
    std::mutex _lock;
    bool _valid = true;
};

SimulatedBulletinService::SimulatedBulletinService()
    : _state(std::make_shared<State>())
{
}

SimulatedBulletinService::~SimulatedBulletinService()
{
    std::lock_guard guard(_state->lock);
    for (auto& [sectionID, host] : _state->hosts)
        host.proxy->invalidate();
}

std::shared_ptr<DataProviderProxy> SimulatedBulletinService::addDataProvider(
    std::shared_ptr<RemoteDataProvider> provider, std::shared_ptr<WorkQueue> queue)
{
    auto sectionID = queue->sync([&] { return provider->sectionIdentifier(); });
    auto proxy = std::make_shared<Proxy>(_state, sectionID);
    {
        std::lock_guard guard(_state->lock);
        if (auto old = _state->hosts.find(sectionID); old != _state->hosts.end())
            old->second.proxy->invalidate();
        _state->hosts[sectionID] = { provider, queue, proxy };
    }
    auto defaultInfo = queue->sync([&] {
        provider->setProxy(proxy);
        provider->dataProviderDidLoad();
        return provider->defaultSectionInfo();
    });
    std::lock_guard guard(_state->lock);
    auto& section = _state->sections[sectionID];
    if (!section.info)
        section.info = defaultInfo;
    return proxy;
}

void SimulatedBulletinService::removeDataProviderWithSectionID(const std::string& sectionID)
{
    std::lock_guard guard(_state->lock);
    auto found = _state->hosts.find(sectionID);
    if (found == _state->hosts.end())
        return;
    found->second.proxy->invalidate();
    _state->hosts.erase(found);
}

bool SimulatedBulletinService::hostsSection(const std::string& sectionID) const
{
    return host(sectionID).has_value();
}

std::optional<SimulatedBulletinService::Host> SimulatedBulletinService::host(
    const std::string& sectionID) const
{
    std::lock_guard guard(_state->lock);
    auto found = _state->hosts.find(sectionID);
    if (found == _state->hosts.end())
        return std::nullopt;
    return found->second;
}

std::vector<SimulatedBulletinService::Event> SimulatedBulletinService::events(
    const std::string& sectionID) const
{
    std::lock_guard guard(_state->lock);
    auto found = _state->sections.find(sectionID);
    return found == _state->sections.end() ? std::vector<Event>() : found->second.events;
}

void SimulatedBulletinService::clearEvents(const std::string& sectionID)
{
    std::lock_guard guard(_state->lock);
    _state->sections[sectionID].events.clear();
}

BulletinSet SimulatedBulletinService::shownBulletins(const std::string& sectionID) const
{
    std::lock_guard guard(_state->lock);
    auto found = _state->sections.find(sectionID);
    return found == _state->sections.end() ? BulletinSet() : found->second.shown;
}

Value SimulatedBulletinService::clearedInfo(const std::string& sectionID) const
{
    std::lock_guard guard(_state->lock);
    auto found = _state->sections.find(sectionID);
    return found == _state->sections.end() ? Value() : found->second.clearedInfo;
}

void SimulatedBulletinService::setClearedInfo(const Value& clearedInfo, const std::string& sectionID)
{
    std::lock_guard guard(_state->lock);
    _state->sections[sectionID].clearedInfo = clearedInfo;
}

std::optional<SectionInfo> SimulatedBulletinService::sectionInfo(const std::string& sectionID) const
{
    std::lock_guard guard(_state->lock);
    auto found = _state->sections.find(sectionID);
    return found == _state->sections.end() ? std::nullopt : found->second.info;
}

void SimulatedBulletinService::setSectionInfo(const SectionInfo& sectionInfo)
{
    {
        std::lock_guard guard(_state->lock);
        _state->sections[sectionInfo.sectionID].info = sectionInfo;
    }
    if (auto hosted = host(sectionInfo.sectionID))
        hosted->queue->sync([&] { hosted->provider->noteSectionInfoDidChange(sectionInfo); });
}

size_t SimulatedBulletinService::gatewayWrites(const std::string& sectionID) const
{
    std::lock_guard guard(_state->lock);
    auto found = _state->sections.find(sectionID);
    return found == _state->sections.end() ? 0 : found->second.gatewayWrites;
}

std::shared_ptr<DataProviderProxy> SimulatedBulletinService::hostDataProvider(
    std::shared_ptr<RemoteDataProvider> provider, std::shared_ptr<WorkQueue> queue)
{
    return addDataProvider(std::move(provider), std::move(queue));
}

void SimulatedBulletinService::unhostDataProvider(const std::string& sectionID)
{
    removeDataProviderWithSectionID(sectionID);
}

std::optional<SectionInfo> SimulatedBulletinService::storedSectionInfo(const std::string& sectionID)
{
    return sectionInfo(sectionID);
}

std::vector<SectionInfo> SimulatedBulletinService::storedSectionInfos(const std::set<std::string>* sectionIDs)
{
    std::lock_guard guard(_state->lock);
    std::vector<SectionInfo> infos;
    for (const auto& [sectionID, section] : _state->sections) {
        if (section.info && (!sectionIDs || sectionIDs->contains(sectionID)))
            infos.push_back(*section.info);
    }
    return infos;
}

void SimulatedBulletinService::storeSectionInfoFromGateway(const SectionInfo& sectionInfo)
{
    bool changed;
    {
        std::lock_guard guard(_state->lock);
        auto& section = _state->sections[sectionInfo.sectionID];
        section.gatewayWrites++;
        changed = section.info != sectionInfo;
        section.info = sectionInfo;
    }
    if (!changed)
        return;
    // The gateway's caller may be the provider's queue itself.
    if (auto hosted = host(sectionInfo.sectionID)) {
        hosted->queue->async(
            [provider = hosted->provider, sectionInfo] { provider->noteSectionInfoDidChange(sectionInfo); });
    }
}

std::optional<BulletinSet> SimulatedBulletinService::requestBulletins(
    const std::string& sectionID, const BulletinRequestParameters& parameters)
{
    auto hosted = host(sectionID);
    if (!hosted)
        return std::nullopt;
    auto lastCleared = clearedInfo(sectionID);
    return hosted->queue->sync(
        [&] { return hosted->provider->bulletinsWithRequestParameters(parameters, lastCleared); });
}

DataProviderClearedInfo SimulatedBulletinService::clearAllBulletins(
    const std::string& sectionID, uint64_t limit)
{
    auto hosted = host(sectionID);
    if (!hosted)
        return {};
    auto lastCleared = clearedInfo(sectionID);
    auto result = hosted->queue->sync([&] {
        return hosted->provider->clearedInfoAndBulletinsForClearingAllBulletinsWithLimit(limit, lastCleared);
    });
    setClearedInfo(result.clearedInfo, sectionID);
    _state->removeShown(sectionID, result.clearedBulletins);
    return result;
}

void SimulatedBulletinService::clearBulletins(const std::string& sectionID, const BulletinSet& bulletins)
{
    auto hosted = host(sectionID);
    if (!hosted)
        return;
    auto lastCleared = clearedInfo(sectionID);
    auto info = hosted->queue->sync(
        [&] { return hosted->provider->clearedInfoForBulletins(bulletins, lastCleared); });
    setClearedInfo(info, sectionID);
    _state->removeShown(sectionID, bulletins);
}

std::optional<Bytes> SimulatedBulletinService::attachmentPNGData(
    const std::string& sectionID, const std::string& recordID, const ThumbnailSizeConstraints& constraints)
{
    auto hosted = host(sectionID);
    if (!hosted)
        return std::nullopt;
    return hosted->queue->sync(
        [&] { return hosted->provider->attachmentPNGDataForRecordID(recordID, constraints); });
}

std::optional<float> SimulatedBulletinService::attachmentAspectRatio(
    const std::string& sectionID, const std::string& recordID)
{
    auto hosted = host(sectionID);
    if (!hosted)
        return std::nullopt;
    return hosted->queue->sync([&] { return hosted->provider->attachmentAspectRatioForRecordID(recordID); });
}

} // namespace tessel
