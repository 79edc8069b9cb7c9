#include "client/MessageArrays.h"

#include <sdbus-c++/Error.h>
#include <systemd/sd-bus.h>

namespace tessel {

namespace {

    // The sd-bus message under a sdbus-c++ one; its member is protected, not
    // private, so a derived class may name it for any message.
    struct Access : sdbus::Message {
        static sd_bus_message* raw(sdbus::Message& message)
        {
            return static_cast<sd_bus_message*>(message.*(&Access::msg_));
        }
    };

    void check(int result, const char* what)
    {
        if (result < 0)
            throw sdbus::Error(SD_BUS_ERROR_INVALID_ARGS, what);
    }

} // namespace

void appendBytes(sdbus::Message& message, const ArchivedRecord& bytes)
{
    check(sd_bus_message_append_array(Access::raw(message), 'y', bytes.data(), bytes.size()),
        "cannot append a byte array");
}

void appendByteArrays(sdbus::Message& message, const std::vector<ArchivedRecord>& arrays)
{
    auto* raw = Access::raw(message);
    check(sd_bus_message_open_container(raw, 'a', "ay"), "cannot open an array of byte arrays");
    for (auto& bytes : arrays)
        check(
            sd_bus_message_append_array(raw, 'y', bytes.data(), bytes.size()), "cannot append a byte array");
    check(sd_bus_message_close_container(raw), "cannot close an array of byte arrays");
}

ArchivedRecord readBytes(sdbus::Message& message)
{
    const void* data = nullptr;
    size_t size = 0;
    // 0: the message ended before it.
    if (sd_bus_message_read_array(Access::raw(message), 'y', &data, &size) <= 0)
        throw sdbus::Error(SD_BUS_ERROR_INVALID_ARGS, "expected a byte array");
    auto* bytes = static_cast<const uint8_t*>(data);
    return ArchivedRecord(bytes, bytes + size);
}

std::vector<ArchivedRecord> readByteArrays(sdbus::Message& message)
{
    auto* raw = Access::raw(message);
    int entered = sd_bus_message_enter_container(raw, 'a', "ay");
    check(entered, "expected an array of byte arrays");
    if (entered == 0)
        throw sdbus::Error(SD_BUS_ERROR_INVALID_ARGS, "expected an array of byte arrays");
    std::vector<ArchivedRecord> arrays;
    // read_array answers 0 past the last element.
    while (true) {
        const void* data = nullptr;
        size_t size = 0;
        int read = sd_bus_message_read_array(raw, 'y', &data, &size);
        check(read, "expected a byte array");
        if (read == 0)
            break;
        auto* bytes = static_cast<const uint8_t*>(data);
        arrays.emplace_back(bytes, bytes + size);
    }
    check(sd_bus_message_exit_container(raw), "malformed array of byte arrays");
    return arrays;
}

} // namespace tessel
