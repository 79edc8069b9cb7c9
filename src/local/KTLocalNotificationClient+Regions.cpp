#include "local/KTLocalNotificationClient.h"

#include "platform/LocalNotification.h"
#include "platform/WorkQueue.h"

namespace tessel {

// Region monitoring arrives with the location monitor; until then regions are
// kept in the schedule but nothing watches them, and no application counts as
// authorized.

void KTLocalNotificationClient::_updateLocalNotificationRegionRegistrations() { KT_ASSERT_ON_QUEUE(*_queue); }

void KTLocalNotificationClient::_invalidateLocalNotificationRegionRegistrations()
{
    KT_ASSERT_ON_QUEUE(*_queue);
}

void KTLocalNotificationClient::_removeNotificationFromRegionMonitoring(const LocalNotification&)
{
    KT_ASSERT_ON_QUEUE(*_queue);
}

bool KTLocalNotificationClient::_hasRegionRegistrations() const { return false; }

bool KTLocalNotificationClient::appIsAuthorizedForRegionMonitoring()
{
    KT_ASSERT_ON_QUEUE(*_queue);
    return false;
}

void KTLocalNotificationClient::triggerLocationArrow() { KT_ASSERT_ON_QUEUE(*_queue); }

} // namespace tessel
