#include "platform/ProcessAction.h"

namespace tessel {

ProcessAction::~ProcessAction() = default;

} // namespace tessel
