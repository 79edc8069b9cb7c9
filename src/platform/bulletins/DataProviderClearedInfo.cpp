#include "platform/bulletins/DataProviderClearedInfo.h"

#include "platform/foundation/Format.h"

namespace tessel {

std::string DataProviderClearedInfo::description() const
{
    std::string bulletins;
    for (const auto& bulletin : clearedBulletins)
        bulletins += (bulletins.empty() ? "" : ", ") + bulletin.publisherBulletinID;
    return format("{ %s = %@; %s = (%@); }", DataProviderClearedInfoKey, clearedInfo,
        DataProviderClearedBulletinsKey, bulletins);
}

} // namespace tessel
