#include "platform/processes/ProcessAction.h"

namespace tessel {

ProcessAction::~ProcessAction() = default;

} // namespace tessel
