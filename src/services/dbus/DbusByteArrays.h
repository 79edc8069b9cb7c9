#pragma once

// sdbus-c++ 1.2 moves a byte array ("ay") through a message one byte per call,
// each way; a list of 64 archived notifications took about a millisecond so.
// These overloads move each array in one piece. The build puts this header in
// front of every file that links the generated D-Bus code, so that all of them
// agree on how byte arrays travel.
#include <sdbus-c++/Error.h>
#include <sdbus-c++/Message.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <vector>

namespace sdbus {

namespace byte_arrays {
    // The library keeps the sd-bus message and its read state to itself.
    struct Access : Message {
        static sd_bus_message* raw(const Message& message)
        {
            return static_cast<sd_bus_message*>(message.*(&Access::msg_));
        }
        static bool& ok(Message& message) { return message.*(&Access::ok_); }
    };
} // namespace byte_arrays

inline Message& operator<<(Message& message, const std::vector<uint8_t>& bytes)
{
    int result
        = sd_bus_message_append_array(byte_arrays::Access::raw(message), 'y', bytes.data(), bytes.size());
    SDBUS_THROW_ERROR_IF(result < 0, "Failed to serialize a byte array", -result);
    return message;
}

// At the end of an enclosing array the message reads as false, as for any element.
inline Message& operator>>(Message& message, std::vector<uint8_t>& bytes)
{
    const void* data = nullptr;
    size_t size = 0;
    int result = sd_bus_message_read_array(byte_arrays::Access::raw(message), 'y', &data, &size);
    SDBUS_THROW_ERROR_IF(result < 0, "Failed to deserialize a byte array", -result);
    if (result == 0) {
        byte_arrays::Access::ok(message) = false;
        return message;
    }
    const auto* begin = static_cast<const uint8_t*>(data);
    bytes.assign(begin, begin + size);
    return message;
}

} // namespace sdbus
