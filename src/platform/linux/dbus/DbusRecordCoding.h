#pragma once

#include "platform/foundation/Value.h"
#include "platform/records/LocalNotification.h"
#include "platform/records/NotificationSettings.h"
#include "services/KTSNotificationScheduleFetchRequest.h"

#include <memory>
#include <optional>
#include <vector>

namespace tessel {

// Records as they travel on the bus: keyed archives, an empty one standing for
// null. Whatever comes from a caller is decoded by the whitelisted decoders only.
class DbusRecordCoding {
public:
    using List = std::vector<std::shared_ptr<LocalNotification>>;

    // Empty for null; absent for a value that cannot be archived.
    static std::optional<Bytes> archive(const Value& value);
    // Entries that cannot be archived are left out.
    static std::vector<Bytes> archiveNotifications(const List& notifications);

    // Absent when any entry is no notification archive (an empty one included).
    static std::optional<List> unarchiveNotifications(const std::vector<Bytes>& archives);
    // Null for empty data; absent for anything but a settings archive.
    static std::optional<std::shared_ptr<NotificationSettings>> unarchiveSettings(const Bytes& data);
    // Null for empty data; absent for anything but a fetch request archive.
    static std::optional<std::shared_ptr<KTSNotificationScheduleFetchRequest>> unarchiveFetchRequest(
        const Bytes& data);
};

} // namespace tessel
