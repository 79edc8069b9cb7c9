#include "tesselctl/Invocation.h"

#include "tesselctl/CommandError.h"

#include <cstdlib>

namespace tessel::ctl {

Invocation::Invocation(const Arguments& arguments)
    : _arguments(arguments)
    , _output(arguments.globals().json)
{
    if (arguments.globals().bus) {
        _busAddress = *arguments.globals().bus;
        return;
    }
    const char* session = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!session || !*session)
        throw CommandError(ExitCode::NoDaemon, "no bus: DBUS_SESSION_BUS_ADDRESS is not set and --bus is not given");
    _busAddress = session;
}

} // namespace tessel::ctl
