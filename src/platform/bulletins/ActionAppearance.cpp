#include "platform/bulletins/ActionAppearance.h"

#include "platform/foundation/Format.h"

namespace tessel {

std::string ActionAppearance::description() const
{
    return format("<ActionAppearance title: \"%@\" style: %ld>", title, style);
}

} // namespace tessel
