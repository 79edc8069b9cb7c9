#pragma once

#include "tessel/services/ClientOptions.h"

#include <sdbus-c++/Message.h>

#include <vector>

namespace tessel {

// Byte arrays in and out of messages whole: sdbus-c++ 1.2 moves them one byte
// a call, which for 64 archived notifications costs more than the round trip.
// They throw sdbus::Error as sdbus-c++ does.
void appendBytes(sdbus::Message& message, const ArchivedRecord& bytes);
void appendByteArrays(sdbus::Message& message, const std::vector<ArchivedRecord>& arrays);
ArchivedRecord readBytes(sdbus::Message& message);
std::vector<ArchivedRecord> readByteArrays(sdbus::Message& message);

// Everything else as sdbus-c++ writes it.
template <typename T> void append(sdbus::Message& message, const T& value) { message << value; }
inline void append(sdbus::Message& message, const ArchivedRecord& bytes) { appendBytes(message, bytes); }
inline void append(sdbus::Message& message, const std::vector<ArchivedRecord>& arrays)
{
    appendByteArrays(message, arrays);
}

} // namespace tessel
