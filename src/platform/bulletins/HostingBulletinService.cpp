#include "platform/bulletins/HostingBulletinService.h"

#include "platform/bulletins/DataProviderConnection.h"
#include "platform/bulletins/DataProviderProxy.h"
#include "platform/bulletins/RemoteDataProvider.h"
#include "platform/bulletins/SettingsGateway.h"
#include "platform/concurrency/WorkQueue.h"

#include <atomic>

namespace tessel {

namespace {

    class Connection final : public DataProviderConnection {
    public:
        Connection(std::weak_ptr<HostingBulletinService> service, std::shared_ptr<WorkQueue> queue)
            : _service(std::move(service))
            , _queue(std::move(queue))
        {
        }

        void addDataProvider(std::shared_ptr<RemoteDataProvider> provider, AddCompletion completion) override
        {
            if (_invalid || !provider)
                return;
            // Hosting waits on the provider's queue, which is usually the caller's.
            WorkQueue::global().async([service = _service, queue = _queue, provider = std::move(provider),
                                          completion = std::move(completion)] {
                auto strong = service.lock();
                if (!strong)
                    return;
                auto proxy = strong->hostDataProvider(provider, queue);
                if (completion)
                    queue->async([completion, proxy] { completion(proxy); });
            });
        }

        void removeDataProviderWithSectionID(const std::string& sectionID) override
        {
            if (_invalid)
                return;
            if (auto service = _service.lock())
                service->unhostDataProvider(sectionID);
        }

        void invalidate() override { _invalid = true; }

    private:
        std::weak_ptr<HostingBulletinService> _service;
        std::shared_ptr<WorkQueue> _queue;
        std::atomic<bool> _invalid { false };
    };

    class Gateway final : public SettingsGateway {
    public:
        Gateway(std::weak_ptr<HostingBulletinService> service, std::shared_ptr<WorkQueue> queue)
            : _service(std::move(service))
            , _queue(std::move(queue))
        {
        }

        // Reads happen when the completion runs, on the queue, so a caller that
        // writes from its completion never works from a stale record.
        void getSectionInfoForSectionID(
            const std::string& sectionID, SectionInfoCompletion completion) override
        {
            if (!live() || !completion)
                return;
            _queue->async([service = _service, sectionID, completion = std::move(completion)] {
                if (auto strong = service.lock())
                    completion(strong->storedSectionInfo(sectionID));
            });
        }

        void getSectionInfoForSectionIDs(
            const std::set<std::string>& sectionIDs, SectionInfosCompletion completion) override
        {
            if (!live() || !completion)
                return;
            _queue->async([service = _service, sectionIDs, completion = std::move(completion)] {
                if (auto strong = service.lock())
                    completion(sectionIDs.empty() ? std::vector<SectionInfo>()
                                                  : strong->storedSectionInfos(&sectionIDs));
            });
        }

        void getSectionInfoWithCompletion(SectionInfosCompletion completion) override
        {
            if (!live() || !completion)
                return;
            _queue->async([service = _service, completion = std::move(completion)] {
                if (auto strong = service.lock())
                    completion(strong->storedSectionInfos(nullptr));
            });
        }

        void setSectionInfo(const SectionInfo& sectionInfo, const std::string& sectionID) override
        {
            auto service = live();
            if (!service)
                return;
            SectionInfo stored = sectionInfo;
            stored.sectionID = sectionID;
            service->storeSectionInfoFromGateway(stored);
        }

        void updateSectionInfoForSectionID(const std::string& sectionID, UpdateHandler handler) override
        {
            if (!live() || !handler)
                return;
            // Read and write together on the queue, like the reads above.
            _queue->async([service = _service, sectionID, handler = std::move(handler)] {
                auto strong = service.lock();
                if (!strong)
                    return;
                auto current = strong->storedSectionInfo(sectionID);
                if (!current)
                    return;
                auto replacement = handler(*current);
                replacement.sectionID = sectionID;
                strong->storeSectionInfoFromGateway(replacement);
            });
        }

        void invalidate() override { _invalid = true; }

    private:
        std::shared_ptr<HostingBulletinService> live() const { return _invalid ? nullptr : _service.lock(); }

        std::weak_ptr<HostingBulletinService> _service;
        std::shared_ptr<WorkQueue> _queue;
        std::atomic<bool> _invalid { false };
    };

} // namespace

std::shared_ptr<DataProviderConnection> HostingBulletinService::makeDataProviderConnection(
    const std::string&, std::shared_ptr<WorkQueue> queue)
{
    return std::make_shared<Connection>(weak_from_this(), std::move(queue));
}

std::shared_ptr<SettingsGateway> HostingBulletinService::makeSettingsGateway(std::shared_ptr<WorkQueue> queue)
{
    return std::make_shared<Gateway>(weak_from_this(), std::move(queue));
}

} // namespace tessel
