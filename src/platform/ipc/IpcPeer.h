#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// Who is on the other side of a connection, as the transport established it:
// never what the caller claims about itself.
struct IpcPeer {
    int32_t pid = 0;
    uint32_t uid = 0;
    // The transport's name for the peer (a bus's unique name); for logs.
    std::string name;
    // The identified application; empty when the process is none of them.
    std::string bundleIdentifier;
};

} // namespace tessel
