#pragma once

#include <cstddef>

namespace tessel {

// What one caller may ask of a listener. Beyond a bound the request gets an
// error reply and a log line; everyone else keeps being served.
struct IpcLimits {
    // Bytes of one request as it arrives, before anything is decoded.
    size_t maxRequestBytes = 1 << 20;
    // Entries of one list argument once decoded.
    size_t maxListItems = 1024;
    // Nesting inside an archived argument is bounded by the archive decoder
    // itself (PropertyList::maximumDepth), checked before anything is parsed.
    // Entries of one answer list: the fire dates of a schedule.
    size_t maxReplyItems = 4096;
    // Requests of one connection received and not yet answered.
    size_t maxPendingRequests = 64;
};

} // namespace tessel
