#pragma once

#include "platform/bulletins/BulletinAction.h"
#include "platform/bulletins/BulletinSound.h"
#include "platform/foundation/Date.h"
#include "platform/foundation/Value.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tessel {

// Keys of a bulletin's context, what the application gets back when the user
// acts on it.
inline constexpr const char* BulletinContextNotificationTypeKey = "BulletinContextNotificationType";
inline constexpr const char* BulletinContextRemoteNotificationKey = "BulletinContextRemoteNotification";
inline constexpr const char* BulletinContextLaunchImageKey = "BulletinContextLaunchImage";
inline constexpr const char* BulletinContextLocalNotificationKey = "BulletinContextNotificationData";

// One bulletin as a data provider hands it to the bulletin service.
struct BulletinRequest {
    enum Layout : int64_t { LayoutNormal = 0, LayoutCompact = 1 };
    enum AttachmentType : int64_t { AttachmentTypeNone = 0, AttachmentTypeImage = 1 };

    std::optional<BulletinAction> defaultAction;
    std::optional<Date> date;
    // Absent and empty differ: a bulletin without a message is only heard.
    std::optional<std::string> message;
    std::string section;
    std::optional<std::string> title;
    std::optional<BulletinSound> sound;
    std::optional<std::string> unlockActionLabel;
    std::string publisherBulletinID;
    std::string recordID;
    int64_t dateFormatStyle = 0;
    // By layout; a layout without an entry has no supplementary actions.
    std::map<int64_t, std::vector<BulletinAction>> supplementaryActionsByLayout;
    // Null values are left out.
    Value::Dictionary context;
    int64_t primaryAttachmentType = AttachmentTypeNone;

    void setSupplementaryActions(std::optional<std::vector<BulletinAction>> actions, int64_t layout);
    // Empty when the layout has none.
    const std::vector<BulletinAction>& supplementaryActionsForLayout(int64_t layout) const;
    void setContextValue(const Value& value, const std::string& key);

    std::string description() const;
    bool operator==(const BulletinRequest&) const = default;
};

// A set of bulletins, unique by publisher bulletin identifier.
using BulletinSet = std::vector<BulletinRequest>;

} // namespace tessel
