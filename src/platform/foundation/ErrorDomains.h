#pragma once

namespace tessel {

// Errors of the platform itself, not of one service.
inline constexpr const char* GeneralErrorDomain = "com.tamber.Tessel.GeneralErrorDomain";

} // namespace tessel
