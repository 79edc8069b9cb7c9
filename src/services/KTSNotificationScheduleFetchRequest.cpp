#include "services/KTSNotificationScheduleFetchRequest.h"

#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Format.h"

#include <mutex>

namespace tessel {

void KTSNotificationScheduleFetchRequest::registerArchivableClass()
{
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedArchive::registerClass(archivedClassName, [](KeyedUnarchiver& coder) { return decode(coder); });
    });
}

void KTSNotificationScheduleFetchRequest::encodeWithCoder(KeyedArchiver& coder) const
{
    if (_startDate)
        coder.encodeObject(*_startDate, "startDate");
    if (_endDate)
        coder.encodeObject(*_endDate, "endDate");
    // Archives hold signed integers; the bits come back unchanged.
    coder.encodeInt64(static_cast<int64_t>(_maxSize), "maxSize");
    coder.encodeBool(_includeSnoozes, "includeSnoozes");
}

std::shared_ptr<KTSNotificationScheduleFetchRequest> KTSNotificationScheduleFetchRequest::decode(
    KeyedUnarchiver& coder)
{
    auto request = std::make_shared<KTSNotificationScheduleFetchRequest>();
    if (auto start = coder.decodeObject("startDate"); start.isDate())
        request->_startDate = start.dateValue();
    if (auto end = coder.decodeObject("endDate"); end.isDate())
        request->_endDate = end.dateValue();
    request->_maxSize = static_cast<uint64_t>(coder.decodeInt64("maxSize"));
    request->_includeSnoozes = coder.decodeBool("includeSnoozes");
    return request;
}

std::string KTSNotificationScheduleFetchRequest::description() const
{
    Value start = _startDate ? Value(*_startDate) : Value();
    Value end = _endDate ? Value(*_endDate) : Value();
    return format("<KTSNotificationScheduleFetchRequest %@ - %@ maxSize %lu snoozes %d>", start, end,
        _maxSize, _includeSnoozes);
}

bool KTSNotificationScheduleFetchRequest::isEqual(const Archivable& other) const
{
    auto request = dynamic_cast<const KTSNotificationScheduleFetchRequest*>(&other);
    return request && request->_startDate == _startDate && request->_endDate == _endDate
        && request->_maxSize == _maxSize && request->_includeSnoozes == _includeSnoozes;
}

} // namespace tessel
