#include "platform/foundation/Archivable.h"

#include <cstdio>

namespace tessel {

std::string Archivable::description() const
{
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    std::string text = "<";
    text.append(className()).append(": ").append(address).append(">");
    return text;
}

} // namespace tessel
