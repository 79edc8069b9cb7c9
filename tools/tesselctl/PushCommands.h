#pragma once

#include "tesselctl/Invocation.h"

namespace tessel::ctl {

// Push messages and tokens through the daemon's loopback push source.
class PushCommands {
public:
    static void inject(const Invocation& invocation);
    static void token(const Invocation& invocation);
};

} // namespace tessel::ctl
