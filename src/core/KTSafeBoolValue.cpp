#include "core/KTSafeBoolValue.h"

namespace tessel {

bool kt_safeBoolValue(const Value& value)
{
    return (value.isNumber() || value.isString()) && value.boolValue();
}

} // namespace tessel
