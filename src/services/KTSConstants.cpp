#include "services/KTSConstants.h"

namespace tessel {

const char* const KTSRegistrarServiceName = "com.tamber.tessel.registrar";
const char* const KTSSchedulerServiceName = "com.tamber.tessel.scheduler";
const char* const KTSRegistrarEntitlementName = "com.tamber.tessel.registrar.client";
const char* const KTSSchedulerEntitlementName = "com.tamber.tessel.scheduler.client";

} // namespace tessel
