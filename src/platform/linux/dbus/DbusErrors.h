#pragma once

namespace tessel {

// The error names a D-Bus client reads; every other failure is the bus's own.
namespace DbusErrors {
    // Refused by the service, dropped unanswered, or from a caller that cannot be identified.
    inline constexpr const char* notEntitled = "com.tamber.Tessel.Error.NotEntitled";
    // A record that is no archive of the expected class.
    inline constexpr const char* invalidArguments = "com.tamber.Tessel.Error.InvalidArguments";
    // Beyond one of the caller's IpcLimits.
    inline constexpr const char* limitExceeded = "com.tamber.Tessel.Error.LimitExceeded";
    // An answer the service could not encode.
    inline constexpr const char* failed = "org.freedesktop.DBus.Error.Failed";
} // namespace DbusErrors

} // namespace tessel
