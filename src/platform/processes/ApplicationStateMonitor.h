#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

// Application states a monitor can ask for; a mask is their sum.
inline constexpr int64_t ApplicationStateTerminated = 1;
inline constexpr int64_t ApplicationStateBackground = 4;
inline constexpr int64_t ApplicationStateForeground = 8;
inline constexpr int64_t ApplicationStateForegroundObscured = 32;
// Why a terminated application ended.
inline constexpr int64_t ApplicationExitReasonUserKilled = 1;

// Keys of a state change's information dictionary.
inline constexpr const char* ApplicationStateBundleIdentifierKey = "ApplicationStateBundleIdentifier";
inline constexpr const char* ApplicationStateKey = "ApplicationState";
inline constexpr const char* ApplicationStateExitReasonKey = "ApplicationStateExitReason";

class ApplicationStateMonitor;

// Where application state changes come from: the host (or a test) reports
// them and every live monitor whose mask holds the state hears of it.
// Thread-safe; handlers run on the reporting thread without locks held.
class ApplicationStateService {
public:
    using Handler = std::function<void(const Value& info)>;

    std::shared_ptr<ApplicationStateMonitor> makeMonitor(int64_t stateMask, Handler handler);

    void reportStateChange(const std::string& bundleIdentifier, int64_t state, int64_t exitReason = 0);
    // As reported, untyped: receivers check what they read.
    void reportStateChange(const Value& info);

private:
    std::mutex _lock;
    std::vector<std::weak_ptr<ApplicationStateMonitor>> _monitors;
};

class ApplicationStateMonitor {
public:
    ApplicationStateMonitor(int64_t stateMask, ApplicationStateService::Handler handler);
    int64_t stateMask() const { return _stateMask; }
    // No calls after this returns, except one already running on another thread.
    void invalidate();
    void handle(const Value& info);

private:
    const int64_t _stateMask;
    std::mutex _lock;
    std::shared_ptr<const ApplicationStateService::Handler> _handler;
};

} // namespace tessel
