#include "platform/location/LocationManager.h"

namespace tessel {

LocationManagerDelegate::~LocationManagerDelegate() = default;
LocationManager::~LocationManager() = default;

} // namespace tessel
