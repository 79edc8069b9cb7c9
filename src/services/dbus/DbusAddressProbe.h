#pragma once

#include <cstring>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>

namespace tessel {

// sdbus-c++ 1.2 leaks the bus it fails to open at an address, so both sides
// try the address first; the reason when it cannot be reached.
inline std::optional<std::string> dbusAddressUnreachable(const std::string& address)
{
    sd_bus* bus = nullptr;
    int result = sd_bus_new(&bus);
    if (result >= 0)
        result = sd_bus_set_address(bus, address.c_str());
    if (result >= 0)
        result = sd_bus_set_bus_client(bus, 1);
    if (result >= 0)
        result = sd_bus_start(bus);
    sd_bus_close_unref(bus);
    if (result < 0)
        return "cannot reach the bus at " + address + ": " + strerror(-result);
    return std::nullopt;
}

} // namespace tessel
