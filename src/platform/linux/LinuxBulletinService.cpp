#include "platform/linux/LinuxBulletinService.h"

#include "platform/bulletins/DataProviderProxy.h"
#include "platform/bulletins/RemoteDataProvider.h"
#include "platform/bulletins/SectionInfoDatabase.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/foundation/Format.h"
#include "platform/logging/SystemLog.h"

#include <atomic>

namespace tessel {

class LinuxBulletinService::Proxy final : public DataProviderProxy {
public:
    Proxy(std::shared_ptr<SystemLog> log, std::string sectionID)
        : _log(std::move(log))
        , _sectionID(std::move(sectionID))
    {
    }

    void addBulletin(const BulletinRequest& bulletin, bool) override { report(bulletin); }
    void addBulletin(const BulletinRequest& bulletin, BulletinDestinations) override { report(bulletin); }
    void withdrawBulletinWithPublisherBulletinID(const std::string&) override { }
    void invalidateBulletins() override { }
    void updateClearedInfoWithHandler(ClearedInfoHandler) override { }

    void invalidate() { _valid = false; }

private:
    void report(const BulletinRequest& bulletin)
    {
        if (_valid && _log) {
            _log->log(LogPriority::Info,
                format("Bulletin for %@: %@ %@", _sectionID, bulletin.title.value_or(""),
                    bulletin.message.value_or("")));
        }
    }

    const std::shared_ptr<SystemLog> _log;
    const std::string _sectionID;
    std::atomic<bool> _valid { true };
};

LinuxBulletinService::LinuxBulletinService(const std::string& databasePath, std::shared_ptr<SystemLog> log)
    : _database(std::make_unique<SectionInfoDatabase>(databasePath, log))
    , _log(std::move(log))
{
}

LinuxBulletinService::~LinuxBulletinService()
{
    std::lock_guard guard(_lock);
    for (auto& [sectionID, host] : _hosts)
        host.proxy->invalidate();
}

std::shared_ptr<DataProviderProxy> LinuxBulletinService::hostDataProvider(
    std::shared_ptr<RemoteDataProvider> provider, std::shared_ptr<WorkQueue> queue)
{
    auto sectionID = queue->sync([&] { return provider->sectionIdentifier(); });
    auto proxy = std::make_shared<Proxy>(_log, sectionID);
    {
        std::lock_guard guard(_lock);
        if (auto old = _hosts.find(sectionID); old != _hosts.end())
            old->second.proxy->invalidate();
        _hosts[sectionID] = { provider, queue, proxy };
    }
    auto defaultInfo = queue->sync([&] {
        provider->setProxy(proxy);
        provider->dataProviderDidLoad();
        return provider->defaultSectionInfo();
    });
    if (!_database->sectionInfo(sectionID)) {
        defaultInfo.sectionID = sectionID;
        _database->setSectionInfo(defaultInfo);
    }
    return proxy;
}

void LinuxBulletinService::unhostDataProvider(const std::string& sectionID)
{
    std::lock_guard guard(_lock);
    auto found = _hosts.find(sectionID);
    if (found == _hosts.end())
        return;
    found->second.proxy->invalidate();
    _hosts.erase(found);
}

std::optional<SectionInfo> LinuxBulletinService::storedSectionInfo(const std::string& sectionID)
{
    return _database->sectionInfo(sectionID);
}

std::vector<SectionInfo> LinuxBulletinService::storedSectionInfos(const std::set<std::string>* sectionIDs)
{
    if (sectionIDs && sectionIDs->size() == 1) {
        auto info = _database->sectionInfo(*sectionIDs->begin());
        return info ? std::vector<SectionInfo> { *info } : std::vector<SectionInfo>();
    }
    auto infos = _database->allSectionInfos();
    if (sectionIDs)
        std::erase_if(infos, [&](const SectionInfo& info) { return !sectionIDs->contains(info.sectionID); });
    return infos;
}

void LinuxBulletinService::storeSectionInfoFromGateway(const SectionInfo& sectionInfo) { store(sectionInfo); }

void LinuxBulletinService::setSectionInfo(const SectionInfo& sectionInfo) { store(sectionInfo); }

void LinuxBulletinService::store(const SectionInfo& sectionInfo)
{
    auto old = _database->sectionInfo(sectionInfo.sectionID);
    if (!_database->setSectionInfo(sectionInfo) || old == sectionInfo)
        return;
    std::optional<Host> hosted;
    {
        std::lock_guard guard(_lock);
        if (auto found = _hosts.find(sectionInfo.sectionID); found != _hosts.end())
            hosted = found->second;
    }
    if (hosted) {
        hosted->queue->async(
            [provider = hosted->provider, sectionInfo] { provider->noteSectionInfoDidChange(sectionInfo); });
    }
}

} // namespace tessel
