#include "platform/linux/dbus/DbusRequestSize.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <systemd/sd-bus.h>

namespace tessel {

namespace {

    // sdbus-c++ keeps the sd-bus message to itself; its handlers only ever see
    // arguments already copied out, so the raw message is reached this way.
    struct RawMessage : sdbus::Message {
        static sd_bus_message* of(const sdbus::Message& message)
        {
            return static_cast<sd_bus_message*>(message.*(&RawMessage::msg_));
        }
    };

    bool readByteArray(sd_bus_message* message, size_t& bytes, int& result)
    {
        const void* data = nullptr;
        size_t size = 0;
        result = sd_bus_message_read_array(message, 'y', &data, &size);
        if (result > 0)
            bytes += size;
        return result > 0;
    }

    bool walk(sd_bus_message* message, DbusRequestSize& size, size_t maxBytes, size_t maxListItems)
    {
        while (size.bytes <= maxBytes && size.listItems <= maxListItems) {
            char type = 0;
            const char* contents = nullptr;
            int r = sd_bus_message_peek_type(message, &type, &contents);
            if (r < 0)
                return false;
            if (r == 0)
                return true;
            if (type == SD_BUS_TYPE_ARRAY && contents && strcmp(contents, "y") == 0) {
                if (!readByteArray(message, size.bytes, r))
                    return false;
            } else if (type == SD_BUS_TYPE_ARRAY && contents && strcmp(contents, "ay") == 0) {
                if (sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "ay") <= 0)
                    return false;
                size_t items = 0;
                while (
                    size.bytes <= maxBytes && items <= maxListItems && readByteArray(message, size.bytes, r))
                    ++items;
                size.listItems = std::max(size.listItems, items);
                if (r < 0)
                    return false;
                if (size.bytes > maxBytes || items > maxListItems)
                    return true;
                if (sd_bus_message_exit_container(message) < 0)
                    return false;
            } else if (type == SD_BUS_TYPE_STRING) {
                const char* text = nullptr;
                if (sd_bus_message_read_basic(message, type, &text) < 0 || !text)
                    return false;
                size.bytes += strlen(text);
            } else {
                std::string signature(1, type);
                if (type == SD_BUS_TYPE_ARRAY)
                    signature += contents ? contents : "";
                else if (type == SD_BUS_TYPE_STRUCT)
                    signature = std::string("(") + (contents ? contents : "") + ")";
                if (sd_bus_message_skip(message, signature.c_str()) < 0)
                    return false;
            }
        }
        return true;
    }

} // namespace

std::optional<DbusRequestSize> DbusRequestSize::measure(
    const sdbus::Message& message, size_t maxBytes, size_t maxListItems)
{
    auto* raw = RawMessage::of(message);
    if (!raw || sd_bus_message_rewind(raw, 1) < 0)
        return std::nullopt;
    DbusRequestSize size;
    bool walked = walk(raw, size, maxBytes, maxListItems);
    // The handler unmarshals from the start.
    if (sd_bus_message_rewind(raw, 1) < 0 || !walked)
        return std::nullopt;
    return size;
}

} // namespace tessel
