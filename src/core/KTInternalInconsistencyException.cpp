#include "core/KTInternalInconsistencyException.h"

#include "platform/foundation/Format.h"

namespace tessel {

KTInternalInconsistencyException::KTInternalInconsistencyException(const std::string& condition)
    : std::logic_error(format("Invalid parameter not satisfying: %@", condition))
{
}

} // namespace tessel
