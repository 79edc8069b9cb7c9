#pragma once

#include "tesselctl/Arguments.h"
#include "tesselctl/Output.h"

#include <chrono>
#include <string>

namespace tessel::ctl {

// What every command works with: its arguments, the output, and the bus.
class Invocation {
public:
    // Without --bus the address comes from $DBUS_SESSION_BUS_ADDRESS;
    // without either, exit 3.
    explicit Invocation(const Arguments& arguments);

    const Arguments& arguments() const { return _arguments; }
    const Output& output() const { return _output; }
    bool json() const { return _output.json(); }
    const std::string& busAddress() const { return _busAddress; }
    std::chrono::milliseconds timeout() const { return _arguments.globals().timeout; }
    const std::string& app() const { return _arguments.app(); }

private:
    const Arguments& _arguments;
    Output _output;
    std::string _busAddress;
};

} // namespace tessel::ctl
