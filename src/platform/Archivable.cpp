#include "platform/Archivable.h"

#include <cstdio>

namespace tessel {

std::string Archivable::description() const
{
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    return "<" + className() + ": " + address + ">";
}

} // namespace tessel
