#pragma once

#include "platform/foundation/Archivable.h"
#include "platform/foundation/Date.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace tessel {

class KeyedUnarchiver;

// What an application asks of its schedule: the fire dates in a window.
class KTSNotificationScheduleFetchRequest : public Archivable {
public:
    static constexpr const char* archivedClassName = "KTSNotificationScheduleFetchRequest";

    // Idempotent; call before unarchiving requests.
    static void registerArchivableClass();

    // None: from now on.
    const std::optional<Date>& startDate() const { return _startDate; }
    void setStartDate(std::optional<Date> date) { _startDate = date; }
    // None: without end.
    const std::optional<Date>& endDate() const { return _endDate; }
    void setEndDate(std::optional<Date> date) { _endDate = date; }
    // At most this many entries; 0 for no limit.
    uint64_t maxSize() const { return _maxSize; }
    void setMaxSize(uint64_t size) { _maxSize = size; }
    bool includeSnoozes() const { return _includeSnoozes; }
    void setIncludeSnoozes(bool include) { _includeSnoozes = include; }

    std::string className() const override { return archivedClassName; }
    void encodeWithCoder(KeyedArchiver& coder) const override;
    std::string description() const override;
    bool isEqual(const Archivable& other) const override;

    static std::shared_ptr<KTSNotificationScheduleFetchRequest> decode(KeyedUnarchiver& coder);

private:
    std::optional<Date> _startDate;
    std::optional<Date> _endDate;
    uint64_t _maxSize = 0;
    bool _includeSnoozes = false;
};

} // namespace tessel
