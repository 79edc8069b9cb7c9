#include "platform/bulletins/SectionParameters.h"

#include "platform/foundation/Format.h"

namespace tessel {

std::string SectionParameters::description() const
{
    return format(
        "<SectionParameters variable layout: %d message lines: %d suppresses alerts when active: %d "
        "suppresses title: %d>",
        usesVariableLayout, messageNumberOfLines, defaultSubtypeParameters.suppressesAlertsWhenAppIsActive,
        defaultSubtypeParameters.suppressesTitle);
}

} // namespace tessel
