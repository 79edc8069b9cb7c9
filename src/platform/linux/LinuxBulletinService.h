#pragma once

#include "platform/bulletins/HostingBulletinService.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace tessel {

class SectionInfoDatabase;
class SystemLog;

// The bulletin service of a Linux machine: providers are hosted in this
// process, their bulletins go to the system log until a display service is
// attached, and section settings live in the Library's SQLite database, so the
// user's choices survive restarts.
class LinuxBulletinService final : public HostingBulletinService {
public:
    // databasePath: the Library's SQLite file; log: where bulletins are reported.
    LinuxBulletinService(const std::string& databasePath, std::shared_ptr<SystemLog> log);
    ~LinuxBulletinService() override;

    // The user's side: stores the section's settings and tells its provider.
    void setSectionInfo(const SectionInfo& sectionInfo) override;

    std::shared_ptr<DataProviderProxy> hostDataProvider(
        std::shared_ptr<RemoteDataProvider> provider, std::shared_ptr<WorkQueue> queue) override;
    void unhostDataProvider(const std::string& sectionID) override;
    std::optional<SectionInfo> storedSectionInfo(const std::string& sectionID) override;
    std::vector<SectionInfo> storedSectionInfos(const std::set<std::string>* sectionIDs) override;
    void storeSectionInfoFromGateway(const SectionInfo& sectionInfo) override;

private:
    class Proxy;
    struct Host {
        std::shared_ptr<RemoteDataProvider> provider;
        std::shared_ptr<WorkQueue> queue;
        std::shared_ptr<Proxy> proxy;
    };

    // Stores, and on a change tells the hosting provider on its queue.
    void store(const SectionInfo& sectionInfo);

    const std::unique_ptr<SectionInfoDatabase> _database;
    const std::shared_ptr<SystemLog> _log;
    std::mutex _lock;
    std::map<std::string, Host> _hosts;
};

} // namespace tessel
