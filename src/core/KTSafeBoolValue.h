#pragma once

#include "platform/foundation/Value.h"

namespace tessel {

// Reads a boolean out of an untyped value: numbers and strings answer their
// boolean value, anything else (absent included) is false.
bool kt_safeBoolValue(const Value& value);

} // namespace tessel
