#pragma once

#include "platform/foundation/Format.h"

#include <string>
#include <string_view>

// Diagnostic log statements of the two notification subsystems. Each tests its
// level before formatting anything; local lines name their application first.
#define KT_REMOTE_LOG(...)                                                                                   \
    do {                                                                                                     \
        if (::tessel::ktRemoteLoggingEnabled())                                                              \
            ::tessel::ktRemoteLog(::tessel::format(__VA_ARGS__));                                            \
    } while (0)

#define KT_LOCAL_LOG(bundleIdentifier, ...)                                                                  \
    do {                                                                                                     \
        if (::tessel::ktLocalLoggingEnabled())                                                               \
            ::tessel::ktLocalLog(bundleIdentifier, ::tessel::format(__VA_ARGS__));                           \
    } while (0)

namespace tessel {

bool ktRemoteLoggingEnabled();
bool ktLocalLoggingEnabled();
void ktRemoteLog(const std::string& text);
void ktLocalLog(std::string_view bundleIdentifier, const std::string& text);
// A local line that names no application.
void ktLocalLogLine(const std::string& text);

} // namespace tessel
