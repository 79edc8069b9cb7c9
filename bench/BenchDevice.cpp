#include "BenchDevice.h"

#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/linux/LinuxBulletinService.h"

namespace tessel {

SimulatedDevice& benchDevice()
{
    static SimulatedDevice shared;
    // Section settings in the durable table a machine keeps, set before any
    // benchmark makes the factory bind to the platform's bulletin service.
    static bool durableSections = [] {
        auto& platform = shared.platform();
        platform.bulletinService
            = std::make_shared<LinuxBulletinService>(platform.dataStores->path(), platform.systemLog);
        return true;
    }();
    (void)durableSections;
    return shared;
}

} // namespace tessel
