#include "core/KTLevelLogger.h"

#include <algorithm>

namespace tessel {

int KTLevelLogger::level() const
{
    return std::atomic_ref<int32_t>(_levelVariable).load(std::memory_order_relaxed);
}

void KTLevelLogger::storeLevel(int32_t level)
{
    std::atomic_ref<int32_t>(_levelVariable).store(level, std::memory_order_relaxed);
}

void KTLevelLogger::_setEnabled(bool enabled)
{
    if (enabled != isEnabled())
        storeLevel(enabled ? levelOn : levelOff);
    FileLogger::_setEnabled(enabled);
}

void KTLevelLogger::_setLevel(int level)
{
    storeLevel(std::max(level, static_cast<int>(levelOff)));
    _setEnabled(isEnabled());
}

} // namespace tessel
