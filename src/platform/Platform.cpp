#include "platform/Platform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace tessel {

namespace {

    std::mutex installLock;
    std::shared_ptr<Platform> installed;
    std::atomic<Platform*> installedPointer { nullptr };

} // namespace

void Platform::install(std::shared_ptr<Platform> platform)
{
    std::lock_guard lock(installLock);
    // The previous platform stays alive: services started on it may still hold references.
    static std::vector<std::shared_ptr<Platform>> retired;
    if (installed)
        retired.push_back(installed);
    installed = std::move(platform);
    installedPointer.store(installed.get(), std::memory_order_release);
}

Platform& Platform::current()
{
    Platform* platform = installedPointer.load(std::memory_order_acquire);
    if (!platform) {
        std::fprintf(
            stderr, "tessel: no platform installed; a host must install one before starting the server\n");
        std::abort();
    }
    return *platform;
}

bool Platform::isInstalled() { return installedPointer.load(std::memory_order_acquire) != nullptr; }

std::string Platform::timeZone() const
{
    std::lock_guard lock(_timeZoneLock);
    return _timeZone;
}

void Platform::setTimeZone(std::string name)
{
    std::lock_guard lock(_timeZoneLock);
    _timeZone = std::move(name);
}

void Platform::log(LogPriority priority, std::string_view message)
{
    if (isInstalled() && current().systemLog)
        current().systemLog->log(priority, message);
    else
        std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
}

} // namespace tessel
