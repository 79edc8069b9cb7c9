#pragma once

namespace tessel {

// The push service's environments. Registrations and connections name one of
// these; any other name is no environment at all.
inline constexpr const char* PushEnvironmentProduction = "production";
inline constexpr const char* PushEnvironmentDevelopment = "development";
inline constexpr const char* PushEnvironmentDemo = "demo";
inline constexpr const char* PushEnvironmentQA2 = "qa2";

} // namespace tessel
