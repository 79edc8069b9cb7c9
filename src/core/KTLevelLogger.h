#pragma once

#include "platform/logging/FileLogger.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace tessel {

// A file logger that drives a process-wide exported level variable: -1 when
// off, 3 when its preference switches it on. Log sites read the variable
// without locking; a stale read only decides whether one line is written.
class KTLevelLogger : public FileLogger {
public:
    static constexpr int32_t levelOff = -1;
    static constexpr int32_t levelOn = 3;

    int level() const override;
    // Changes the level only when the switch actually flips, so an explicitly
    // set level survives a reload that leaves the switch as it was.
    void _setEnabled(bool enabled) override;
    void _setLevel(int level) override;

    std::string logPreferenceDomain() const override { return "com.tamber.tessel"; }

protected:
    explicit KTLevelLogger(int32_t& levelVariable)
        : _levelVariable(levelVariable)
    {
    }

private:
    void storeLevel(int32_t level);

    int32_t& _levelVariable;
};

} // namespace tessel
