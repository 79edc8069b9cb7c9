#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/foundation/Date.h"
#include "platform/records/LocalNotification.h"

#include <memory>
#include <vector>

namespace tessel {

class KeyedUnarchiver;

// The answer to a fetch request: notifications with the dates they will fire
// on, in the order the server added them (by date).
class KTSNotificationSchedule : public Archivable {
public:
    static constexpr const char* archivedClassName = "KTSNotificationSchedule";

    struct Entry {
        std::shared_ptr<LocalNotification> notification;
        Date fireDate;
    };

    // Idempotent; registers LocalNotification and Region too.
    static void registerArchivableClass();

    // A null notification is ignored.
    void addLocalNotification(std::shared_ptr<LocalNotification> notification, Date fireDate);
    const std::vector<Entry>& entries() const { return _entries; }
    size_t count() const { return _entries.size(); }
    bool isEmpty() const { return _entries.empty(); }

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    // Null when an entry is malformed: a schedule is all or nothing.
    static std::shared_ptr<KTSNotificationSchedule> decode(KeyedUnarchiver& coder);

private:
    std::vector<Entry> _entries;
};

} // namespace tessel
